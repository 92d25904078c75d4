/*
 * watch: the changes of a file, as they come.
 */
#ifndef TAVCFG_WATCH_H
#define TAVCFG_WATCH_H

#include <string>

#include "open.h"

namespace tavcfg {

struct WatchOptions {
    FileOptions file;
    bool asJson;
    std::string command;  // run after each change, with the changes as its input; empty to print them
    size_t limit;         // changes to wait for; 0 for no end
};

/** Prints each change of a file's content until it is interrupted. Throws Failure and tav::Error. */
int RunWatch(const WatchOptions &options);

}  // namespace tavcfg

#endif
