/*
 * The library's stores and records, owned; and files taken apart, to say precisely what is wrong with them.
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

/** A store. */
class Store {
  public:
    /** A store with what an image holds. Throws Problem that says what is wrong with the image. */
    static Store Parse(const Target &target, const Image &image);

  private:
    struct Close {
        void operator()(CfgLocal *local) const { TAV_ExtCfgClose(local); }
    };

    explicit Store(CfgLocal *local);

    std::unique_ptr<CfgLocal, Close> local_;
};

/** Throws Damage that says what is wrong with a file that does not load, Failure when it cannot be read. */
void RequireLoads(const Target &target);

/** Returns whether a file refers to another. Throws Failure when it cannot be read. */
bool CarriesReferChecksum(const File &file);

}  // namespace tavcfg

#endif
