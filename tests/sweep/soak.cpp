/*
 * A long run: events while subscriptions come and go, received by another thread, and a store that is opened, edited,
 * written and closed. Memory must stay flat and all accounts end at zero. Arguments: a folder, the number of store
 * cycles, the number of events.
 */
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "aru_detect.h"
#include "bytes.h"
#include "platform/dms_message.h"
#include "tav_extcfg.h"
#include "tav_posix.h"
#include "tav_posix_bus.h"

namespace {

constexpr uint32_t kDetector = 7, kSubscriber = 9, kSubscriberKind = 180, kVs = 3, kVr = 2;
constexpr uint16_t kType = 100;

/** What a subscriber asks for, as in the message's header. */
enum class Request : uint16_t { kSubscribe = 18, kUnsubscribe = 19 };

/** Returns a message of the bus about event 1, with one condition, which is empty. It is freed with the last pointer.
 */
std::shared_ptr<void> Letter(uint32_t sender, Request request, uint32_t bookKey, uint16_t conditionType) {
    const auto tlv = [](uint16_t type, const Bytes &value) {
        return Join({Host16(type), Host16(static_cast<uint16_t>(value.size())), value});
    };
    const Bytes ids = tlv(2, Join({Host32(1), Host32(1)})), event = tlv(17, Host32(1)), key = tlv(18, Host32(bookKey));
    const Bytes operation = Host16(static_cast<uint16_t>(request));
    const Bytes header = Join({Host16(48), {0, 14}, Host32(1), operation, Host16(0), Host32(0)});
    const Bytes bytes = Join({header, ids, event, key, tlv(conditionType, {})});
    void *const message = MEL_MsgAlloc_F(sender, static_cast<uint32_t>(bytes.size()), "tests", 0);
    return {memcpy(message, bytes.data(), bytes.size()), [sender](void *taken) { DMS_MsgFree(sender, taken); }};
}

void Need(bool holds, const char *what) {
    if (!holds) {
        printf("failed: %s\n", what);
        fflush(stdout);
        _Exit(1);
    }
}

long ResidentKilobytes() {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

/** Does something many times; from a tenth of them on it must take no more memory. */
template <typename Step>
void Repeat(const char *what, uint32_t times, Step step) {
    const auto begin = std::chrono::steady_clock::now();
    long warm = 0;
    for (uint32_t i = 0; i < times; ++i) {
        warm = i == times / 10 ? ResidentKilobytes() : warm;
        step(i);
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    const long end = ResidentKilobytes();
    printf("%u %s in %.1f s; %ld KB after a tenth, %ld KB in the end\n", times, what, seconds.count(), warm, end);
    Need(end <= warm + 256, "flat memory");
}

/** Opens a store, puts one of 50 records there anew, writes and closes it. */
void EditStore(const std::string &path, uint32_t cycle) {
    const uint32_t key = cycle % 50;
    CfgLocal *const local = TAV_ExtCfgOpen(TAV_EXT_MODE_READ_WRITE, path.c_str(), nullptr);
    TAV_ExtCfgRecordNode *const record = TAV_ExtCfgRecordNodeCreate(13);
    TAV_ExtCfgRecordAddFieldValue(record, 14, sizeof(key), &key);
    TAV_ExtCfgRecordAddFieldValue(record, 12, sizeof(cycle), &cycle);
    TAV_ExtCfgDelRecord(0, record, local);
    Need(TAV_ExtCfgAddRecord(0, record, local) == TAV_OK, "add");
    Need(TAV_ExtCfgFlush(local) == TAV_OK, "flush");
    Need(TAV_ExtCfgClose(local) == TAV_OK, "close");
}

/** Sends, again for as long as the receiver is busy. */
template <typename Send>
void Insist(Send send) {
    uint32_t code;
    while ((code = send()) == ARU_DETECT_SEND_FAILED) {
        std::this_thread::yield();
    }
    Need(code == ARU_DETECT_OK, "subscription or event");
}

/** Reports an event; every fourth time a subscription comes or goes before: two come for each one that goes. */
void Detect(ARU_Detect_Handle *handle, uint32_t round) {
    if (round % 4 == 0) {
        const uint32_t turn = round / 4;
        const auto request = turn % 3 == 2 ? Request::kUnsubscribe : Request::kSubscribe;
        const auto letter = Letter(kSubscriber, request, turn % 20, kType);
        Insist([&] { return ARU_Detect_ProcMsg(kVs, handle, letter.get()); });
    }
    Insist([=] { return ARU_Detect_Filter(kVs, handle, round % 7, 0); });
}

/** Receives until all is sent and taken. Returns the number of messages. */
uint32_t Drain(TAV_Posix_BusPort *port, const std::atomic<bool> &isAllSent) {
    uint32_t count = 0, length = 0;
    void *message = nullptr;
    for (bool wasAllSent = false; !wasAllSent;) {
        wasAllSent = isAllSent;
        for (; TAV_Posix_BusReceive(port, 20, &message, &length) == 0; ++count) {
            DMS_MsgFree(kSubscriber, message);
        }
    }
    return count;
}

}  // namespace

int main(int argc, char **argv) {
    Need(argc == 4, "usage: soak FOLDER CYCLES EVENTS");
    setenv("TAV_BUS_PATH", argv[1], 1);
    setenv("TAV_ENV_5", std::to_string(kVr).c_str(), 1);
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    TAV_Posix_BusPort *port = nullptr;
    Need(TAV_Posix_BusBind(kSubscriber, &port) == 0, "bind");
    Need(TAV_Posix_BusServe(port, kSubscriberKind, kVr, kVs) == 0, "serve");
    std::atomic<bool> isAllSent = false;
    uint32_t received = 0;
    std::thread receiver([&] { received = Drain(port, isAllSent); });
    ARU_Detect_Handle *const handle = ARU_Detect_Init(1, kDetector, kVs, nullptr, nullptr, 0);
    const auto match = [](auto, auto, uintptr_t event, auto, auto) { return event != 0 ? 1u : 0u; };
    ARU_Detect_RegisterCond(kVs, handle, kType, nullptr, match, nullptr, nullptr, nullptr);
    Repeat("events", static_cast<uint32_t>(atoi(argv[3])), [=](uint32_t round) { Detect(handle, round); });
    isAllSent = true;
    receiver.join();
    ARU_Detect_UnInit(handle);
    TAV_Posix_BusUnbind(port);
    const std::string path = std::string(argv[1]) + "/soak.dat";
    Repeat("cycles", static_cast<uint32_t>(atoi(argv[2])), [&](uint32_t cycle) { EditStore(path, cycle); });
    TAV_Posix_BusCounts bus;
    TAV_Posix_MemAccount memory;
    TAV_Posix_BusAccount(&bus);
    TAV_Posix_MemTotal(&memory);
    printf("%u messages sent, %u received; left over: %u messages, %u blocks\n", bus.sent, received, bus.alive,
           static_cast<uint32_t>(memory.blocks));
    Need(received == bus.sent, "every message received");
    Need(bus.alive == 0, "no message left over");
    Need(memory.blocks == 0, "no block left over");
    Need(memory.bytes == 0, "no byte left over");
    return 0;
}
