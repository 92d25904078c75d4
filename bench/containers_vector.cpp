/*
 * Measures the vector: setting items one after the other, and filling holes anywhere among them.
 */
#include <algorithm>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "containers_bench.h"
#include "platform/mel_memory.h"
#include "random.h"
#include "tav_vector.h"

namespace tav::bench {
namespace {

constexpr uint32_t kItems = 10000;
constexpr uint32_t kHoles = 100;
constexpr uint32_t kChurns = 200;

/** The library's vector. */
class Vector {
  public:
    static constexpr char kName[] = "vector";

    uint32_t Set(uintptr_t item) { return static_cast<uint32_t>(VEC_VectorSet(vector_.get(), item)); }
    uintptr_t Unset(uint32_t index) { return VEC_VectorGetUnset(vector_.get(), index); }

  private:
    struct Freer {
        void operator()(VEC_Vector *vector) const { VEC_VectorFree_F(vector); }
    };

    std::unique_ptr<VEC_Vector, Freer> vector_{VEC_VectorInit_F(g_pTavCommHandle, 1, "bench", __LINE__)};
};

/** A vector that keeps a list of its holes; it fills the latest first, where the library's fills the lowest. */
class FreeListVector {
  public:
    static constexpr char kName[] = "free list";

    uint32_t Set(uintptr_t item) {
        if (holes_.empty()) {
            slots_.push_back(item);
            return static_cast<uint32_t>(slots_.size() - 1);
        }
        const uint32_t index = holes_.back();
        holes_.pop_back();
        slots_[index] = item;
        return index;
    }
    uintptr_t Unset(uint32_t index) {
        holes_.push_back(index);
        return std::exchange(slots_[index], 0);
    }

  private:
    std::vector<uintptr_t> slots_;
    std::vector<uint32_t> holes_;
};

/** Measures setting items one after the other. */
template <typename Table>
void RegisterFill() {
    Register(std::string("vector fill/") + Table::kName, benchmark::kNanosecond, [](benchmark::State &state) {
        Table table;
        uint64_t sum = 0;
        const auto run = [&] {
            for (uint32_t i = 0; i < kItems; ++i) {
                sum += table.Set(i + 1);
            }
        };
        for ([[maybe_unused]] auto _ : state) {
            state.SetIterationTime(Seconds(run) / kItems);
        }
        Require(sum == uint64_t{kItems} * (kItems - 1) / 2, "wrong indexes");
    });
}

/** Measures unsetting some items, anywhere, and setting as many. */
template <typename Table>
void RegisterChurn() {
    Register(std::string("vector churn/") + Table::kName, benchmark::kNanosecond, [](benchmark::State &state) {
        Table table;
        for (uint32_t i = 0; i < kItems; ++i) {
            table.Set(i + 1);
        }
        std::vector<uint32_t> places(kItems);
        std::iota(places.begin(), places.end(), 0);
        Random random;
        std::shuffle(places.begin(), places.end(), random.engine);
        int64_t sum = 0;
        const auto run = [&] {
            for (uint32_t at = 0; at < kChurns * kHoles; at += kHoles) {
                for (uint32_t i = 0; i < kHoles; ++i) {
                    const uint32_t place = places[(at + i) % kItems];
                    sum -= table.Unset(place) != 0 ? place : 0;
                }
                for (uint32_t i = 0; i < kHoles; ++i) {
                    sum += table.Set(i + 1);
                }
            }
        };
        for ([[maybe_unused]] auto _ : state) {
            state.SetIterationTime(Seconds(run) / (kChurns * kHoles));
        }
        Require(sum == 0, "wrong indexes");
    });
}

}  // namespace

void RegisterVectors() {
    RegisterFill<Vector>();
    RegisterChurn<Vector>();
    RegisterFill<FreeListVector>();
    RegisterChurn<FreeListVector>();
}

void PrintVectors(CollectingReporter &times) {
    PrintMedians(times, "vector fill", "ns", Vector::kName, FreeListVector::kName, 0);
    PrintMedians(times, "vector churn", "ns", Vector::kName, FreeListVector::kName, 0);
}

}  // namespace tav::bench
