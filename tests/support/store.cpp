#include "store.h"

#include <gtest/gtest.h>

#include "tav_posix.h"
#include "tav_rbtree.h"

Record MakeRecord(uint32_t cid, const std::vector<Field> &fields) {
    static const uint8_t none = 0;
    Record record(TAV_ExtCfgRecordNodeCreate(cid));
    for (const Field &field : fields) {
        TAV_ExtCfgRecordAddFieldValue(record.get(), field.fid, static_cast<uint32_t>(field.value.size()),
                                      field.value.empty() ? &none : field.value.data());
    }
    return record;
}

Record Class13(uint32_t key, std::optional<uint16_t> value) {
    std::vector<Field> fields = {{14, Host32(key)}};
    if (value) {
        fields.push_back({15, Host16(*value)});
    }
    return MakeRecord(13, fields);
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
    if (TAV_ExtCfgRecordGetFieldValue(record, fid, static_cast<uint32_t>(value.size()), value.data(), &length) != 0) {
        return std::nullopt;
    }
    value.resize(length);
    return value;
}

Bytes Encode(const TAV_ExtCfgRecordNode *record) {
    Bytes buffer(1 << 20);
    uint8_t *cursor = buffer.data();
    EXPECT_EQ(TAV_BuildExtCfgRecordData(record, &cursor, buffer.data() + buffer.size()), TAV_OK);
    return Slice(buffer, 0, static_cast<size_t>(cursor - buffer.data()));
}

const SLL_List *FieldsOf(const TAV_ExtCfgRecordNode *record) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(record);
    return reinterpret_cast<const SLL_List *>(bytes + sizeof(TAV_RBT_Node));
}

std::unique_ptr<uint8_t[]> ExactBlock(const Bytes &bytes) {
    auto block = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), block.get());
    return block;
}

NothingLeaks::NothingLeaks() {
    TAV_Posix_MemAccount total;
    TAV_Posix_MemTotal(&total);
    blocks_ = total.blocks;
    bytes_ = total.bytes;
}

NothingLeaks::~NothingLeaks() {
    TAV_Posix_MemAccount total;
    TAV_Posix_MemTotal(&total);
    EXPECT_EQ(total.blocks, blocks_) << "blocks left over or returned twice";
    EXPECT_EQ(total.bytes, bytes_);
}
