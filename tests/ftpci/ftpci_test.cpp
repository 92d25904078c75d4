/*
 * Transfer messages: requests as a receiver on the bus gets them, refusals and failures, and the byte order of answers.
 */
#include "tav_ftpci.h"

#include <functional>
#include <map>

#include "debug_log.h"
#include "interposer.h"
#include "platform/dms_message.h"
#include "store.h"
#include "tav_posix_bus.h"

namespace {

using interposer::Call;
using Memory = NFTPCI_MemBufBlock;
const auto Ids = [](auto... ids) { return Join({Host32(ids)...}); };
constexpr NFTPCI_CommHandle kHandle = {71, 72};
constexpr uint32_t kId = 0x20000002, kFailed = 0xFFFFFFFF;
const Bytes kIds = Ids(1u, kId, 3u, 0u), kPut = Ids(1u, kId, 0u, 0u);
const Bytes kData = Join(std::vector<Bytes>(300, Text("abcdefghijklmnopq"))), kFull = Slice(kData, 0, 4096);

const auto Word = [](size_t value) { return Host16(static_cast<uint16_t>(value)); };
const auto Swapped = [](size_t value) { return Word(__builtin_bswap16(static_cast<uint16_t>(value))); };
const auto MsgTlv = [](uint32_t type, const Bytes &value) { return Join({Word(type), Word(value.size()), value}); };

Bytes Message(uint8_t flags, uint8_t kind, const Bytes &ids, const Bytes &op, const Bytes &tlvs) {
    return Join({Word(32 + tlvs.size()), {flags, kind}, Host32(0), ids, op, Filled(6, 0), tlvs});
}

/** Takes the message that component 72 got, its envelope looked at; no bytes when there is none. */
Bytes Take() {
    static const TempFolder folder;
    static TAV_Posix_BusPort *port = nullptr;
    static const bool bound = !setenv("TAV_BUS_PATH", folder.Path().c_str(), 1) && !TAV_Posix_BusBind(72, &port);
    void *message = nullptr;
    uint32_t length = 0;
    if (!bound || TAV_Posix_BusReceive(port, 0, &message, &length) != 0) {
        return {};
    }
    EXPECT_EQ(DMS_MsgSendCidGet(message), kHandle.sender);
    EXPECT_EQ(DMS_MsgRecvIidGet(message), 0x103u);
    EXPECT_EQ(DMS_MEL_MSG_GET_INTF(message), 1);
    EXPECT_EQ(DMS_MEL_MSG_GET_SUB_INTF(message), 3);
    const Bytes taken(static_cast<uint8_t *>(message), static_cast<uint8_t *>(message) + length);
    DMS_MsgFree(72, message);
    return taken;
}

// Calls that lack the handle alone.
const auto Put = [](auto... a) { return [=](auto *h) { return NFTPCI_AsyncPutDiskFile(1, kId, 9, a..., h); }; };
const auto PutMem = [](auto... a) { return [=](auto *h) { return NFTPCI_AsyncPutMemBufReq(1, kId, 9, a..., h); }; };
const auto Block = [](Memory b) { return [=](auto *h) { return NFTPCI_AsyncTransMemBufBlock(1, kId, 3, &b, h); }; };

TEST(Requests, ArriveWholeOrNotAtAll) {
    const std::string longest(255, 'n'), tooLong(256, 'n');
    const Bytes cfg = MsgTlv(0, Host32(9)), head = Join({MsgTlv(1, Host32(0xABCD)), MsgTlv(2, Host32(0xEF))});
    const Bytes from = MsgTlv(12, Join({Text("a"), Filled(255, 0)})), to = MsgTlv(13, Join({Text(longest), {0}}));
    std::vector<std::pair<std::function<uint32_t(const NFTPCI_CommHandle *)>, Bytes>> rows = {
        {Put(1u, 2u, "a", longest.c_str()), Message(0, 0, kPut, Word(0), Join({cfg, MsgTlv(3, Host32(2)), from, to}))},
        {PutMem(0xF02u, 0x101u, longest.c_str()), Message(0, 1, kPut, Word(0), Join({cfg, MsgTlv(3, Host32(1)), to}))},
        {Block({4096, 0xABCD, 0xEF, kData.data()}), Message(0, 1, kIds, Word(2), Join({head, MsgTlv(14, kFull)}))},
        {Block({0, 0xABCD, 0xEF, ""}), Message(0, 1, kIds, Word(2), Join({head, MsgTlv(14, {})}))},
        {Block({0, 0xABCD, 0xEF, nullptr}), Message(0, 1, kIds, Word(2), head)},
        {[](auto *h) { return NFTPCI_AsyncTransFileQuery(1, kId, 3, h); }, Message(0, 2, kIds, Word(5), {})},
        {[](auto *h) { return NFTPCI_AsyncTransFileProgress(1, kId, 3, h); }, Message(0, 2, kIds, Word(4), {})},
        {[](auto *h) { return NFTPCI_AsyncTransMemBufBlock(1, kId, 3, nullptr, h); }, {}}};
    const auto refused = [&rows](const auto &...calls) { (rows.push_back({calls, {}}), ...); };
    refused(Block({4097, 1, 1, kData.data()}), Block({1, 1, 1, nullptr}));
    for (auto [mode, bad] : std::map<uint32_t, const char *>{{0, nullptr}, {3, ""}, {0x100, tooLong.c_str()}}) {
        refused(Put(1u, 1u, bad, "b"), Put(1u, 1u, "a", bad), PutMem(1u, 1u, bad), PutMem(mode, 1u, "a"));
        refused(Put(mode, 1u, "a", "b"), Put(1u, mode, "a", "b"), PutMem(1u, mode, "a"));
    }
    for (const auto &[send, message] : rows) {
        for (Call call : {Call::kMalloc, Call::kMsgAlloc, Call::kMemCopy, Call::kSend, Call::kAny}) {
            EXPECT_EQ(send(nullptr), kFailed);
            EXPECT_EQ(Take(), Bytes());
            const NothingLeaks nothingLeaks;
            uint32_t nth = 0;
            while (interposer::FailNth(call, ++nth), send(&kHandle) != NFTPCI_OK && interposer::Count(call) == nth) {
                EXPECT_EQ(Take(), Bytes());
            }
            EXPECT_EQ(nth > 1, !message.empty()) << "each kind of call matters; what is refused makes none";
            EXPECT_EQ(interposer::TakenBy().contains("0 tav_ftpci"), !message.empty());
            EXPECT_EQ(Take(), message);
        }
    }
    interposer::Reset();
}

TEST(Requests, AreBuiltAndSearchedTlvByTlv) {
    const NFTPCI_ReqParam param = {9, 9, 1, kId, 3, 9, 0xABCD};
    NFTPCI_MsgMemBuf *buffer = NFTPCI_CreateReqMsg(&param, &kHandle);
    const auto add = [&](uint16_t type, uint32_t size) { return NFTPCI_AddTlvToMsg(&buffer, type, size, &kData[0]); };
    using Codes = std::vector<uint32_t>;
    EXPECT_EQ(Take(), Bytes());
    EXPECT_EQ((Codes{add(5, 11), add(5, 1), add(6, 0)}), (Codes{0, kFailed, 0})) << "a type occurs once";
    EXPECT_EQ((Codes{add(7, ~0u), add(7, ~50u), add(7, 4186)}), Codes(3, kFailed)) << "too long";
    interposer::FailNth(Call::kMemCopy, 1);
    EXPECT_EQ((Codes{add(7, 4185), add(7, 4185), add(8, 0)}), (Codes{1, 0, kFailed})) << "refused, copied, full";
    interposer::FailNth(Call::kSend, 1);
    for (const uint32_t code : {kFailed, 0u}) {
        EXPECT_EQ(NFTPCI_ReqMsgSend(&buffer, 7, nullptr), kFailed);
        EXPECT_EQ(NFTPCI_ReqMsgSend(&buffer, 7, &kHandle), code);
        EXPECT_EQ(buffer == nullptr, code == 0);
    }
    const Bytes tlvs = Join({MsgTlv(5, Slice(kData, 0, 11)), MsgTlv(6, {}), MsgTlv(7, Slice(kData, 0, 4185))});
    Bytes message = Take();
    EXPECT_EQ(message, Message(0, 7, kIds, Word(0xABCD), tlvs));
    for (size_t total = 0; total < 60; ++total) {  // as if the message stated this length
        std::ranges::copy(Word(total), message.begin());
        const void *tlv = nullptr;
        EXPECT_EQ(NFTPCI_GetDataByTlvType(message.data(), 7, &tlv), total < 55 ? kFailed : NFTPCI_OK);
        EXPECT_EQ(tlv, total < 55 ? nullptr : &message[51]);
    }
}

/** Who reports a type, where its shortest value changes, and what stands there then; nobody knows 22 and 23. */
using Form = std::tuple<std::string, size_t, std::string>;
const std::string kNumber = "dcba", kIpv6 = "dcbahgfelkjiponm";
const std::map<uint32_t, Form> kForms = {
    {0, {"CFGID", 0, kNumber}},      {1, {"SessionId", 0, "bacd"}},      {4, {"SrcIPV4", 0, kNumber}},
    {5, {"SrcIPV6", 0, kIpv6}},      {6, {"DestIPV4", 0, kNumber}},      {7, {"DestIPV6", 0, kIpv6}},
    {8, {"SrcIfIdex", 0, kNumber}},  {9, {"VpnInstID", 0, kNumber}},     {10, {"DestPortNum", 0, kNumber}},
    {19, {"FileRet", 256, "edcb"}},  {22, {"ByteOrderByTlv", 9999, ""}}, {23, {"ByteOrderByTlv", 9999, ""}},
    {24, {"SrcPortNum", 0, kNumber}}};

TEST(ByteOrder, OfEveryTypeAndLength) {
    Bytes foreign, local;
    const std::string swap = "TAVFTPCI_Swap", walk = swap + "MsgBodyByteOrder2Loc";
    std::vector<LogEntry> reports;
    for (uint32_t type = 0; type < 25; ++type) {
        const auto [name, at, after] = kForms.contains(type) ? kForms.at(type) : Form();
        for (size_t length : {0u, 1u, 2u, 3u, 4u, 15u, 16u, 259u, 260u}) {
            Bytes value = Slice(kData, 0, length);
            foreign = Join({foreign, Swapped(type), Swapped(length), value});
            if (length >= at + after.size()) {
                std::ranges::copy(after, value.begin() + static_cast<ptrdiff_t>(at));
            } else if (length >= 2) {
                const std::string t = std::to_string(type), l = std::to_string(length);
                const std::string less = ", less expect len " + std::to_string(at + after.size()) + ".";
                const std::string what = after.empty() ? "Unknow TLV " : "TLV", rest = after.empty() ? "" : less;
                reports.push_back({swap + name, what + "(T=" + t + ", L=" + l + ")" + rest});
                reports.push_back({walk, "change (T=" + l + ", L=" + t + ") fail."});
            }
            local = Join({local, MsgTlv(type, value)});
        }
    }
    foreign = Join({foreign, Swapped(4), Swapped(5), Text("abcd")});  // the last is cut off
    foreign = Message(0x84, 7, Ids(1u << 24, 0x02000020u, 3u << 24, 9u << 24), Swapped(0xABCD), foreign);
    local = Message(0x80, 7, Ids(1u, kId, 3u, 9u), Word(0xABCD), Join({local, Word(4), Word(5), Text("abcd")}));
    Bytes message = foreign;
    DebugLog log;
    for (const bool again : {false, true}) {
        EXPECT_EQ(TAVFTPCI_SwapMsgBodyByteOrder2Loc(message.data()), 0u);
        EXPECT_EQ(message, local);
        log.Expect(again ? std::vector<LogEntry>() : reports);
    }
    const TAVFTPCI_ByteOrderMap own[] = {{9, [](void *, uintptr_t) { return 4u; }},
                                         {7, [](void *tlv, uintptr_t context) {
                                              const auto *const type = static_cast<uint8_t *>(tlv);
                                              return static_cast<uint32_t>(type[0] + type[1] + context);
                                          }}};
    EXPECT_EQ(TAVFTPCI_SwapByteOrderByTlv(MsgTlv(7, {}).data(), own, 2, 30), 7u + 30u);
    EXPECT_EQ(TAVFTPCI_SwapByteOrderByTlv(MsgTlv(7, {}).data(), own, 1, 30), 1u);
    log.Expect({{"TAVFTPCI_SwapByteOrderByTlv", "Unknow TLV (T=7, L=0)"}});
    EXPECT_EQ(TAVFTPCI_MsgHeaderSwapByteOrder(Bytes(32).data(), 0, 32), 32);
    message[2] = 0x84;
    EXPECT_EQ(TAVFTPCI_SwapMsgBodyByteOrder2Net(message.data()), 0u);
    EXPECT_EQ(message, local);
    reports = {{"TAVFTPCI_MsgHeaderSwapByteOrder", "msg len too small (7 < Common Header(32))"},
               {walk, "change msg header fail"}};
    for (size_t total = 0; total < 500; ++total) {  // too short, cut off anywhere, and ever more damaged behind 62
        foreign[62 + total * 7919 % 500] = static_cast<uint8_t>(total % 26);
        message = Join({Word(total), Slice(foreign, 2, std::max<size_t>(total, 4))});
        const Bytes before = message;
        EXPECT_EQ(TAVFTPCI_SwapMsgBodyByteOrder2Loc(message.data()), total < 32 ? 1u : 0u);
        EXPECT_EQ(message == before, total < 32) << total;
        EXPECT_EQ(log.Take() == reports, total < 32) << total;
        if (total == 40 || total == 62) {
            EXPECT_EQ(Slice(message, 32, total), Slice(local, 32, total)) << total;
        }
    }
}

}  // namespace
