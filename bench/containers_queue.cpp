/*
 * Measures the queue: an insertion with its removal, in bursts that go round the ring.
 */
#include <memory>
#include <string>

#include "boost_ring.h"
#include "containers_bench.h"
#include "platform/mel_memory.h"
#include "tav_queue.h"

namespace tav::bench {
namespace {

constexpr uint32_t kCapacity = 1000;
constexpr uint32_t kBurst = 300;
constexpr uint32_t kRounds = 10000;

/** The library's queue. */
class Queue {
  public:
    static constexpr char kName[] = "queue";

    bool Insert(uintptr_t item) { return TAV_CIRCLEQ_InsertTail(queue_.get(), item) == 0; }
    uintptr_t Remove() { return TAV_CIRCLEQ_Remove(queue_.get()); }

  private:
    struct Freer {
        void operator()(TAV_CIRCLEQ_Queue *queue) const { TAV_CIRCLEQ_Free(queue); }
    };

    std::unique_ptr<TAV_CIRCLEQ_Queue, Freer> queue_{TAV_CIRCLEQ_Alloc(g_pTavCommHandle, kCapacity)};
};

/** Boost's ring in a shared library of its own, which is how the library's queue is reached as well. */
class CalledRing {
  public:
    static constexpr char kName[] = "called";

    bool Insert(uintptr_t item) { return BoostRing_Insert(ring_.get(), item); }
    uintptr_t Remove() { return BoostRing_Remove(ring_.get()); }

  private:
    std::unique_ptr<BoostRing, void (*)(BoostRing *)> ring_{BoostRing_New(kCapacity), BoostRing_Delete};
};

/** The same compiled into its user. */
class InlineRing {
  public:
    static constexpr char kName[] = "inlined";

    bool Insert(uintptr_t item) { return ring_.Insert(item); }
    uintptr_t Remove() { return ring_.Remove(); }

  private:
    BoostRing ring_{kCapacity};
};

template <typename Ring>
void RegisterRing() {
    Register(std::string("queue/") + Ring::kName, benchmark::kNanosecond, [](benchmark::State &state) {
        Ring ring;
        uint64_t inserted = 0, removed = 0;
        const auto run = [&] {
            for (uint32_t round = 0; round < kRounds; ++round) {
                for (uint32_t i = 1; i <= kBurst; ++i) {
                    inserted += ring.Insert(i) ? i : 0;
                }
                for (uint32_t i = 1; i <= kBurst; ++i) {
                    removed += ring.Remove();
                }
            }
        };
        for ([[maybe_unused]] auto _ : state) {
            state.SetIterationTime(Seconds(run) / (kRounds * kBurst));
        }
        Require(inserted == removed && inserted == uint64_t{kRounds} * kBurst * (kBurst + 1) / 2, "items were lost");
    });
}

}  // namespace

void RegisterQueues() {
    RegisterRing<Queue>();
    RegisterRing<CalledRing>();
    RegisterRing<InlineRing>();
}

void PrintQueues(CollectingReporter &times) {
    PrintMedians(times, "queue", "ns", Queue::kName, CalledRing::kName, 1.2);
    PrintMedians(times, "queue", "ns", Queue::kName, InlineRing::kName, 0);
}

}  // namespace tav::bench
