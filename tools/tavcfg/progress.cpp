#include "progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <system_error>

#include "terminal.h"

namespace tavcfg {

namespace {

/** Says every second how long it takes, until it is over. */
void Show(const std::stop_token &isOver, const std::string &what) {
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any sleeping;
    int seconds = 0;
    while (!sleeping.wait_for(lock, isOver, std::chrono::seconds(1), [&] { return isOver.stop_requested(); })) {
        fputs(fmt::format("\rtavcfg: {}, {} s", what, ++seconds).c_str(), stderr);
    }
    if (seconds > 0) {
        fputs("\r\x1b[K", stderr);
    }
}

}  // namespace

Progress::Progress(const std::string &what, bool prints) {
    if (isatty(STDERR_FILENO) != 0 && !(prints && isatty(STDOUT_FILENO) != 0)) {
        try {
            thread_ = std::jthread(Show, Cut(Printable(what), 60));  // so that the line has no end on most terminals
        } catch (const std::system_error &) {
            // No thread to be had: the work itself needs none.
        }
    }
}

}  // namespace tavcfg
