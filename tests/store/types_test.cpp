/*
 * The type table and the class key table, row by row; what start-up makes of them; byte order converters.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "debug_log.h"
#include "store.h"
#include "tav_posix.h"

namespace {

struct TypeRow {
    uint32_t type;
    uint16_t dataType;
    uint16_t shippedLength;
    uint16_t length;  // after start-up on the hosted platform
    TAV_ExtTlvEndianFunc endian;
};

const TypeRow kTypes[] = {
    {1, 0, 0, 0, nullptr},
    {2, 0, 0, 0, nullptr},
    {3, 6, 0, 4, TAV_UINT32_Endian},
    {4, 61, 0, 12, TAV_SYS_SYSTIME_Endian},
    {5, 26, 32, 32, nullptr},
    {20, 26, 32, 32, nullptr},
    {6, 6, 0, 4, TAV_UINT32_Endian},
    {7, 0, 0, 0, nullptr},
    {8, 25, 254, 254, nullptr},
    {9, 4, 0, 2, TAV_USHORT_Endian},
    {10, 17, 0, 2, TAV_USHORT_Endian},
    {11, 45, 0, 1, nullptr},
    {12, 25, 433, 433, nullptr},
    {13, 0, 0, 0, nullptr},
    {14, 6, 0, 4, TAV_UINT32_Endian},
    {15, 17, 0, 2, TAV_USHORT_Endian},
    {16, 17, 0, 2, TAV_USHORT_Endian},
    {17, 17, 0, 2, TAV_USHORT_Endian},
    {18, 38, 0, 21, TAV_SYS_IPV4IPV6_Endian},
    {19, 6, 0, 4, TAV_UINT32_Endian},
    {21, 4, 0, 2, TAV_USHORT_Endian},
    {22, 17, 0, 2, TAV_USHORT_Endian},
    {23, 17, 0, 2, TAV_USHORT_Endian},
    {24, 4, 0, 2, TAV_USHORT_Endian},
    {25, 13, 0, 4, TAV_UINT32_Endian},
    {26, 0, 0, 0, nullptr},
    {27, 6, 0, 4, TAV_UINT32_Endian},
    {28, 4, 0, 2, TAV_USHORT_Endian},
};

void RestoreShippedTable() {
    std::copy(ShippedTypeTable().begin(), ShippedTypeTable().end(), std::begin(g_astExtTlvDataTypeTbl));
}

/** Puts the completed table back when a test has played with it. */
struct CompletedTableAgain {
    ~CompletedTableAgain() {
        RestoreShippedTable();
        TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    }
};

TEST(Types, TableBeforeAndAfterStartUp) {
    ASSERT_EQ(std::size(g_astExtTlvDataTypeTbl), std::size(kTypes) + 1);
    for (size_t at = 0; at < std::size(kTypes); ++at) {
        const TypeRow &expected = kTypes[at];
        SCOPED_TRACE(expected.type);
        const TAV_ExtTlvDataTypeRow &shipped = ShippedTypeTable()[at];
        EXPECT_EQ(shipped.type, expected.type);
        EXPECT_EQ(shipped.dataType, expected.dataType);
        EXPECT_EQ(shipped.length, expected.shippedLength);
        EXPECT_EQ(shipped.endian, nullptr);
        EXPECT_EQ(shipped.compare, nullptr);

        const TAV_ExtTlvDataTypeRow &row = g_astExtTlvDataTypeTbl[at];
        EXPECT_EQ(TAV_GetExtTlvDataTable(expected.type), &row);
        EXPECT_EQ(TAV_GetExtTlvDataType(expected.type), expected.dataType);
        EXPECT_EQ(TAV_GetExtTlvDataLen(expected.type), expected.length == 0 ? 0xFFFF : expected.length);
        EXPECT_EQ(row.endian, expected.endian);
        const PLATFORM_DataType *platform = TAV_Posix_FindDataType(expected.dataType);
        EXPECT_EQ(TAV_GetExtTlvCompareFunc(expected.type), expected.dataType == 0 ? nullptr : platform->compare);
        if (expected.dataType != 0) {
            EXPECT_NE(platform->compare, nullptr);
        }
        const bool littleEndian = Host16(1)[0] == 1;
        EXPECT_EQ(TAV_GetExtTlvEndianFunc(expected.type), littleEndian ? expected.endian : nullptr);
    }
    for (const TAV_ExtTlvDataTypeRow &end : {ShippedTypeTable().back(), g_astExtTlvDataTypeTbl[28]}) {
        EXPECT_EQ(end.type, 0u);
        EXPECT_EQ(end.dataType, 0x8000);
        EXPECT_EQ(end.length, 0);
        EXPECT_EQ(end.endian, nullptr);
        EXPECT_EQ(end.compare, nullptr);
    }
}

const PLATFORM_DataType *OtherPlatform(uint16_t dataType) {
    static const PLATFORM_DataType word = {6, 8, 7, nullptr};
    static const PLATFORM_DataType text = {25, 100, 25, nullptr};
    static const PLATFORM_DataType bytes = {26, 0xFFFF, 5, nullptr};
    switch (dataType) {
        case 6:
            return &word;
        case 25:
            return &text;
        case 26:
            return &bytes;
        default:
            return nullptr;
    }
}

TEST(Types, StartUpTakesWhatThePlatformSays) {
    CompletedTableAgain again;
    RestoreShippedTable();
    TAV_InitExtTlvDataTypeTable(nullptr);
    EXPECT_EQ(std::memcmp(g_astExtTlvDataTypeTbl, ShippedTypeTable().data(), sizeof g_astExtTlvDataTypeTbl), 0);
    EXPECT_EQ(TAV_GetExtTlvDataLen(14), 0xFFFF) << "no limit before start-up";

    TAV_InitExtTlvDataTypeTable(OtherPlatform);
    EXPECT_EQ(TAV_GetExtTlvDataLen(14), 8);
    EXPECT_EQ(TAV_GetExtTlvDataTable(14)->endian, TAV_UINT64_Endian);
    EXPECT_EQ(TAV_GetExtTlvDataLen(8), 100) << "a fixed size replaces the shipped maximum";
    EXPECT_EQ(TAV_GetExtTlvDataLen(5), 32) << "a variable size keeps it";
    EXPECT_EQ(TAV_GetExtTlvDataTable(5)->endian, TAV_UINT32_Endian);
    EXPECT_EQ(TAV_GetExtTlvDataLen(9), 0xFFFF) << "a type that the platform does not know";

    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    std::vector<TAV_ExtTlvDataTypeRow> once(std::begin(g_astExtTlvDataTypeTbl), std::end(g_astExtTlvDataTypeTbl));
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    EXPECT_EQ(std::memcmp(once.data(), g_astExtTlvDataTypeTbl, sizeof g_astExtTlvDataTypeTbl), 0);
}

TEST(Types, BeforeStartUpNothingIsWrittenAndKeysAreAllEqual) {
    CompletedTableAgain again;
    RestoreShippedTable();
    TempFolder folder;
    NothingLeaks leaks;
    Store store = Open(2, folder.Path("a.dat"));
    EXPECT_EQ(Add(store, 0, Class13(1)), TAV_OK);
    EXPECT_EQ(Add(store, 0, Class13(2)), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_CalcExtCfgFileHeadSize(store.get()), 0u);
    EXPECT_EQ(TAV_ExtCfgFlush(store.get()), TAV_ERR_COPY);
    EXPECT_FALSE(FileExists(folder.Path("a.dat")));
}

TEST(Types, UnknownTypesAreReported) {
    DebugLog log;
    for (uint32_t type : {0u, 29u, 0xFFFFFFFFu}) {
        std::string number = std::to_string(static_cast<int32_t>(type));
        LogEntry missing{"TAV_GetExtTlvDataTable", "Invalid TLV type " + number};
        EXPECT_EQ(TAV_GetExtTlvDataTable(type), nullptr);
        log.Expect({missing});
        EXPECT_EQ(TAV_GetExtTlvDataType(type), 0x8000);
        log.Expect({missing, {"TAV_GetExtTlvDataType", "Null pointer, return 0x8000"}});
        EXPECT_EQ(TAV_GetExtTlvDataLen(type), 0xFFFF);
        log.Expect({missing, {"TAV_GetExtTlvDataLen", "Null pointer, return 0xffff"}});
        EXPECT_EQ(TAV_GetExtTlvCompareFunc(type), nullptr);
        log.Expect({missing, {"TAV_GetExtTlvCompareFunc", "Null pointer, return 0x0"}});
        EXPECT_EQ(TAV_GetExtTlvEndianFunc(type), nullptr);
        log.Take();
    }
    EXPECT_EQ(TAV_GetExtTlvDataLen(1), 0xFFFF);
    log.Expect({{"TAV_GetExtTlvDataLen", "Invalid len of TLV type 1"}});
}

TEST(Types, ClassKeys) {
    const TAV_ExtClassKeyRow expected[] = {{2, 6}, {7, 8}, {13, 14}, {26, 14}, {0, 0}};
    ASSERT_EQ(std::size(g_astExtClassKeyTbl), std::size(expected));
    for (size_t at = 0; at < std::size(expected); ++at) {
        EXPECT_EQ(g_astExtClassKeyTbl[at].cid, expected[at].cid);
        EXPECT_EQ(g_astExtClassKeyTbl[at].fid, expected[at].fid);
    }
    for (uint32_t cid = 0; cid < 64; ++cid) {
        uint32_t fids[4] = {};
        uint32_t key = cid == 2 ? 6 : cid == 7 ? 8 : cid == 13 || cid == 26 ? 14 : 0;
        EXPECT_EQ(TAV_GetExtClassKeyFid(cid, fids, 4), key != 0 ? 1u : 0u) << cid;
        EXPECT_EQ(fids[0], key) << cid;
    }
    DebugLog log;
    uint32_t untouched = 99;
    EXPECT_EQ(TAV_GetExtClassKeyFid(7, &untouched, 0), 0u);
    EXPECT_EQ(untouched, 99u);
    log.Expect({{"TAV_GetExtClassKeyFid", "Too many key fields of cid 7, max num is 0"}});
}

uint32_t VisitorA(uint32_t, uint8_t *, uint32_t, void *) {
    return 0;
}
uint32_t VisitorB(uint32_t, uint8_t *, uint32_t, void *) {
    return 1;
}

TEST(Types, FunctionTablesEndAtTheFirstEmptyFunction) {
    const TAV_ExtTlvProcRow table[] = {{5, VisitorA}, {0, VisitorB}, {5, VisitorB}, {7, nullptr}, {9, VisitorA}};
    EXPECT_EQ(TAV_GetExtTlvProcFunc(5, table), VisitorA);
    EXPECT_EQ(TAV_GetExtTlvProcFunc(0, table), VisitorB) << "a zero type is a type like any other";
    DebugLog log;
    EXPECT_EQ(TAV_GetExtTlvProcFunc(7, table), nullptr);
    log.Expect({{"TAV_GetExtTlvProcFunc", "Invalid TLV type 7"}});
    EXPECT_EQ(TAV_GetExtTlvProcFunc(9, table), nullptr) << "behind the end";
}

TEST(Types, ConverterOfEveryStorageKind) {
    const std::set<unsigned> words = {5, 6, 9, 11, 13, 14, 19, 21, 23, 29, 30, 31, 32};
    const std::set<unsigned> shorts = {3, 4, 15, 17};
    const std::set<unsigned> longs = {7, 8, 10, 12};
    for (unsigned id : {0u, 6u, 38u, 61u, 0xFFFFu}) {
        TAV_ExtTlvEndianFunc byId = id == 38 ? TAV_SYS_IPV4IPV6_Endian : id == 61 ? TAV_SYS_SYSTIME_Endian : nullptr;
        for (unsigned kind = 0; kind <= 0xFFFF; ++kind) {
            PLATFORM_DataType type = {static_cast<uint16_t>(id), 4, static_cast<uint16_t>(kind), nullptr};
            TAV_ExtTlvEndianFunc expected = words.count(kind) > 0    ? TAV_UINT32_Endian
                                            : shorts.count(kind) > 0 ? TAV_USHORT_Endian
                                            : longs.count(kind) > 0  ? TAV_UINT64_Endian
                                                                     : byId;
            ASSERT_EQ(TAV_GetEndianFunc(&type), expected) << "kind " << kind << " id " << id;
        }
    }
    DebugLog log;
    EXPECT_EQ(TAV_GetEndianFunc(nullptr), nullptr);
    log.Expect({{"TAV_GetEndianFunc", "Null pointer, return 0x0"}});
}

TEST(Types, ConvertersSwapTheirWordsAlone) {
    struct Case {
        const char *name;
        TAV_ExtTlvEndianFunc convert;
        uint16_t width;
        std::vector<std::pair<size_t, size_t>> words;  // offset and width of what is swapped
    };
    const Case cases[] = {
        {"TAV_USHORT_Endian", TAV_USHORT_Endian, 2, {{0, 2}}},
        {"TAV_UINT32_Endian", TAV_UINT32_Endian, 4, {{0, 4}}},
        {"TAV_UINT64_Endian", TAV_UINT64_Endian, 8, {{0, 8}}},
        {"TAV_SYS_IPV4IPV6_Endian", TAV_SYS_IPV4IPV6_Endian, 21, {{1, 4}}},
        {"TAV_SYS_SYSTIME_Endian", TAV_SYS_SYSTIME_Endian, 12, {{0, 2}, {8, 4}}},
    };
    const bool littleEndian = Host16(1)[0] == 1;
    DebugLog log;
    for (const Case &test : cases) {
        SCOPED_TRACE(test.name);
        for (uint16_t length = 0; length < 40; ++length) {
            Bytes before(length);
            for (size_t at = 0; at < length; ++at) {
                before[at] = static_cast<uint8_t>(at + 1);
            }
            Bytes expected = before;
            for (auto [offset, width] : test.words) {
                if (littleEndian && length >= test.width) {
                    auto begin = expected.begin() + static_cast<std::ptrdiff_t>(offset);
                    std::reverse(begin, begin + static_cast<std::ptrdiff_t>(width));
                }
            }
            // One byte into the block, so that the value is not aligned; the block ends where the value does.
            auto block = ExactBlock(Join({{0}, before}));
            bool tooShort = length < test.width;
            EXPECT_EQ(test.convert(0, 0, length, block.get() + 1), tooShort ? TAV_ERR_INVALID : TAV_OK);
            EXPECT_EQ(Bytes(block.get() + 1, block.get() + 1 + length), expected);
            log.Expect(tooShort ? std::vector<LogEntry>{{test.name, "Len " + std::to_string(length)}}
                                : std::vector<LogEntry>{});
        }
        EXPECT_EQ(test.convert(0, 0, 40, nullptr), TAV_ERR_NULL);
        log.Expect({{test.name, "Null pointer, return 0x801619"}});
    }
}

}  // namespace
