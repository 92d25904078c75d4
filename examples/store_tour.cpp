/*
 * A tour of the configuration store on real data: the services database becomes records of class 7, the addresses and
 * routes of this machine become records of class 13. Every call that does something is shown with its result.
 *
 * usage: store_tour FOLDER      (writes FOLDER/machine.dat and FOLDER/machine.zip)
 */
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "machine_data.h"
#include "store_records.h"
#include "tav_extcfg.h"
#include "tav_posix.h"

namespace {

/* One virtual system, two classes and their fields. The class decides which field is the key. */
constexpr uint32_t kVs = 0;
constexpr uint32_t kServiceClass = 7;
constexpr uint32_t kServiceName = 8; /* key: text */
constexpr uint32_t kServicePort = 9;
constexpr uint32_t kServiceNotes = 12;
constexpr uint32_t kNetworkClass = 13;
constexpr uint32_t kEntryNumber = 14; /* key: a number */
constexpr uint32_t kEntryKind = 15;   /* 1 an interface's own address, 2 a route */
constexpr uint32_t kEntryAddress = 18;
constexpr uint32_t kEntryInterface = 19;
constexpr uint32_t kEntryPrefix = 21;
constexpr uint32_t kEntryMetric = 24;

void Heading(const char *text) {
    std::printf("\n== %s\n", text);
}

/** Shows a call with its result, and gives up when it is not the one expected. */
void Show(const char *call, uint32_t result, uint32_t expected = TAV_OK) {
    std::printf("   %-58s -> 0x%x\n", call, result);
    if (result != expected) {
        std::fprintf(stderr, "store_tour: %s: expected 0x%x\n", call, expected);
        std::exit(1);
    }
}

/** Gives up when something that must be there is not. */
template <typename Pointer>
Pointer Need(Pointer pointer, const char *what) {
    if (!pointer) {
        std::fprintf(stderr, "store_tour: %s failed\n", what);
        std::exit(1);
    }
    return pointer;
}

template <typename Number>
void AddNumber(const Record &record, uint32_t fid, Number number) {
    TAV_ExtCfgRecordAddFieldValue(record.get(), fid, sizeof(number), &number);
}

void AddText(const Record &record, uint32_t fid, const std::string &text) {
    TAV_ExtCfgRecordAddFieldValue(record.get(), fid, static_cast<uint32_t>(text.size()), text.data());
}

/** Makes a record of class 7 that holds the key alone. */
Record ServiceKey(const std::string &name) {
    Record record = Need(Record(TAV_ExtCfgRecordNodeCreate(kServiceClass)), "making a record");
    AddText(record, kServiceName, name);
    return record;
}

Record ServiceRecord(const Service &service) {
    Record record = ServiceKey(service.name);
    AddNumber(record, kServicePort, service.port);
    if (!service.notes.empty()) {
        AddText(record, kServiceNotes, service.notes);
    }
    return record;
}

Record NetworkRecord(uint32_t number, const NetworkEntry &entry) {
    Record record = Need(Record(TAV_ExtCfgRecordNodeCreate(kNetworkClass)), "making a record");
    AddNumber(record, kEntryNumber, number);
    AddNumber(record, kEntryKind, static_cast<uint16_t>(entry.isRoute ? 2 : 1));
    TAV_ExtCfgRecordAddFieldValue(record.get(), kEntryAddress, sizeof(entry.address), entry.address.data());
    AddNumber(record, kEntryInterface, entry.interfaceIndex);
    AddNumber(record, kEntryPrefix, entry.prefixLength);
    AddNumber(record, kEntryMetric, entry.metric);
    return record;
}

/** Hands a record to the store, which owns it from then on; a refused one stays ours and is freed. */
uint32_t Add(const Store &store, Record record) {
    const uint32_t result = TAV_ExtCfgAddRecord(kVs, record.get(), store.get());
    if (result == TAV_OK) {
        record.release();
    }
    return result;
}

/** Opens a store anew and fills it from this machine. */
Store FillStore(const std::string &path) {
    Store store = Need(Store(TAV_ExtCfgOpen(TAV_EXT_MODE_WRITE_ONLY, path.c_str(), nullptr)), "opening");
    unsigned services = 0;
    unsigned refused = 0;
    for (const Service &service : ReadServices()) {
        Add(store, ServiceRecord(service)) == TAV_OK ? ++services : ++refused;
    }
    uint32_t entries = 0;
    for (const NetworkEntry &entry : ReadNetwork()) {
        Add(store, NetworkRecord(entries + 1, entry)) == TAV_OK ? ++entries : ++refused;
    }
    std::printf("   %u services (class 7), %u addresses and routes (class 13), %u refused\n", services, entries,
                refused);
    return store;
}

uint16_t PortOf(const TAV_ExtCfgRecordNode *record) {
    uint16_t port = 0;
    TAV_ExtCfgRecordGetFieldValue(record, kServicePort, sizeof(port), &port, nullptr);
    return port;
}

/** Walks all records of class 13 in the order of their keys. */
void QueryNetwork(const Store &store) {
    const Record condition = Need(Record(TAV_ExtCfgRecordNodeCreate(kNetworkClass)), "making a record");
    Show("TAV_ExtCfgStartQuery(vs 0, class 13)", TAV_ExtCfgStartQuery(kVs, condition.get(), store.get()));
    while (const TAV_ExtCfgRecordNode *record = TAV_ExtCfgGetNextRecord(store.get())) {
        uint32_t number = 0;
        uint16_t kind = 0;
        uint16_t prefix = 0;
        AddressValue address = {};
        TAV_ExtCfgRecordGetFieldValue(record, kEntryNumber, sizeof(number), &number, nullptr);
        TAV_ExtCfgRecordGetFieldValue(record, kEntryKind, sizeof(kind), &kind, nullptr);
        TAV_ExtCfgRecordGetFieldValue(record, kEntryPrefix, sizeof(prefix), &prefix, nullptr);
        TAV_ExtCfgRecordGetFieldValue(record, kEntryAddress, sizeof(address), address.data(), nullptr);
        std::printf("   %3u  %-7s  %s/%u\n", number, kind == 2 ? "route" : "address", AddressText(address).c_str(),
                    prefix);
    }
    Show("TAV_ExtCfgEndQuery()", TAV_ExtCfgEndQuery(store.get()));
}

/** Reads one record by its key, overwrites a field of it, and flushes twice: the second flush has nothing to write. */
void GetSetFlush(const Store &store) {
    const Record key = ServiceKey("ssh/tcp");
    const TAV_ExtCfgRecordNode *stored = Need(TAV_ExtCfgGetRecord(kVs, key.get(), store.get()), "finding ssh/tcp");
    std::printf("   ssh/tcp has port %u\n", PortOf(stored));
    AddNumber(key, kServicePort, uint16_t{2022});
    Show("TAV_ExtCfgSetRecord(vs 0, ssh/tcp with port 2022)", TAV_ExtCfgSetRecord(kVs, key.get(), store.get()));
    Show("TAV_ExtCfgFlush()", TAV_ExtCfgFlush(store.get()));
    Show("TAV_ExtCfgFlush() again: nothing to write", TAV_ExtCfgFlush(store.get()), TAV_ERR_UNCHANGED);
}

/** Overwrites a field inside the file. The record that is handed in loses its key field. */
void PatchInPlace(const std::string &path) {
    const Record record = ServiceKey("ssh/tcp");
    AddNumber(record, kServicePort, uint16_t{22});
    Show("TAV_ExtCfgSetRecordToFile(vs 0, ssh/tcp with port 22)",
         TAV_ExtCfgSetRecordToFile(kVs, record.get(), path.c_str(), nullptr));
    const Store store = Need(Store(TAV_ExtCfgOpen(TAV_EXT_MODE_READ_ONLY, path.c_str(), nullptr)), "opening");
    const Record key = ServiceKey("ssh/tcp");
    std::printf("   the file still loads, and ssh/tcp has port %u\n",
                PortOf(Need(TAV_ExtCfgGetRecord(kVs, key.get(), store.get()), "finding ssh/tcp")));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: store_tour FOLDER\n");
        return 2;
    }
    const std::string plain = std::string(argv[1]) + "/machine.dat";
    const std::string archive = std::string(argv[1]) + "/machine.zip";
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType); /* once, before the first store */

    Heading("A store is filled in memory");
    Store filled = FillStore(plain);

    Heading("It becomes a plain file, and an archive");
    Show("TAV_ExtCfgFlush() to machine.dat", TAV_ExtCfgFlush(filled.get()));
    Show("TAV_WriteExtCfgFile(machine.zip)", TAV_WriteExtCfgFile(archive.c_str(), filled.get()));
    filled.reset();

    Heading("The archive is opened read-only and queried");
    {
        const Store store = Need(Store(TAV_ExtCfgOpen(TAV_EXT_MODE_READ_ONLY, archive.c_str(), nullptr)), "opening");
        QueryNetwork(store);
    }

    Heading("The plain file is opened, one record is read and changed, and the store is flushed");
    {
        const Store store = Need(Store(TAV_ExtCfgOpen(TAV_EXT_MODE_READ_WRITE, plain.c_str(), nullptr)), "opening");
        GetSetFlush(store);
    }

    Heading("The same record is changed inside the file, without loading it");
    PatchInPlace(plain);

    TAV_Posix_MemAccount account = {};
    TAV_Posix_MemTotal(&account);
    std::printf("\n   Memory still taken from the platform: %llu blocks\n",
                static_cast<unsigned long long>(account.blocks));
    return account.blocks == 0 ? 0 : 1;
}
