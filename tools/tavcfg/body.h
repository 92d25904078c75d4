/*
 * Reads the body of a file into the model.
 */
#ifndef TAVCFG_BODY_H
#define TAVCFG_BODY_H

#include "frame.h"
#include "model.h"

namespace tavcfg {

/**
 * Reads every record of a file, as the library does: TLVs that are no VS, and TLVs inside a VS that are no record, are
 * passed over. Throws Problem where the TLVs do not nest properly.
 */
Model ReadBody(const Image &image, const Frame &frame);

}  // namespace tavcfg

#endif
