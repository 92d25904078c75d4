/*
 * recover: after a crash of a program that writes without a session.
 *
 * Its flush moves FILE to FILE.bak, writes FILE, and deletes FILE.bak. A crash in between leaves a backup beside a FILE
 * that is missing, partial or whole.
 */
#ifndef TAVCFG_RECOVER_H
#define TAVCFG_RECOVER_H

#include "open.h"

namespace tavcfg {

/** Brings the right one of a file and its backup back, and moves the other one aside. Throws tav::Error. */
int RunRecover(const WriteOptions &options);

}  // namespace tavcfg

#endif
