/*
 * The operations of the store, for growth_bench.
 */
#include <fstream>
#include <numeric>
#include <optional>

#include "growth.h"
#include "peer_store.h"
#include "random.h"

namespace tav::bench {
namespace {

constexpr uint32_t kClass = 13, kKey = 14;

/** A key that tells elements apart and is spread over all numbers. */
uint32_t KeyOf(size_t element) {
    return static_cast<uint32_t>(element) * 2654435761u;
}

/** All elements in random order. */
std::vector<size_t> Mixed(size_t count) {
    std::vector<size_t> elements(count);
    std::iota(elements.begin(), elements.end(), size_t{0});
    std::shuffle(elements.begin(), elements.end(), Random().engine);
    return elements;
}

Node MakeNumbered(uint32_t cid, uint32_t key, uint16_t value) {
    return Node(cid).With(kKey, key).With(15, value);
}

void Add(const Store &store, uint32_t vsId, Node node) {
    Require(TAV_ExtCfgAddRecord(vsId, node.Get(), store.Get()) == TAV_OK, "add");
    static_cast<void>(node.Release());  // the store's now
}

/** Where an element goes: its VS, its class, its key. */
struct Place {
    uint32_t vsId, cid, key;
};
using PlaceOf = Place (*)(size_t element);
Place InOneClass(size_t element) {
    return {kVs, kClass, KeyOf(element)};
}
Place InAVsOfItsOwn(size_t element) {
    return {static_cast<uint32_t>(element), kClass, 1};
}
Place InAClassOfItsOwn(size_t element) {
    return {kVs, 1000 + static_cast<uint32_t>(element), 1};
}

/** A file with elements at their places, which goes with this object, and the store open for reading and writing. */
class Filled {
  public:
    Filled(size_t count, PlaceOf placeOf)
        : folder_("growth"), path_(folder_.Path() + "/a.dat"), elements_(Mixed(count)), placeOf_(placeOf) {
        store_.emplace(OpenStore(TAV_EXT_MODE_READ_WRITE, path_));
        std::vector<Node> nodes;
        for (const size_t element : elements_) {
            nodes.push_back(MakeNumbered(placeOf(element).cid, placeOf(element).key, 1));
        }
        addSeconds_ = Seconds([&] {
            for (size_t at = 0; at < count; ++at) {
                Add(*store_, placeOf(elements_[at]).vsId, std::move(nodes[at]));
            }
        });
    }

    CfgLocal *Get() const { return store_->Get(); }
    const std::string &Path() const { return path_; }
    double AddSeconds() const { return addSeconds_; }
    size_t Count() const { return elements_.size(); }

    void Flush() const { Require(TAV_ExtCfgFlush(Get()) == TAV_OK, "flush"); }
    void Close() { store_.reset(); }

    /** Calls visit(VS id, key record) for each element, and returns the seconds that the calls took. */
    template <typename Visitor>
    double SecondsForEach(uint16_t value, Visitor visit) const {
        std::vector<Node> keys;
        for (const size_t element : elements_) {
            keys.push_back(MakeNumbered(placeOf_(element).cid, placeOf_(element).key, value));
        }
        return Seconds([&] {
            for (size_t at = 0; at < keys.size(); ++at) {
                Require(visit(placeOf_(elements_[at]).vsId, keys[at].Get()), "element");
            }
        });
    }

  private:
    TempFolder folder_;
    std::string path_;
    std::vector<size_t> elements_;
    PlaceOf placeOf_;
    std::optional<Store> store_;
    double addSeconds_ = 0;
};

/** An operation on a filled store, measured for one element. */
template <typename Operation>
std::function<double(size_t)> On(PlaceOf placeOf, Operation operation) {
    return [=](size_t count) {
        Filled filled(count, placeOf);
        return operation(filled) / static_cast<double>(count);
    };
}

double SecondsToAdd(const Filled &filled) {
    return filled.AddSeconds();
}

double SecondsToGet(const Filled &filled) {
    CfgLocal *local = filled.Get();
    const auto get = [=](uint32_t vsId, const TAV_ExtCfgRecordNode *key) {
        return TAV_ExtCfgGetRecord(vsId, key, local) != nullptr;
    };
    filled.SecondsForEach(1, get);  // the first round warms the caches
    return filled.SecondsForEach(1, get);
}

double SecondsToSet(const Filled &filled) {
    CfgLocal *local = filled.Get();
    return filled.SecondsForEach(2, [=](uint32_t vsId, const TAV_ExtCfgRecordNode *record) {
        return TAV_ExtCfgSetRecord(vsId, record, local) == TAV_OK;
    });
}

double SecondsToDelete(const Filled &filled) {
    CfgLocal *local = filled.Get();
    return filled.SecondsForEach(1, [=](uint32_t vsId, const TAV_ExtCfgRecordNode *key) {
        return TAV_ExtCfgDelRecord(vsId, key, local) == TAV_OK;
    });
}

double SecondsToQuery(const Filled &filled) {
    CfgLocal *local = filled.Get();
    const Node condition(kClass);
    return Seconds([&] {
        Require(TAV_ExtCfgStartQuery(kVs, condition.Get(), local) == TAV_OK, "query");
        size_t found = 0;
        while (TAV_ExtCfgGetNextRecord(local) != nullptr) {
            ++found;
        }
        Require(found == filled.Count(), "records");
    });
}

double SecondsToFlush(const Filled &filled) {
    return Seconds([&] { filled.Flush(); });
}

double SecondsToOpen(Filled &filled) {
    filled.Flush();
    filled.Close();
    return Seconds([&] { OpenStore(TAV_EXT_MODE_READ_ONLY, filled.Path()); });
}

double SecondsToChangeInPlace(Filled &filled) {
    filled.Flush();
    filled.Close();
    const Node record = MakeNumbered(kClass, KeyOf(filled.Count() / 2), 3);
    return Seconds([&] {
        Require(TAV_ExtCfgSetRecordToFile(kVs, record.Get(), filled.Path().c_str(), nullptr) == TAV_OK, "in place");
    });
}

double SecondsToReadChecksum(Filled &filled) {
    filled.Flush();
    uint8_t checksum[TAV_EXT_CHECKSUM_SIZE];
    return Seconds([&] {
        Require(TAV_GetExtCfgFileChecksum(filled.Path().c_str(), checksum, sizeof(checksum)) == TAV_OK, "checksum");
    });
}

/** Returns the seconds of opening a file whose head states the body's checksum that many times. */
double SecondsToOpenWithChecksums(size_t count) {
    Filled filled(4000, InOneClass);
    filled.Flush();
    filled.Close();
    std::ifstream in(filled.Path(), std::ios::binary);
    std::string image(std::istreambuf_iterator<char>(in), {});
    constexpr size_t kChecksumAt = 40, kChecksumEnd = 80;
    const std::string field = image.substr(kChecksumAt, kChecksumEnd - kChecksumAt);
    for (size_t more = 1; more < count; ++more) {
        image.insert(kChecksumEnd, field);
    }
    const size_t headLength = kChecksumEnd - 8 + (count - 1) * field.size();
    for (size_t byte = 0; byte < 4; ++byte) {
        image[4 + byte] = static_cast<char>(headLength >> (24 - 8 * byte));
    }
    std::ofstream(filled.Path(), std::ios::binary) << image;
    return Seconds([&] { OpenStore(TAV_EXT_MODE_READ_ONLY, filled.Path()); });
}

}  // namespace

std::vector<Growth> StoreGrowth() {
    // Where elements in random order are looked at, 8 N of them still fit into the processor's caches; those that do
    // not take three times as long each, however they are found.
    return {
        {"store: open, records", 25000, kGrowth, On(InOneClass, SecondsToOpen)},
        {"store: open, virtual systems", 8000, kGrowth, On(InAVsOfItsOwn, SecondsToOpen)},
        {"store: open, stated checksums (all)", 50, 2, SecondsToOpenWithChecksums},
        {"store: get, records", 1000, kGrowth, On(InOneClass, SecondsToGet)},
        {"store: get, virtual systems", 1000, kGrowth, On(InAVsOfItsOwn, SecondsToGet)},
        {"store: get, classes", 1000, kGrowth, On(InAClassOfItsOwn, SecondsToGet)},
        {"store: query", 1000, kGrowth, On(InOneClass, SecondsToQuery)},
        {"store: add, records", 1000, kGrowth, On(InOneClass, SecondsToAdd)},
        {"store: add, virtual systems", 1000, kGrowth, On(InAVsOfItsOwn, SecondsToAdd)},
        {"store: add, classes", 1000, kGrowth, On(InAClassOfItsOwn, SecondsToAdd)},
        {"store: set", 1000, kGrowth, On(InOneClass, SecondsToSet)},
        {"store: delete", 1000, kGrowth, On(InOneClass, SecondsToDelete)},
        {"store: flush, records", 4000, kGrowth, On(InOneClass, SecondsToFlush)},
        {"store: flush, virtual systems", 8000, kGrowth, On(InAVsOfItsOwn, SecondsToFlush)},
        {"store: set in the file", 25000, kGrowth, On(InOneClass, SecondsToChangeInPlace)},
        {"store: checksum of a file", 25000, kGrowth, On(InOneClass, SecondsToReadChecksum)},
    };
}

}  // namespace tav::bench
