/*
 * The records that are measured: two data sets, the same for every peer.
 */
#ifndef TAV_BENCH_RECORDS_H
#define TAV_BENCH_RECORDS_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "random.h"

namespace tav::bench {

/** An address as the platform lays it out: family, IPv4 word in host order, 16 bytes of IPv6. */
using Address = std::array<uint8_t, 21>;

/** Data set A: many small fields of fixed size, members named after the store's field ids. */
struct Record13 {
    static constexpr char kSet[] = "A";
    static constexpr uint32_t kClass = 13, kKeyField = 14;
    static constexpr size_t kCount = 200000;

    uint32_t key, f19;
    uint16_t f15, f16, f17, f21, f24;
    Address f18;

    /** The field that a change is made in, and its id. */
    static constexpr uint32_t kChangedField = 24;
    static constexpr uint16_t Record13::*kChanged = &Record13::f24;

    bool operator==(const Record13 &) const = default;

    /** Calls visit(field id, value) for each field, the key first. */
    template <typename Self, typename Visitor>
    static void Visit(Self &self, Visitor &&visit) {
        visit(14u, self.key);
        visit(15u, self.f15);
        visit(16u, self.f16);
        visit(17u, self.f17);
        visit(18u, self.f18);
        visit(19u, self.f19);
        visit(21u, self.f21);
        visit(24u, self.f24);
    }

    /** Makes all records, ascending by key. Half of the addresses are IPv4, half IPv6. */
    static std::vector<Record13> Make() {
        Random random;
        std::vector<Record13> records(kCount);
        uint32_t key = 0;
        for (Record13 &record : records) {
            record.key = key += random.Between(1, 1000);
            for (const auto field : {&Record13::f15, &Record13::f16, &Record13::f17, &Record13::f21, &Record13::f24}) {
                record.*field = random.Any<uint16_t>();
            }
            record.f19 = random.Any<uint32_t>();
            record.f18[0] = random.Between(0, 1) == 0 ? 4 : 6;
            const auto first = record.f18.begin() + (record.f18[0] == 4 ? 1 : 5);
            std::generate(first, record.f18[0] == 4 ? first + 4 : record.f18.end(),
                          [&] { return random.Any<uint8_t>(); });
        }
        return records;
    }
};

/** Data set B: texts. */
struct Record7 {
    static constexpr char kSet[] = "B";
    static constexpr uint32_t kClass = 7, kKeyField = 8;
    static constexpr size_t kCount = 50000;

    std::string key, f12;
    uint16_t f9;

    /** The field that a change is made in, and its id. */
    static constexpr uint32_t kChangedField = 9;
    static constexpr uint16_t Record7::*kChanged = &Record7::f9;

    bool operator==(const Record7 &) const = default;

    /** Calls visit(field id, value) for each field, the key first. */
    template <typename Self, typename Visitor>
    static void Visit(Self &self, Visitor &&visit) {
        visit(8u, self.key);
        visit(9u, self.f9);
        visit(12u, self.f12);
    }

    /** Makes all records, ascending bytewise by key. */
    static std::vector<Record7> Make(size_t count = kCount) {
        Random random;
        std::set<std::string> keys;
        while (keys.size() < count) {
            keys.insert(random.Text(4, 14) + (random.Between(0, 1) == 0 ? "/tcp" : "/udp"));
        }
        std::vector<Record7> records;
        for (const std::string &key : keys) {
            records.push_back({.key = key, .f12 = random.Text(1, 60), .f9 = random.Any<uint16_t>()});
        }
        return records;
    }
};

/** The bytes of a field's value in host order. */
template <typename Value>
std::string_view BytesOf(const Value &value) {
    return {reinterpret_cast<const char *>(&value), sizeof(value)};
}
inline std::string_view BytesOf(const std::string &value) {
    return value;
}

}  // namespace tav::bench

#endif
