/*
 * The library's stores and records, owned.
 */
#ifndef TAVCFG_STORE_H
#define TAVCFG_STORE_H

#include <memory>
#include <vector>

#include "file.h"
#include "frame.h"
#include "model.h"
#include "tav_extcfg.h"

namespace tavcfg {

/** A record of the library, built from the model's. */
class RecordNode {
  public:
    /** Throws Problem when a value is too long; bad_alloc. */
    explicit RecordNode(const Record &record);

    TAV_ExtCfgRecordNode *Get() const { return node_.get(); }

    /** Lets go of the record, which somebody else owns from now on. */
    void Release() { static_cast<void>(node_.release()); }

  private:
    struct Free {
        void operator()(TAV_ExtCfgRecordNode *node) const { TAV_ExtCfgRecordNodeFree(node); }
    };
    std::unique_ptr<TAV_ExtCfgRecordNode, Free> node_;
};

/** What setting a record comes to. */
enum class Merge { kAdded, kOverwritten };

/** An open store. */
class Store {
  public:
    /** An empty store whose file will be made anew. */
    static Store New(const Target &target);

    /** A store with what an image holds. Throws Problem that says what is wrong with the image. */
    static Store Parse(const Target &target, const Image &image);

    /** Creates a VS when it is absent. */
    void AddVs(uint32_t vsId);

    /** Adds a record. Throws Problem. */
    void Add(uint32_t vsId, const Record &record);

    /** Overwrites values of the record with the same class and key. Throws Problem, also for a field given twice. */
    void Set(uint32_t vsId, const Record &record);

    /** Adds a record, or overwrites values of the one that has the same class and key. Throws Problem. */
    Merge AddOrSet(uint32_t vsId, const Record &record);

    /** Deletes the record with the given class and key. Throws Problem. */
    void Delete(uint32_t vsId, const Record &key);

    /** Writes the store to its own file. Returns false when the file holds the same already. Throws Failure. */
    bool Flush();

    /** Writes the store to another file. Returns false when that file holds the same already. Throws Failure. */
    bool WriteTo(const File &file);

    /** The body that a flush would write; throws Failure. */
    std::vector<uint8_t> Body();

  private:
    struct Close {
        void operator()(CfgLocal *local) const { TAV_ExtCfgClose(local); }
    };

    Store(Target target, CfgLocal *local);

    bool Has(uint32_t vsId, const RecordNode &record);
    void AddNode(uint32_t vsId, RecordNode &record);
    template <typename WriteFile>
    bool WriteChecked(const File &file, WriteFile write);

    Target target_;
    std::unique_ptr<CfgLocal, Close> local_;
};

/** A file that loads: its bytes, its top level and what a store makes of it. */
struct LoadedFile {
    Image image;
    Frame frame;
    Store store;

    /** The content as it stands in the file. */
    Model Content() const;
};

/** Loads a file for reading or editing. Throws Failure that says what is wrong. */
LoadedFile Load(const Target &target);

/** Loads a file that may refer to another or not, as far as is known: uses the refer file only if it does. */
LoadedFile LoadWithReferIfAny(const File &file, const std::optional<File> &refer);

/** Loads a file for editing, or starts an empty store when there is no such file. Throws Failure. */
Store LoadOrNew(const Target &target);

}  // namespace tavcfg

#endif
