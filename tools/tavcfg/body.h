/*
 * Reads the body of a file into the model, or counts what is in it.
 */
#ifndef TAVCFG_BODY_H
#define TAVCFG_BODY_H

#include <map>
#include <vector>

#include "frame.h"
#include "model.h"

namespace tavcfg {

/**
 * Reads every record of a file, as the library does: TLVs that are no VS, and TLVs inside a VS that are no record, are
 * passed over. Throws Problem where the TLVs do not nest properly.
 */
Model ReadBody(const Image &image, const Frame &frame);

/** The number of records of each class of a VS. */
struct VsCounts {
    uint32_t id;
    std::map<uint32_t, size_t> byClass;
};

/** Counts the records of a file, and does not look into them. Like ReadBody otherwise. */
std::vector<VsCounts> CountBody(const Image &image, const Frame &frame);

}  // namespace tavcfg

#endif
