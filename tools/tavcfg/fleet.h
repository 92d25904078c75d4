/*
 * publish, follow: a file on many machines, over a bucket of a server.
 */
#ifndef TAVCFG_FLEET_H
#define TAVCFG_FLEET_H

#include <CLI/CLI.hpp>
#include <string>

#include "invocation.h"

namespace tavcfg {

/** What both are told. */
struct FleetWords {
    std::string file, refer, url, bucket;
    std::string onConflict = "refuse";
    double wait = 5;  // seconds
    bool ignoreRefer = false;
    bool once = false;
    bool watch = false;
};

/** Builds the commands. */
class FleetCommands {
  public:
    void AddTo(CLI::App *app, Invocation *invocation);

  private:
    using Run = int (*)(const FleetWords &);

    CLI::App *Add(const char *name, const char *help, Run run);

    CLI::App *app_ = nullptr;
    Invocation *invocation_ = nullptr;
    FleetWords words_;
};

}  // namespace tavcfg

#endif
