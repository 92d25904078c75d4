/*
 * A tour of the configuration store on real data: the services database becomes records of class 7, the addresses and
 * routes of this machine become records of class 13. Every call that does something is shown with its result.
 *
 * usage: store_tour FOLDER      (writes FOLDER/machine.dat and FOLDER/machine.zip)
 */
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "machine_data.h"
#include "tav/store.h"
#include "tav_posix.h"

namespace {

// One virtual system, two classes and their fields. The class decides which field is the key.
constexpr uint32_t kVs = 0;
constexpr uint32_t kServiceClass = 7;
constexpr uint32_t kServiceName = 8;  // key: text
constexpr uint32_t kServicePort = 9;
constexpr uint32_t kServiceNotes = 12;
constexpr uint32_t kNetworkClass = 13;
constexpr uint32_t kEntryNumber = 14;  // key: a number
constexpr uint32_t kEntryKind = 15;    // 1 an interface's own address, 2 a route
constexpr uint32_t kEntryAddress = 18;
constexpr uint32_t kEntryInterface = 19;
constexpr uint32_t kEntryPrefix = 21;
constexpr uint32_t kEntryMetric = 24;

void Heading(const char *text) {
    printf("\n== %s\n", text);
}

/** Shows a call with its result. Throws std::runtime_error when it is not the one expected. */
void Show(const std::string &call, uint32_t result, uint32_t expected = TAV_OK) {
    printf("   %-58s -> 0x%x\n", call.c_str(), result);
    if (result != expected) {
        char code[16];
        snprintf(code, sizeof(code), "0x%x", expected);
        throw std::runtime_error(call + ": expected " + code);
    }
}

/** Makes a record of class 7 that holds the key alone. */
tav::Record ServiceKey(const std::string &name) {
    return tav::Record(kServiceClass).With(kServiceName, name);
}

tav::Record ServiceRecord(const Service &service) {
    tav::Record record = ServiceKey(service.name).With(kServicePort, service.port);
    if (!service.notes.empty()) {
        record.Add(kServiceNotes, service.notes);
    }
    return record;
}

tav::Record NetworkRecord(uint32_t number, const NetworkEntry &entry) {
    return tav::Record(kNetworkClass)
        .With(kEntryNumber, number)
        .With(kEntryKind, entry.isRoute ? 2 : 1)
        .With(kEntryAddress, tav::Bytes(entry.address))
        .With(kEntryInterface, entry.interfaceIndex)
        .With(kEntryPrefix, entry.prefixLength)
        .With(kEntryMetric, entry.metric);
}

/** Makes a record and hands it to the store. Returns false when one of them is refused: too long, or there already. */
template <typename Make>
bool Add(tav::Store *store, Make make) {
    try {
        store->Add(kVs, make());
        return true;
    } catch (const tav::Error &) {
        return false;
    }
}

/** Opens a store anew and fills it from this machine. */
tav::Store FillStore(const std::string &path) {
    tav::Store store = tav::Store::Open(path, {}, TAV_EXT_MODE_WRITE_ONLY);
    unsigned services = 0;
    unsigned refused = 0;
    for (const Service &service : ReadServices()) {
        Add(&store, [&] { return ServiceRecord(service); }) ? ++services : ++refused;
    }
    uint32_t entries = 0;
    for (const NetworkEntry &entry : ReadNetwork()) {
        Add(&store, [&] { return NetworkRecord(entries + 1, entry); }) ? ++entries : ++refused;
    }
    printf("   %u services (class 7), %u addresses and routes (class 13), %u refused\n", services, entries, refused);
    return store;
}

/** Reads a field of numbers. Throws std::runtime_error when the record has none. */
unsigned NumberIn(tav::RecordView record, uint32_t fid) {
    const std::optional<uint64_t> number = record.Number(fid);
    if (!number) {
        throw std::runtime_error("reading a field failed");
    }
    return static_cast<unsigned>(*number);
}

/** Reads the port of a service. */
unsigned PortOf(const tav::Store &store, const std::string &name) {
    const std::optional<tav::RecordView> service = store.Find(kVs, ServiceKey(name));
    if (!service) {
        throw std::runtime_error("finding the service failed");
    }
    return NumberIn(*service, kServicePort);
}

/** Makes a change of one field of a service: the key says which record, what follows replaces its values. */
tav::Record PortChange(const std::string &name, uint16_t port) {
    return ServiceKey(name).With(kServicePort, port);
}

/** Walks all records of class 13 in the order of their keys. */
void QueryNetwork(const std::string &path) {
    const tav::Store store = tav::Store::Open(path);
    const tav::Record condition(kNetworkClass);
    Show("TAV_ExtCfgStartQuery(vs 0, class 13)", TAV_ExtCfgStartQuery(kVs, condition.Get(), store.Get()));
    while (const TAV_ExtCfgRecordNode *node = TAV_ExtCfgGetNextRecord(store.Get())) {
        const tav::RecordView record(node);
        printf("   %3u  %-7s  %s/%u\n", NumberIn(record, kEntryNumber),
               NumberIn(record, kEntryKind) == 2 ? "route" : "address",
               record.Address(kEntryAddress).value().ToText().c_str(), NumberIn(record, kEntryPrefix));
    }
    Show("TAV_ExtCfgEndQuery()", TAV_ExtCfgEndQuery(store.Get()));
}

/** Reads one record by its key, overwrites a field of it, and flushes twice: the second flush has nothing to write. */
void GetSetFlush(const std::string &path) {
    const tav::Store store =
        tav::Store::Open(path, {}, TAV_EXT_MODE_READ_WRITE);  // which is sound: it was just written
    printf("   ssh/tcp has port %u\n", PortOf(store, "ssh/tcp"));
    const tav::Record change = PortChange("ssh/tcp", 2022);
    Show("TAV_ExtCfgSetRecord(vs 0, ssh/tcp with port 2022)", TAV_ExtCfgSetRecord(kVs, change.Get(), store.Get()));
    Show("TAV_ExtCfgFlush()", TAV_ExtCfgFlush(store.Get()));
    Show("TAV_ExtCfgFlush() again: nothing to write", TAV_ExtCfgFlush(store.Get()), TAV_ERR_UNCHANGED);
}

/**
 * Overwrites a field inside the file. That is quick, but a crash in the middle leaves a file that does not load: for
 * files that can be made again. The record that is handed in loses its key field.
 */
void PatchInPlace(const std::string &path) {
    const tav::Record change = PortChange("ssh/tcp", 22);
    Show("TAV_ExtCfgSetRecordToFile(vs 0, ssh/tcp with port 22)",
         TAV_ExtCfgSetRecordToFile(kVs, change.Get(), path.c_str(), nullptr));
    printf("   the file still loads, and ssh/tcp has port %u\n", PortOf(tav::Store::Open(path), "ssh/tcp"));
}

void Tour(const std::string &plain, const std::string &archive) {
    Heading("A store is filled in memory");
    const tav::Store filled = FillStore(plain);

    Heading("It becomes a plain file, and an archive");
    Show("TAV_ExtCfgFlush() to machine.dat", TAV_ExtCfgFlush(filled.Get()));
    Show("TAV_WriteExtCfgFile(machine.zip)", TAV_WriteExtCfgFile(archive.c_str(), filled.Get()));

    Heading("The archive is opened read-only and queried");
    QueryNetwork(archive);

    Heading("The plain file is opened, one record is read and changed, and the store is flushed");
    GetSetFlush(plain);

    Heading("The same record is changed inside the file, without loading it");
    PatchInPlace(plain);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: store_tour FOLDER\n");
        return 2;
    }
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);  // once, before the first store
    try {
        Tour(std::string(argv[1]) + "/machine.dat", std::string(argv[1]) + "/machine.zip");
    } catch (const std::exception &error) {
        fprintf(stderr, "store_tour: %s\n", error.what());
        return 1;
    }
    TAV_Posix_MemAccount account = {};
    TAV_Posix_MemTotal(&account);
    printf("\n   Memory still taken from the platform: %llu blocks\n", static_cast<unsigned long long>(account.blocks));
    return account.blocks == 0 ? 0 : 1;
}
