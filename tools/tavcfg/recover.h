/*
 * recover: after a crash between backup and write.
 *
 * A flush moves FILE to FILE.bak, writes FILE, and deletes FILE.bak. A crash in between leaves a backup beside a FILE
 * that is missing, partial or whole.
 */
#ifndef TAVCFG_RECOVER_H
#define TAVCFG_RECOVER_H

#include "file.h"

namespace tavcfg {

/** Keeps the newest of a file and its backup that loads. Throws Failure when neither does. */
int RunRecover(const Target &target);

}  // namespace tavcfg

#endif
