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
#include "store_records.h"
#include "tav_extcfg.h"
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

/** Hands on what must be there. Throws std::runtime_error when it is not. */
template <typename Pointer>
Pointer Need(Pointer pointer, const char *what) {
    if (!pointer) {
        throw std::runtime_error(std::string(what) + " failed");
    }
    return pointer;
}

template <typename Number>
bool AddNumber(const Record &record, uint32_t fid, Number number) {
    return AddField(record, fid, {reinterpret_cast<const uint8_t *>(&number), sizeof(number)});
}

bool AddText(const Record &record, uint32_t fid, const std::string &text) {
    return AddField(record, fid, {reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

// Records are made of fields that the library may refuse: too long, or no memory. There is no record then.

/** Makes a record of class 7 that holds the key alone. */
Record ServiceKey(const std::string &name) {
    Record record(TAV_ExtCfgRecordNodeCreate(kServiceClass));
    return record && AddText(record, kServiceName, name) ? std::move(record) : nullptr;
}

Record ServiceRecord(const Service &service) {
    Record record = ServiceKey(service.name);
    const bool isWhole = record && AddNumber(record, kServicePort, service.port) &&
                         (service.notes.empty() || AddText(record, kServiceNotes, service.notes));
    return isWhole ? std::move(record) : nullptr;
}

Record NetworkRecord(uint32_t number, const NetworkEntry &entry) {
    Record record(TAV_ExtCfgRecordNodeCreate(kNetworkClass));
    const bool isWhole =
        record && AddNumber(record, kEntryNumber, number) &&
        AddNumber(record, kEntryKind, static_cast<uint16_t>(entry.isRoute ? 2 : 1)) &&
        AddField(record, kEntryAddress, entry.address) && AddNumber(record, kEntryInterface, entry.interfaceIndex) &&
        AddNumber(record, kEntryPrefix, entry.prefixLength) && AddNumber(record, kEntryMetric, entry.metric);
    return isWhole ? std::move(record) : nullptr;
}

/** Hands a record to the store, which owns it from then on; a refused one stays ours and is freed. */
uint32_t Add(const Store &store, Record record) {
    const uint32_t result = TAV_ExtCfgAddRecord(kVs, record.get(), store.get());
    if (result == TAV_OK) {
        static_cast<void>(record.release());
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
    printf("   %u services (class 7), %u addresses and routes (class 13), %u refused\n", services, entries, refused);
    return store;
}

/** Reads a field of a fixed size. Throws std::runtime_error when the record has none of that size. */
template <typename Value>
Value ValueOf(const TAV_ExtCfgRecordNode *record, uint32_t fid) {
    Value value = {};
    uint32_t length = 0;
    const uint32_t result = TAV_ExtCfgRecordGetFieldValue(record, fid, sizeof(value), &value, &length);
    Need(result == TAV_OK && length == sizeof(value), "reading a field");
    return value;
}

/** Finds a service by its name. */
const TAV_ExtCfgRecordNode *FindService(const Store &store, const std::string &name) {
    const Record key = Need(ServiceKey(name), "making a record");
    return Need(TAV_ExtCfgGetRecord(kVs, key.get(), store.get()), "finding the service");
}

/** Makes a change of one field of a service: the key says which record, what follows replaces its values. */
Record PortChange(const std::string &name, uint16_t port) {
    Record change = Need(ServiceKey(name), "making a record");
    Need(AddNumber(change, kServicePort, port), "adding a field");
    return change;
}

/** Walks all records of class 13 in the order of their keys. */
void QueryNetwork(const std::string &path) {
    const Store store = Need(Store(TAV_ExtCfgOpen(TAV_EXT_MODE_READ_ONLY, path.c_str(), nullptr)), "opening");
    const Record condition = Need(Record(TAV_ExtCfgRecordNodeCreate(kNetworkClass)), "making a record");
    Show("TAV_ExtCfgStartQuery(vs 0, class 13)", TAV_ExtCfgStartQuery(kVs, condition.get(), store.get()));
    while (const TAV_ExtCfgRecordNode *record = TAV_ExtCfgGetNextRecord(store.get())) {
        const auto isRoute = ValueOf<uint16_t>(record, kEntryKind) == 2;
        printf("   %3u  %-7s  %s/%u\n", ValueOf<uint32_t>(record, kEntryNumber), isRoute ? "route" : "address",
               AddressText(ValueOf<AddressValue>(record, kEntryAddress)).c_str(),
               ValueOf<uint16_t>(record, kEntryPrefix));
    }
    Show("TAV_ExtCfgEndQuery()", TAV_ExtCfgEndQuery(store.get()));
}

/** Reads one record by its key, overwrites a field of it, and flushes twice: the second flush has nothing to write. */
void GetSetFlush(const std::string &path) {
    const Store store = OpenForEditing(path);
    printf("   ssh/tcp has port %u\n", ValueOf<uint16_t>(FindService(store, "ssh/tcp"), kServicePort));
    const Record change = PortChange("ssh/tcp", 2022);
    Show("TAV_ExtCfgSetRecord(vs 0, ssh/tcp with port 2022)", TAV_ExtCfgSetRecord(kVs, change.get(), store.get()));
    Show("TAV_ExtCfgFlush()", TAV_ExtCfgFlush(store.get()));
    Show("TAV_ExtCfgFlush() again: nothing to write", TAV_ExtCfgFlush(store.get()), TAV_ERR_UNCHANGED);
}

/**
 * Overwrites a field inside the file. That is quick, but a crash in the middle leaves a file that does not load: for
 * files that can be made again. The record that is handed in loses its key field.
 */
void PatchInPlace(const std::string &path) {
    const Record change = PortChange("ssh/tcp", 22);
    Show("TAV_ExtCfgSetRecordToFile(vs 0, ssh/tcp with port 22)",
         TAV_ExtCfgSetRecordToFile(kVs, change.get(), path.c_str(), nullptr));
    const Store store = Need(Store(TAV_ExtCfgOpen(TAV_EXT_MODE_READ_ONLY, path.c_str(), nullptr)), "opening");
    printf("   the file still loads, and ssh/tcp has port %u\n",
           ValueOf<uint16_t>(FindService(store, "ssh/tcp"), kServicePort));
}

void Tour(const std::string &plain, const std::string &archive) {
    Heading("A store is filled in memory");
    Store filled = FillStore(plain);

    Heading("It becomes a plain file, and an archive");
    Show("TAV_ExtCfgFlush() to machine.dat", TAV_ExtCfgFlush(filled.get()));
    Show("TAV_WriteExtCfgFile(machine.zip)", TAV_WriteExtCfgFile(archive.c_str(), filled.get()));
    filled.reset();

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
