/*
 * A call of the interface: what is asked for, and who hears of it.
 */
#ifndef FLEET_STORE_CALL_H
#define FLEET_STORE_CALL_H

#include <chrono>
#include <optional>
#include <string>

#include "fleet/store_head.h"
#include "tav/error.h"
#include "tav_fleet.h"

namespace fleet {

/** Thrown where a call waits and its caller has enough. */
struct Over {};

/** What is asked for. */
class Call {
  public:
    /** Borrows the options, which must have a URL and a bucket. */
    Call(const char *path, const TAV_FleetOptions &options) : path_(path), options_(options) {}

    const std::string &Path() const { return path_; }
    std::string Urls() const { return options_.url; }
    std::string BucketName() const { return options_.bucket; }
    std::string Refer() const { return options_.refer != nullptr ? options_.refer : ""; }
    bool IgnoresRefer() const { return options_.ignoreRefer != 0; }
    std::chrono::milliseconds Wait() const { return std::chrono::milliseconds(options_.waitMs); }
    bool Has(uint32_t flag) const { return (options_.flags & flag) != 0; }

    bool IsOver() const { return options_.isOver != nullptr && options_.isOver(options_.context) != 0; }

    /** Lets a moment pass. Throws Over. */
    void Pause() const;

    /** Tells what has become of a generation. */
    void Report(uint32_t kind, const Head &head, uint64_t edits = 0);

    /** Tells what hinders, once until something else is told. */
    void Notice(const std::string &text);

    /**
     * Lets a moment pass after an error that ends a connection, and that another one may not meet: the server is away,
     * or has come back and does not have its buckets yet, or somebody else has written. Called by a handler, which is
     * left by the same error when it is of another kind. Throws Over.
     */
    void Endure(const tav::Error &error);

    /** A connection is there. */
    void Reached() { away_.reset(); }

  private:
    const std::string path_;
    const TAV_FleetOptions &options_;
    std::string noticed_;
    std::optional<std::chrono::steady_clock::time_point> away_;  // when the server last was
};

/** How long a call sleeps at most before it asks whether it is over. */
inline constexpr std::chrono::milliseconds kNap{200};

}  // namespace fleet

#endif
