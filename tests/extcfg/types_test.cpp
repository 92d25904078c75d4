/*
 * The type table and the class key table; what start-up makes of them; byte order converters.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <set>

#include "debug_log.h"
#include "store.h"

namespace {

constexpr TAV_ExtTlvEndianFunc kShort = TAV_USHORT_Endian, kWord = TAV_UINT32_Endian;
const bool kLittleEndian = Host16(1)[0] == 1;

/** The TLV types of each data type, with their length after start-up on the hosted platform and their converter. */
struct TypeGroup {
    uint16_t dataType, length;
    TAV_ExtTlvEndianFunc endian;
    std::vector<uint32_t> types;
};
const TypeGroup kTypeGroups[] = {
    {0, 0, nullptr, {1, 2, 7, 13, 26}},
    {4, 2, kShort, {9, 21, 24, 28}},
    {6, 4, kWord, {3, 6, 14, 19, 27}},
    {13, 4, kWord, {25}},
    {17, 2, kShort, {10, 15, 16, 17, 22, 23}},
    {25, 254, nullptr, {8}},
    {25, 433, nullptr, {12}},
    {26, 32, nullptr, {5, 20}},
    {38, 21, TAV_SYS_IPV4IPV6_Endian, {18}},
    {45, 1, nullptr, {11}},
    {61, 12, TAV_SYS_SYSTIME_Endian, {4}},
};

/** Starts with the table as it is shipped; puts the completed one back at the end. */
struct StartUp : FolderTest {
    StartUp() { std::copy(ShippedTypeTable().begin(), ShippedTypeTable().end(), g_astExtTlvDataTypeTbl); }
    ~StartUp() override {
        std::copy(ShippedTypeTable().begin(), ShippedTypeTable().end(), g_astExtTlvDataTypeTbl);
        TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    }
};

TEST(Types, TableBeforeAndAfterStartUp) {
    size_t count = 0;
    for (const TypeGroup &group : kTypeGroups) {
        for (uint32_t type : group.types) {
            SCOPED_TRACE(type);
            ++count;
            const TAV_ExtTlvDataTypeRow *row = TAV_GetExtTlvDataTable(type);
            ASSERT_NE(row, nullptr);
            const TAV_ExtTlvDataTypeRow &shipped =
                ShippedTypeTable()[static_cast<size_t>(row - g_astExtTlvDataTypeTbl)];
            EXPECT_EQ(shipped.type, type);
            EXPECT_EQ(shipped.length, group.dataType == 25 || group.dataType == 26 ? group.length : 0);
            EXPECT_EQ(shipped.endian, nullptr);
            EXPECT_EQ(TAV_GetExtTlvDataType(type), group.dataType);
            EXPECT_EQ(TAV_GetExtTlvDataLen(type), group.length == 0 ? 0xFFFF : group.length);
            EXPECT_EQ(TAV_GetExtTlvEndianFunc(type), kLittleEndian ? group.endian : nullptr);
            const PLATFORM_DataType *platform = TAV_Posix_FindDataType(group.dataType);
            EXPECT_EQ(TAV_GetExtTlvCompareFunc(type), group.dataType == 0 ? nullptr : platform->compare);
        }
    }
    EXPECT_EQ(count, 28u);
    EXPECT_EQ(g_astExtTlvDataTypeTbl[count].type, 0u);
    EXPECT_EQ(g_astExtTlvDataTypeTbl[count].dataType, 0x8000);
}

const PLATFORM_DataType *OtherPlatform(uint16_t dataType) {
    static const PLATFORM_DataType types[] = {
        {0, 4, 5, nullptr}, {6, 8, 7, nullptr}, {25, 100, 25, nullptr}, {26, 0xFFFF, 5, nullptr}};
    const auto *const type = std::ranges::find(types, dataType, &PLATFORM_DataType::id);
    return type != std::end(types) ? type : nullptr;
}

TEST_F(StartUp, TakesWhatThePlatformSays) {
    TAV_InitExtTlvDataTypeTable(nullptr);
    EXPECT_EQ(memcmp(g_astExtTlvDataTypeTbl, ShippedTypeTable().data(), sizeof(g_astExtTlvDataTypeTbl)), 0);
    EXPECT_EQ(TAV_GetExtTlvDataLen(14), 0xFFFF) << "no limit before start-up";
    for (int again = 0; again < 2; ++again) {
        TAV_InitExtTlvDataTypeTable(OtherPlatform);
        EXPECT_EQ(TAV_GetExtTlvDataLen(14), 8);
        EXPECT_EQ(TAV_GetExtTlvDataTable(14)->endian, TAV_UINT64_Endian);
        EXPECT_EQ(TAV_GetExtTlvDataTable(7)->endian, nullptr) << "a container is nothing of the platform's";
        EXPECT_EQ(TAV_GetExtTlvDataLen(8), 100) << "a fixed size replaces the shipped maximum";
        EXPECT_EQ(TAV_GetExtTlvDataLen(5), 32) << "a variable size keeps it";
        EXPECT_EQ(TAV_GetExtTlvDataTable(5)->endian, TAV_UINT32_Endian);
        EXPECT_EQ(TAV_GetExtTlvDataLen(9), 0xFFFF) << "a type that the platform does not know";
    }
}

TEST_F(StartUp, BeforeItNothingIsWrittenAndKeysAreAllEqual) {
    Store store = Open(2, path);
    EXPECT_EQ(Add(store, 0, Class13(1)), TAV_OK);
    const DebugLog log;
    EXPECT_EQ(Add(store, 0, Class13(2)), TAV_ERR_INVALID);
    log.ExpectAmong({{"TAV_ExtCfgFieldCompare", "Null pointer, return 0x0"}});
    EXPECT_EQ(TAV_CalcExtCfgFileHeadSize(store.get()), 0u);
    log.ExpectAmong({{"TAV_CalcExtCfgFileHeadSize", "Invalid TLV type 3, must specify len"}});
    EXPECT_EQ(TAV_ExtCfgFlush(store.get()), TAV_ERR_COPY);
    log.ExpectAmong({{"TAV_FillExtCfgFileHead", "Invalid TLV type 3, must specify len"}});
    EXPECT_FALSE(FileExists(path));
}

TEST(Types, UnknownTypesAreReported) {
    DebugLog log;
    const auto expect = [&](const char *name, const auto &answer, const auto &expected, const std::string &shown) {
        EXPECT_EQ(answer, expected) << name;
        log.Expect({{"TAV_GetExtTlvDataTable", "Invalid TLV type -1"}, {name, "Null pointer, return 0x" + shown}});
    };
    expect("TAV_GetExtTlvDataType", TAV_GetExtTlvDataType(0xFFFFFFFF), 0x8000, "8000");
    expect("TAV_GetExtTlvDataLen", TAV_GetExtTlvDataLen(0xFFFFFFFF), 0xFFFF, "ffff");
    expect("TAV_GetExtTlvEndianFunc", TAV_GetExtTlvEndianFunc(0xFFFFFFFF), nullptr, "0");
    expect("TAV_GetExtTlvCompareFunc", TAV_GetExtTlvCompareFunc(0xFFFFFFFF), nullptr, "0");
    EXPECT_EQ(TAV_GetExtTlvDataLen(1), 0xFFFF);
    log.Expect({{"TAV_GetExtTlvDataLen", "Invalid len of TLV type 1"}});
}

TEST(Types, ClassKeysAndFunctionTables) {
    DebugLog log;
    uint32_t fids[4] = {99};
    EXPECT_EQ(TAV_GetExtClassKeyFid(7, fids, 0), 0u);
    EXPECT_EQ(fids[0], 99u);
    log.Expect({{"TAV_GetExtClassKeyFid", "Too many key fields of cid 7, max num is 0"}});
    for (uint32_t cid = 0; cid < 64; ++cid) {
        const uint32_t key = cid == 2 ? 6 : cid == 7 ? 8 : cid == 13 || cid == 26 ? 14 : 0;
        fids[0] = 0;
        EXPECT_EQ(TAV_GetExtClassKeyFid(cid, fids, 4), key != 0 ? 1u : 0u) << cid;
        EXPECT_EQ(fids[0], key) << cid;
    }
    const TAV_ExtTlvProcFunc visit = [](uint32_t, uint8_t *, uint32_t, void *) { return 0u; };
    const TAV_ExtTlvProcRow table[] = {{5, visit}, {0, visit}, {7, nullptr}, {0xFFFFFFFF, visit}};
    EXPECT_EQ(TAV_GetExtTlvProcFunc(0, table), visit) << "a zero type is a type like any other";
    EXPECT_EQ(TAV_GetExtTlvProcFunc(0xFFFFFFFF, table), nullptr) << "behind the first empty function";
    EXPECT_EQ(TAV_GetExtTlvProcFunc(5, nullptr), nullptr);
    log.Expect({{"TAV_GetExtTlvProcFunc", "Invalid TLV type -1"}, {"TAV_GetExtTlvProcFunc", "Invalid TLV type 5"}});
}

TEST(Types, ConverterOfEveryStorageKind) {
    const std::set<unsigned> words = {5, 6, 9, 11, 13, 14, 19, 21, 23, 29, 30, 31, 32};
    const std::set<unsigned> shorts = {3, 4, 15, 17}, longs = {7, 8, 10, 12};
    for (uint16_t id : std::initializer_list<uint16_t>{0, 6, 38, 61, 0xFFFF}) {
        const TAV_ExtTlvEndianFunc byId = id == 38   ? TAV_SYS_IPV4IPV6_Endian
                                          : id == 61 ? TAV_SYS_SYSTIME_Endian
                                                     : nullptr;
        for (unsigned kind = 0; kind <= 0xFFFF; ++kind) {
            const PLATFORM_DataType type = {id, 4, static_cast<uint16_t>(kind), nullptr};
            const auto byKind = shorts.contains(kind) ? kShort : longs.contains(kind) ? TAV_UINT64_Endian : byId;
            ASSERT_EQ(TAV_GetEndianFunc(&type), words.contains(kind) ? kWord : byKind) << kind << " id " << id;
        }
    }
    const DebugLog log;
    EXPECT_EQ(TAV_GetEndianFunc(nullptr), nullptr);
    EXPECT_EQ(log.Take(), std::vector<LogEntry>({{"TAV_GetEndianFunc", "Null pointer, return 0x0"}}));
}

TEST(Types, ConvertersSwapTheirWordsAlone) {
    struct Case {
        const char *name;
        TAV_ExtTlvEndianFunc convert;
        uint16_t width;
        Bytes swapped;  // what becomes of 0, 1, 2, ... on a little-endian host
    };
    const Case cases[] = {
        {"TAV_USHORT_Endian", TAV_USHORT_Endian, 2, Hex("0100")},
        {"TAV_UINT32_Endian", TAV_UINT32_Endian, 4, Hex("03020100")},
        {"TAV_UINT64_Endian", TAV_UINT64_Endian, 8, Hex("0706050403020100")},
        {"TAV_SYS_IPV4IPV6_Endian", TAV_SYS_IPV4IPV6_Endian, 21, Hex("0004030201")},
        {"TAV_SYS_SYSTIME_Endian", TAV_SYS_SYSTIME_Endian, 12, Hex("01000203040506070b0a0908")},
    };
    DebugLog log;
    for (const Case &test : cases) {
        for (uint16_t length = 0; length < 40; ++length) {
            Bytes expected(length);
            std::iota(expected.begin(), expected.end(), uint8_t{0});
            // One byte into the block, so that the value is not aligned; the block ends where the value does.
            auto block = ExactBlock(Join({{0}, expected}));
            const bool isLong = length >= test.width;
            if (kLittleEndian && isLong) {
                std::copy(test.swapped.begin(), test.swapped.end(), expected.begin());
            }
            EXPECT_EQ(test.convert(0, 0, length, block.get() + 1), isLong ? TAV_OK : TAV_ERR_INVALID);
            EXPECT_EQ(Bytes(block.get() + 1, block.get() + 1 + length), expected) << test.name << length;
            if (!isLong) {
                log.Expect({{test.name, "Len " + std::to_string(length)}});
            }
        }
        EXPECT_EQ(test.convert(0, 0, 40, nullptr), TAV_ERR_NULL);
        log.Expect({{test.name, "Null pointer, return 0x801619"}});
    }
}

}  // namespace
