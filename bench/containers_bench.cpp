/*
 * Measures the containers and the stream that writes an archive, each beside what its user might have taken instead.
 *
 * The trees hold elements that are allocated before, compare keys through a function pointer, and release through one,
 * on all sides alike.
 */
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>
#include <zlib.h>

#include <boost/intrusive/set.hpp>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <numeric>
#include <utility>

#include "boost_ring.h"
#include "platform/mel_memory.h"
#include "records.h"
#include "report.h"
#include "tav_common.h"
#include "tav_queue.h"
#include "tav_rbtree.h"
#include "tav_vector.h"

namespace tav::bench {
namespace {

constexpr uint32_t kElements = 1000000;
constexpr uint32_t kTurn = 50000;  // elements that a tree sees before the next tree goes on

// ---- Trees

/** The keys in the order of insertion, and the places in that order at which elements are looked up and deleted. */
struct Order {
    const char *name;
    std::vector<uint32_t> keys;
    std::vector<uint32_t> places;
    uint64_t sum;  // of all keys
};

Order MakeOrder(bool ascending) {
    Order order{ascending ? "asc" : "random", std::vector<uint32_t>(kElements), std::vector<uint32_t>(kElements), 0};
    std::iota(order.places.begin(), order.places.end(), 0);
    std::transform(order.places.begin(), order.places.end(), order.keys.begin(), [](uint32_t i) { return i * 4000; });
    order.sum = std::accumulate(order.keys.begin(), order.keys.end(), uint64_t{0});
    if (!ascending) {
        Random random;
        std::shuffle(order.keys.begin(), order.keys.end(), random.engine);
        std::shuffle(order.places.begin(), order.places.end(), random.engine);
    }
    return order;
}

/* Volatile, so that no tree knows which functions it calls. */
BEX_RBT_Comparer volatile g_comparer = TAV_KEY_RBT_Compare_UINT32;
BEX_RBT_Destructor volatile g_destructor = [](void *) {};

/** Compares through a function pointer, as the library's tree does. */
struct ByPointer {
    BEX_RBT_Comparer compare = g_comparer;

    bool operator()(const uint32_t &a, const uint32_t &b) const { return compare(&a, &b) < 0; }
};

/** A part of an order. */
struct Range {
    uint32_t first;
    uint32_t last;  // behind the part
};

/** A tree. Each operation returns the sum of the keys that it came by. */
class Index {
  public:
    virtual ~Index() = default;
    virtual const char *Name() const = 0;
    virtual uint64_t Insert(Range range) = 0;
    virtual uint64_t Find(const Order &order, Range range) = 0;
    /** Goes on behind the last element of the call before; range.first of 0 begins anew. */
    virtual uint64_t Walk(Range range) = 0;
    virtual uint64_t Delete(const Order &order, Range range) = 0;
};

/** The library's tree. */
class Tree : public Index {
  public:
    static constexpr char kName[] = "tree";

    explicit Tree(const Order &order) : elements_(kElements) {
        TAV_RBT_Init(&tree_, g_destructor, g_comparer);
        for (size_t i = 0; i < kElements; ++i) {
            elements_[i].key = order.keys[i];
        }
    }
    const char *Name() const override { return kName; }
    uint64_t Insert(Range range) override {
        uint64_t sum = 0;
        for (uint32_t i = range.first; i < range.last; ++i) {
            sum += TAV_RBT_AddNode(&tree_, &elements_[i]) == TAV_OK ? elements_[i].key : 0;
        }
        return sum;
    }
    uint64_t Find(const Order &order, Range range) override {
        uint64_t sum = 0;
        for (uint32_t i = range.first; i < range.last; ++i) {
            const uint32_t place = order.places[i];
            sum += static_cast<Element *>(TAV_RBT_GetNode(&tree_, &order.keys[place]))->key;
        }
        return sum;
    }
    uint64_t Walk(Range range) override {
        uint64_t sum = 0;
        at_ = range.first == 0 ? BEX_RBT_FirstNode(&tree_) : at_;
        for (uint32_t i = range.first; i < range.last && at_ != nullptr; ++i) {
            sum += reinterpret_cast<Element *>(at_)->key;
            at_ = BEX_RBT_NextNode(&tree_, at_);
        }
        return sum;
    }
    uint64_t Delete(const Order &order, Range range) override {
        uint64_t sum = 0;
        for (uint32_t i = range.first; i < range.last; ++i) {
            const uint32_t place = order.places[i];
            sum += elements_[place].key;
            TAV_RBT_DelNode(&tree_, &elements_[place]);
        }
        return sum;
    }

  private:
    struct Element {
        TAV_RBT_Node node;
        uint32_t key;
    };

    std::vector<Element> elements_;
    TAV_RBT_Tree tree_;
    TAV_RBT_Node *at_ = nullptr;  // where the walk goes on
};

/** Boost's intrusive tree, without what it can do beyond the library's: no checked links, no count of elements. */
class BoostTree : public Index {
  public:
    static constexpr char kName[] = "boost";

    explicit BoostTree(const Order &order) : elements_(kElements) {
        for (size_t i = 0; i < kElements; ++i) {
            elements_[i].key = order.keys[i];
        }
    }
    const char *Name() const override { return kName; }
    uint64_t Insert(Range range) override {
        uint64_t sum = 0;
        for (uint32_t i = range.first; i < range.last; ++i) {
            sum += set_.insert(elements_[i]).second ? elements_[i].key : 0;
        }
        return sum;
    }
    uint64_t Find(const Order &order, Range range) override {
        uint64_t sum = 0;
        for (uint32_t i = range.first; i < range.last; ++i) {
            const uint32_t place = order.places[i];
            sum += set_.find(order.keys[place])->key;
        }
        return sum;
    }
    uint64_t Walk(Range range) override {
        uint64_t sum = 0;
        at_ = range.first == 0 ? set_.begin() : at_;
        for (uint32_t i = range.first; i < range.last && at_ != set_.end(); ++i) {
            sum += at_->key;
            ++at_;
        }
        return sum;
    }
    uint64_t Delete(const Order &order, Range range) override {
        const BEX_RBT_Destructor destructor = g_destructor;
        uint64_t sum = 0;
        for (uint32_t i = range.first; i < range.last; ++i) {
            const uint32_t place = order.places[i];
            sum += elements_[place].key;
            set_.erase_and_dispose(set_.iterator_to(elements_[place]), destructor);
        }
        return sum;
    }

  private:
    struct Element : boost::intrusive::set_base_hook<boost::intrusive::link_mode<boost::intrusive::normal_link>> {
        uint32_t key;
    };
    struct KeyOf {
        using type = uint32_t;
        const uint32_t &operator()(const Element &element) const { return element.key; }
    };

    using Set =
        boost::intrusive::set<Element, boost::intrusive::key_of_value<KeyOf>, boost::intrusive::compare<ByPointer>,
                              boost::intrusive::constant_time_size<false>>;

    std::vector<Element> elements_;
    Set set_;
    Set::iterator at_;
};

/** The standard library's map. Its nodes are put in and taken out, not allocated and freed. */
class StdTree : public Index {
  public:
    static constexpr char kName[] = "std::map";

    explicit StdTree(const Order &order) : places_(kElements) {
        for (const uint32_t key : order.keys) {
            nodes_.push_back(map_.extract(map_.emplace(key, key).first));
        }
    }
    const char *Name() const override { return kName; }
    uint64_t Insert(Range range) override {
        uint64_t sum = 0;
        for (uint32_t i = range.first; i < range.last; ++i) {
            places_[i] = map_.insert(std::move(nodes_[i])).position;
            sum += places_[i]->second;
        }
        return sum;
    }
    uint64_t Find(const Order &order, Range range) override {
        uint64_t sum = 0;
        for (uint32_t i = range.first; i < range.last; ++i) {
            const uint32_t place = order.places[i];
            sum += map_.find(order.keys[place])->second;
        }
        return sum;
    }
    uint64_t Walk(Range range) override {
        uint64_t sum = 0;
        at_ = range.first == 0 ? map_.begin() : at_;
        for (uint32_t i = range.first; i < range.last && at_ != map_.end(); ++i) {
            sum += at_->second;
            ++at_;
        }
        return sum;
    }
    uint64_t Delete(const Order &order, Range range) override {
        uint64_t sum = 0;
        for (uint32_t i = range.first; i < range.last; ++i) {
            const uint32_t place = order.places[i];
            sum += places_[place]->second;
            nodes_[place] = map_.extract(places_[place]);
        }
        return sum;
    }

  private:
    using Map = std::map<uint32_t, uint32_t, ByPointer>;

    Map map_;
    std::vector<Map::node_type> nodes_;
    std::vector<Map::iterator> places_;
    Map::iterator at_;
};

/**
 * Measures an operation of all trees in ns an element. They take turns after a few elements, in any order, so that a
 * slow moment of the machine falls on all.
 */
template <class Operation>
void MeasureTrees(std::vector<std::unique_ptr<Index>> &trees, const Order &order, Random &random,
                  benchmark::UserCounters &times, const std::string &what, Operation operation) {
    std::map<Index *, uint64_t> sums;
    for (uint32_t first = 0; first < kElements; first += kTurn) {
        std::shuffle(trees.begin(), trees.end(), random.engine);
        for (const auto &tree : trees) {
            const auto turn = [&] { sums[tree.get()] += operation(*tree, Range{first, first + kTurn}); };
            times[what + "/" + tree->Name()].value += Seconds(turn) / kElements * 1e9;
        }
    }
    for (const auto &tree : trees) {
        Require(sums[tree.get()] == order.sum, "not every element was come by");
    }
}

/** Measures each operation of the trees, from the first insertion to the last deletion. */
void LiveThrough(const Order &order, Random &random, benchmark::UserCounters &times) {
    std::vector<std::unique_ptr<Index>> trees;
    trees.push_back(std::make_unique<Tree>(order));
    trees.push_back(std::make_unique<BoostTree>(order));
    trees.push_back(std::make_unique<StdTree>(order));
    const auto measure = [&](const char *what, auto operation) {
        MeasureTrees(trees, order, random, times, what, operation);
    };
    measure("insert", [](Index &tree, Range range) { return tree.Insert(range); });
    measure("find", [&](Index &tree, Range range) { return tree.Find(order, range); });
    measure("walk", [](Index &tree, Range range) { return tree.Walk(range); });
    measure("delete", [&](Index &tree, Range range) { return tree.Delete(order, range); });
    for (const auto &tree : trees) {
        Require(tree->Walk({0, kElements}) == 0, "elements are left");
    }
}

void RegisterTrees() {
    const auto random = std::make_shared<Random>();
    for (const bool ascending : {false, true}) {
        const Order order = MakeOrder(ascending);
        Register(order.name, benchmark::kSecond, [=](benchmark::State &state) {
            for ([[maybe_unused]] auto _ : state) {
                state.SetIterationTime(Seconds([&] { LiveThrough(order, *random, state.counters); }));
            }
            malloc_trim(0);  // or the next to allocate tidies up behind a million nodes
        });
    }
}

// ---- Queues

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

/** Measures an insertion with its removal, in bursts that go round the ring. */
template <class Ring>
void RegisterQueue() {
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

// ---- Vectors

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

/** Measures setting items one after the other, and then unsetting some of them, anywhere, and setting as many. */
template <class Table>
void RegisterVector() {
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

// ---- Archive streams

constexpr size_t kTextSize = 20000000;
constexpr int kLevel = 6;  // that of TAV_Zip

/** Lines of a configuration. */
std::vector<std::string> MakeText() {
    Random random;
    std::vector<std::string> words;
    for (int i = 0; i < 2000; ++i) {
        words.push_back(random.Text(3, 12));
    }
    std::vector<std::string> lines;
    for (size_t size = 0; size < kTextSize; size += lines.back().size()) {
        std::string line = random.Between(0, 2) == 0 ? "" : " ";
        for (uint32_t i = random.Between(2, 6); i > 0; --i) {
            line += words[random.Between(0, 1999)] + " ";
        }
        lines.push_back(line + std::to_string(random.Between(0, 65535)) + "\n");
    }
    return lines;
}

/** Appends to the stream's text, as a caller does. */
void Append(TAV_ZipCb &block, const std::string &line) {
    const auto length = static_cast<uint32_t>(line.size());
    if (const uint32_t size = TAV_GetZipBufferSize(&block, length); size != 0) {
        block.buffer = MEL_MemReAlloc(g_pTavCommHandle, g_aucMelMemPt[0], block.buffer, size);
        Require(block.buffer != nullptr, "memory");
        block.size = size;
    }
    std::memcpy(static_cast<char *>(block.buffer) + block.used, line.c_str(), length + 1);
    block.used += length;
}

void WriteStream(const std::vector<std::string> &lines, const std::string &path) {
    TAV_ZipCb block;
    Require(TAV_ZipStart(g_pTavCommHandle, &block, path.c_str()) == 0, "TAV_ZipStart");
    for (const std::string &line : lines) {
        Append(block, line);
    }
    Require(TAV_Zip(&block) == 0, "TAV_Zip");
    Require(TAV_ZipEnd(&block) == 0, "TAV_ZipEnd");
}

/** Compresses a text that stands in memory into a gzip file, which has the same checksum as a member of an archive. */
void Deflate(const std::string &text, const std::string &path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    Require(file >= 0, "open for writing");
    z_stream stream{};
    Require(deflateInit2(&stream, kLevel, Z_DEFLATED, MAX_WBITS + 16, 9, Z_DEFAULT_STRATEGY) == Z_OK, "deflateInit2");
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    std::vector<Bytef> chunk(1 << 16);
    do {
        stream.next_out = chunk.data();
        stream.avail_out = static_cast<uInt>(chunk.size());
        Require(deflate(&stream, Z_FINISH) != Z_STREAM_ERROR, "deflate");
        const auto ready = static_cast<ssize_t>(chunk.size() - stream.avail_out);
        Require(write(file, chunk.data(), static_cast<size_t>(ready)) == ready, "write");
    } while (stream.avail_out == 0);
    Require(deflateEnd(&stream) == Z_OK && fsync(file) == 0 && close(file) == 0, "end of file");
}

/**
 * Measures both ways of writing in each repetition: what else the disk does then falls on both. Each goes once before,
 * for nothing: where the system must fetch free memory from a host first, that would be what is measured.
 */
void RegisterStreams(const std::string &folder) {
    const auto lines = std::make_shared<const std::vector<std::string>>(MakeText());
    const auto text = std::make_shared<const std::string>(std::accumulate(lines->begin(), lines->end(), std::string()));
    const auto ours = [=] { WriteStream(*lines, folder + "/text.zip"); };
    const auto theirs = [=] { Deflate(*text, folder + "/text.gz"); };
    Register("zip stream", benchmark::kMillisecond, [=](benchmark::State &state) {
        theirs();
        ours();
        for ([[maybe_unused]] auto _ : state) {
            state.counters["zip"] = Seconds(ours) * 1e3;
            state.counters["zlib"] = Seconds(theirs) * 1e3;
            state.SetIterationTime((state.counters["zip"] + state.counters["zlib"]) / 1e3);
        }
    });
}

// ---- Report

void PrintTable(CollectingReporter &times) {
    const auto row = [&](const std::string &measure, const char *unit, const char *us, const char *peer,
                         double target) {
        PrintRow(measure, unit, times.Median(measure + "/" + us), peer, times.Median(measure + "/" + peer), target);
    };
    const auto pairedRow = [&](const std::string &measure, const char *unit, const std::string &us, const char *peer,
                               double target) {
        const std::string ours = measure + "/" + us, theirs = measure + "/" + peer;
        PrintRow(measure, unit, times.Median(ours), peer, times.Median(theirs), times.PairedRatio(ours, theirs),
                 target);
    };
    std::printf("\n%-16s %10s %10s     %-10s %7s   %s\n", "measure", "library", "peer", "peer", "ratio", "target");
    for (const std::string order : {"random/", "asc/"}) {
        for (const char *what : {"insert", "find", "walk", "delete"}) {
            pairedRow(order + what, "ns", Tree::kName, BoostTree::kName, 1.1);
            pairedRow(order + what, "ns", Tree::kName, StdTree::kName, 0);
        }
    }
    row("queue", "ns", Queue::kName, CalledRing::kName, 1.2);
    row("queue", "ns", Queue::kName, InlineRing::kName, 0);
    row("vector fill", "ns", Vector::kName, FreeListVector::kName, 0);
    row("vector churn", "ns", Vector::kName, FreeListVector::kName, 0);
    pairedRow("zip stream", "ms", "zip", "zlib", 1.1);
    std::printf(
        "\nrandom   1,000,000 elements in random order; asc: in ascending order. boost: Boost.Intrusive's set. The\n"
        "         trees take turns of 50,000 elements; a ratio is the median of those of the repetitions.\n"
        "queue    an insertion and a removal. called: boost::circular_buffer in a shared library, as the queue;\n"
        "         inlined: the same compiled into its user.\n"
        "vector   fill: one of 10,000 items set. churn: one of 100 unset anywhere among them, and another set; the\n"
        "         library's vector looks for the lowest hole, the free list takes the latest.\n"
        "zip      20 MB of text appended line by line and written as an archive; zlib: the same text, already in one\n"
        "         piece, compressed into a gzip file and synced. Each goes once before, for nothing.\n");
}

void RunAll(int argc, char **argv) {
    ReadOptions(argc, argv);
    std::string folder = std::filesystem::temp_directory_path() / "containers_bench.XXXXXX";
    Require(mkdtemp(folder.data()) != nullptr, "temporary folder");
    const std::unique_ptr<const std::string, void (*)(const std::string *)> remover(
        &folder, [](const std::string *path) { std::filesystem::remove_all(*path); });
    RegisterTrees();
    RegisterQueue<Queue>();
    RegisterQueue<CalledRing>();
    RegisterQueue<InlineRing>();
    RegisterVector<Vector>();
    RegisterVector<FreeListVector>();
    RegisterStreams(folder);
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    PrintTable(reporter);
}

}  // namespace
}  // namespace tav::bench

int main(int argc, char **argv) {
    return tav::bench::RunGuarded("containers_bench", [=] { tav::bench::RunAll(argc, argv); });
}
