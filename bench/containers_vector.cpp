/*
 * Measures the vector: setting items one after the other, and filling holes anywhere among them.
 */
#include <algorithm>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "containers_bench.h"
#include "free_list.h"
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

/** A list of holes, compiled into its user. */
class InlinedFreeList {
  public:
    static constexpr char kName[] = "inlined";

    uint32_t Set(uintptr_t item) { return list_.Set(item); }
    uintptr_t Unset(uint32_t index) { return list_.Unset(index); }

  private:
    FreeList list_;
};

/** The same, called in a shared library, as the library's vector is. */
class CalledFreeList {
  public:
    static constexpr char kName[] = "called";

    uint32_t Set(uintptr_t item) { return FreeList_Set(list_.get(), item); }
    uintptr_t Unset(uint32_t index) { return FreeList_Unset(list_.get(), index); }

  private:
    struct Deleter {
        void operator()(FreeList *list) const { FreeList_Delete(list); }
    };

    std::unique_ptr<FreeList, Deleter> list_{FreeList_New()};
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
    RegisterFill<CalledFreeList>();
    RegisterChurn<CalledFreeList>();
    RegisterFill<InlinedFreeList>();
    RegisterChurn<InlinedFreeList>();
}

void PrintVectors(CollectingReporter &times) {
    for (const char *peer : {CalledFreeList::kName, InlinedFreeList::kName}) {
        PrintMedians(times, "vector fill", "ns", Vector::kName, peer, 0);
        PrintMedians(times, "vector churn", "ns", Vector::kName, peer, peer == CalledFreeList::kName ? 4 : 0);
    }
}

}  // namespace tav::bench
