/*
 * How a TLV becomes a condition.
 */
#ifndef DETECT_CONDITION_H
#define DETECT_CONDITION_H

#include "detect/model.h"

namespace detect {

/** What became of a TLV that was to be made a condition. */
enum class Built {
    kDone,        // a condition hangs in subscription and group
    kNoType,      // its type is not registered
    kNoMemory,    // condition or group could not be had
    kUnparsed,    // the type's parse function yielded nothing
    kCopyFailed,  // it could not be copied
};

/** Orders the keys of groups; see BEX_RBT_Comparer. */
int32_t CompareCondKeys(const void *keyA, const void *keyB);

/** Makes a condition of a TLV and puts it on the subscription and its group. A failure leaves nothing behind. */
Built BuildCond(Instance *instance, BookInfo *bookInfo, const void *tlv);

}  // namespace detect

#endif
