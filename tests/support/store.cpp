#include "store.h"

#include <sys/mman.h>
#include <unistd.h>

#include "interposer.h"

Record MakeRecord(uint32_t cid, const std::vector<Field> &fields) {
    Record record(TAV_ExtCfgRecordNodeCreate(cid));
    for (const Field &field : fields) {
        const Bytes &value = field.value;
        TAV_ExtCfgRecordAddFieldValue(record.get(), field.fid, static_cast<uint32_t>(value.size()),
                                      value.empty() ? reinterpret_cast<const uint8_t *>("") : value.data());
    }
    return record;
}

Record Class13(uint32_t key, std::optional<uint16_t> value) {
    return MakeRecord(13, value ? std::vector<Field>{{14, Host32(key)}, {15, Host16(*value)}}
                                : std::vector<Field>{{14, Host32(key)}});
}

Store Open(uint32_t mode, const std::string &path, const std::string &refer) {
    return Store(TAV_ExtCfgOpen(mode, path.c_str(), refer.empty() ? nullptr : refer.c_str()));
}

uint32_t Add(const Store &store, uint32_t vsId, Record record) {
    uint32_t code = TAV_ExtCfgAddRecord(vsId, record.get(), store.get());
    if (code == TAV_OK) {
        (void)record.release();
    }
    return code;
}

std::optional<Bytes> ValueOf(const TAV_ExtCfgRecordNode *record, uint32_t fid) {
    Bytes value(0x10000);
    uint32_t length = 0;
    uint32_t code = TAV_ExtCfgRecordGetFieldValue(record, fid, 0x10000, value.data(), &length);
    return code == TAV_OK ? std::optional(Slice(value, 0, length)) : std::nullopt;
}

std::optional<Bytes> BodyOf(const Store &store) {
    if (!store) {
        return std::nullopt;
    }
    Bytes body(TAV_CalcExtCfgFileBodySize(store.get()));
    EXPECT_EQ(TAV_BuildExtCfgFileBody(store.get(), body.data(), static_cast<uint32_t>(body.size())),
              body.empty() ? TAV_ERR_NULL : TAV_OK);
    return body;
}

Bytes Encode(const TAV_ExtCfgRecordNode *record) {
    Bytes buffer(1 << 20);
    uint8_t *cursor = buffer.data();
    EXPECT_EQ(TAV_BuildExtCfgRecordData(record, &cursor, buffer.data() + buffer.size()), TAV_OK);
    return Bytes(buffer.data(), cursor);
}

#ifdef __SANITIZE_ADDRESS__
static std::pair<uint8_t *, ReturnPages> TakePages(size_t size) {
    return {new uint8_t[size], {}};
}

void ReturnPages::operator()(uint8_t *block) const {
    delete[] block;
}
#else
static std::pair<uint8_t *, ReturnPages> TakePages(size_t size) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t open = (size + page - 1) / page * page;
    void *const pages = mmap(nullptr, open + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    auto *const closed = static_cast<uint8_t *>(pages) + open;
    EXPECT_EQ(mprotect(closed, page, PROT_NONE), 0);
    return {closed - size, {pages, open + page}};
}

void ReturnPages::operator()(uint8_t *) const {
    munmap(pages, size);
}
#endif

std::unique_ptr<uint8_t[], ReturnPages> ExactBlock(const Bytes &bytes) {
    const auto [block, returner] = TakePages(bytes.size());
    std::copy(bytes.begin(), bytes.end(), block);
    return {block, returner};
}

NothingLeaks::NothingLeaks() {
    TAV_Posix_MemTotal(&before_);
    TAV_Posix_BusAccount(&messagesBefore_);
}

NothingLeaks::~NothingLeaks() {
    TAV_Posix_MemAccount after;
    TAV_Posix_MemTotal(&after);
    EXPECT_EQ(after.blocks, before_.blocks) << "blocks left over or returned twice";
    EXPECT_EQ(after.bytes, before_.bytes);
    TAV_Posix_BusCounts messages;
    TAV_Posix_BusAccount(&messages);
    EXPECT_EQ(messages.alive, messagesBefore_.alive);
}

FolderTest::~FolderTest() {
    interposer::Reset();
}
