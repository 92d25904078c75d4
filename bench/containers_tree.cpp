/*
 * Measures the tree from the first insertion to the last deletion, in turns with its peers.
 *
 * The trees hold elements that are allocated before, compare keys through a function pointer, and release through one,
 * on all sides alike.
 */
#include <malloc.h>

#include <algorithm>
#include <boost/intrusive/set.hpp>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "containers_bench.h"
#include "random.h"
#include "tav_rbtree.h"

namespace tav::bench {
namespace {

constexpr uint32_t kElements = 1000000;
constexpr uint32_t kTurn = 50000;  // elements that a tree sees before the next tree goes on

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

// Volatile, so that no tree knows which functions it calls.
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

/** Makes elements that have the keys of an order. */
template <typename Element>
std::vector<Element> MakeElements(const Order &order) {
    std::vector<Element> elements(kElements);
    for (size_t i = 0; i < kElements; ++i) {
        elements[i].key = order.keys[i];
    }
    return elements;
}

// The trees. What each does with one element, it answers with the element's key. Elements are known by their place in
// the order; a walk is at one element, and answers 0 at its end.

/** The library's tree. */
class Tree {
  public:
    static constexpr char kName[] = "tree";

    explicit Tree(const Order &order) : elements_(MakeElements<Element>(order)) {
        TAV_RBT_Init(&tree_, g_destructor, g_comparer);
    }
    uint32_t Insert(uint32_t place) {
        return TAV_RBT_AddNode(&tree_, &elements_[place]) == TAV_OK ? elements_[place].key : 0;
    }
    uint32_t Find(const uint32_t &key) { return static_cast<Element *>(TAV_RBT_GetNode(&tree_, &key))->key; }
    void BeginWalk() { at_ = BEX_RBT_FirstNode(&tree_); }
    uint32_t Step() {
        if (at_ == nullptr) {
            return 0;
        }
        const uint32_t key = reinterpret_cast<Element *>(at_)->key;
        at_ = BEX_RBT_NextNode(&tree_, at_);
        return key;
    }
    uint32_t Delete(uint32_t place) {
        const uint32_t key = elements_[place].key;
        TAV_RBT_DelNode(&tree_, &elements_[place]);
        return key;
    }

  private:
    struct Element {
        TAV_RBT_Node node;
        uint32_t key;
    };

    std::vector<Element> elements_;
    TAV_RBT_Tree tree_;
    TAV_RBT_Node *at_ = nullptr;
};

/** Boost's intrusive tree, without what it can do beyond the library's: no checked links, no count of elements. */
class BoostTree {
  public:
    static constexpr char kName[] = "boost";

    explicit BoostTree(const Order &order) : elements_(MakeElements<Element>(order)) {}
    uint32_t Insert(uint32_t place) { return set_.insert(elements_[place]).second ? elements_[place].key : 0; }
    uint32_t Find(const uint32_t &key) { return set_.find(key)->key; }
    void BeginWalk() { at_ = set_.begin(); }
    uint32_t Step() { return at_ == set_.end() ? 0 : (at_++)->key; }
    uint32_t Delete(uint32_t place) {
        const uint32_t key = elements_[place].key;
        set_.erase_and_dispose(set_.iterator_to(elements_[place]), destructor_);
        return key;
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
    BEX_RBT_Destructor destructor_ = g_destructor;
    Set set_;
    Set::iterator at_;
};

/** The standard library's map. Its nodes are put in and taken out, not allocated and freed. */
class StdTree {
  public:
    static constexpr char kName[] = "std::map";

    explicit StdTree(const Order &order) : places_(kElements) {
        for (const uint32_t key : order.keys) {
            nodes_.push_back(map_.extract(map_.emplace(key, key).first));
        }
    }
    uint32_t Insert(uint32_t place) {
        places_[place] = map_.insert(std::move(nodes_[place])).position;
        return places_[place]->second;
    }
    uint32_t Find(const uint32_t &key) { return map_.find(key)->second; }
    void BeginWalk() { at_ = map_.begin(); }
    uint32_t Step() { return at_ == map_.end() ? 0 : (at_++)->second; }
    uint32_t Delete(uint32_t place) {
        const uint32_t key = places_[place]->second;
        nodes_[place] = map_.extract(places_[place]);
        return key;
    }

  private:
    using Map = std::map<uint32_t, uint32_t, ByPointer>;

    Map map_;
    std::vector<Map::node_type> nodes_;
    std::vector<Map::iterator> places_;
    Map::iterator at_;
};

/** A tree's operations on parts of an order. Each returns the sum of the keys that it came by. */
class Index {
  public:
    virtual ~Index() = default;
    virtual const char *Name() const = 0;
    virtual uint64_t Insert(Range range) = 0;
    virtual uint64_t Find(Range range) = 0;
    /** Goes on behind the last element of the call before; range.first of 0 begins anew. */
    virtual uint64_t Walk(Range range) = 0;
    virtual uint64_t Delete(Range range) = 0;
};

template <typename AnyTree>
class IndexOf : public Index {
  public:
    explicit IndexOf(const Order &order) : order_(order), tree_(order) {}
    const char *Name() const override { return AnyTree::kName; }
    uint64_t Insert(Range range) override {
        return Sum(range, [this](uint32_t i) { return tree_.Insert(i); });
    }
    uint64_t Find(Range range) override {
        return Sum(range, [this](uint32_t i) { return tree_.Find(order_.keys[order_.places[i]]); });
    }
    uint64_t Walk(Range range) override {
        if (range.first == 0) {
            tree_.BeginWalk();
        }
        return Sum(range, [this](uint32_t) { return tree_.Step(); });
    }
    uint64_t Delete(Range range) override {
        return Sum(range, [this](uint32_t i) { return tree_.Delete(order_.places[i]); });
    }

  private:
    template <typename Operation>
    static uint64_t Sum(Range range, Operation operation) {
        uint64_t sum = 0;
        for (uint32_t i = range.first; i < range.last; ++i) {
            sum += operation(i);
        }
        return sum;
    }

    const Order &order_;
    AnyTree tree_;
};

/** The trees that take turns, and where their times go in ns an element. */
class Contest {
  public:
    Contest(const Order &order, Random &random, benchmark::UserCounters &times)
        : order_(order), random_(random), times_(times) {
        indexes_.push_back(std::make_unique<IndexOf<Tree>>(order));
        indexes_.push_back(std::make_unique<IndexOf<BoostTree>>(order));
        indexes_.push_back(std::make_unique<IndexOf<StdTree>>(order));
    }

    /** Measures each operation, from the first insertion to the last deletion. */
    void Run() {
        Measure("insert", &Index::Insert);
        Measure("find", &Index::Find);
        Measure("walk", &Index::Walk);
        Measure("delete", &Index::Delete);
        for (const auto &index : indexes_) {
            Require(index->Walk({0, kElements}) == 0, "elements are left");
        }
    }

  private:
    /** They take turns after a few elements, in any order, so that a slow moment of the machine falls on all. */
    void Measure(const std::string &what, uint64_t (Index::*operation)(Range)) {
        std::map<Index *, uint64_t> sums;
        for (uint32_t first = 0; first < kElements; first += kTurn) {
            std::shuffle(indexes_.begin(), indexes_.end(), random_.engine);
            for (const auto &index : indexes_) {
                const auto turn = [&] { sums[index.get()] += ((*index).*operation)({first, first + kTurn}); };
                times_[what + "/" + index->Name()].value += Seconds(turn) / kElements * 1e9;
            }
        }
        for (const auto &index : indexes_) {
            Require(sums[index.get()] == order_.sum, "not every element was come by");
        }
    }

    const Order &order_;
    Random &random_;
    benchmark::UserCounters &times_;
    std::vector<std::unique_ptr<Index>> indexes_;
};

}  // namespace

void RegisterTrees() {
    const auto random = std::make_shared<Random>();
    for (const bool ascending : {false, true}) {
        const Order order = MakeOrder(ascending);
        Register(order.name, benchmark::kSecond, [=](benchmark::State &state) {
            for ([[maybe_unused]] auto _ : state) {
                state.SetIterationTime(Seconds([&] { Contest(order, *random, state.counters).Run(); }));
            }
            malloc_trim(0);  // or the next to allocate tidies up behind a million nodes
        });
    }
}

void PrintTrees(CollectingReporter &times) {
    for (const std::string order : {"random/", "asc/"}) {
        for (const char *what : {"insert", "find", "walk", "delete"}) {
            PrintPaired(times, order + what, "ns", Tree::kName, BoostTree::kName, 1.1);
            PrintPaired(times, order + what, "ns", Tree::kName, StdTree::kName, 0);
        }
    }
}

}  // namespace tav::bench
