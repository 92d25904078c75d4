/*
 * A sign of life while something takes long.
 */
#ifndef TAVCFG_PROGRESS_H
#define TAVCFG_PROGRESS_H

#include <string>
#include <thread>

namespace tavcfg {

/**
 * As long as it lives, and from one second on, a line on standard error says what is being done and for how long; it is
 * wiped in the end. Only when that is a terminal; elsewhere nothing is done. One at a time, and nothing may be printed
 * on the terminal meanwhile.
 */
class Progress {
  public:
    /** What is being done: "reading a.dat". When it prints, a terminal that shows the output needs no line as well. */
    explicit Progress(const std::string &what, bool prints = false);

  private:
    std::jthread thread_;  // whatever is done is a call of the library, which does not come back before its end
};

/** Does something with such a line. */
template <typename Work>
auto WithProgress(const std::string &what, Work work) {
    const Progress progress(what);
    return work();
}

}  // namespace tavcfg

#endif
