/*
 * What a command line asks for.
 */
#ifndef TAVCFG_INVOCATION_H
#define TAVCFG_INVOCATION_H

#include <functional>

namespace tavcfg {

/** What to do. */
struct Invocation {
    bool logs = false;         // the debug log is to be switched on
    int failureCode = 1;       // exit code of all failures but usage errors, locks, and the answer no
    int cutShortCode = 0;      // exit code when whoever reads the output has seen enough
    std::function<int()> run;  // needs the library's types. Returns the exit code. Throws Failure and UsageError
};

}  // namespace tavcfg

#endif
