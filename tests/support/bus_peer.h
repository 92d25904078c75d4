/*
 * Another process on the bus, which does what a test tells it.
 */
#ifndef TAV_TESTS_BUS_PEER_H
#define TAV_TESTS_BUS_PEER_H

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

/** Runs as long as the object lives, on the bus that the environment says when it begins. */
class BusPeer {
  public:
    /**
     * @param changes  variables of the environment that it has otherwise
     * @param program  the program, when it is that of another machine
     */
    explicit BusPeer(const std::map<std::string, std::string> &changes = {}, const char *program = nullptr);
    ~BusPeer();
    BusPeer(const BusPeer &) = delete;
    BusPeer &operator=(const BusPeer &) = delete;

    pid_t Process() const { return process_; }

    /**
     * Gives it a command, and waits for its result:
     *
     *   bind ID; unbind ID; serve ID KIND VS            the code
     *   find KIND VS                                    the id, or the negative code
     *   send FROM TO SIZE [INTERFACES [CODE]]           the code; INTERFACES 103: interface 1, sub-interface 3
     *   receive ID MILLISECONDS                         the negative id of the sender, or the code
     *   stream FROM TO COUNT                            "CODE:TIMES " of what came of COUNT numbered messages
     *   drain ID LAST                                   "COUNT WRONG": received up to number LAST, and out of order
     *   query FROM TO N                                 the result: asks about a transfer with identifiers N, N+1, N+2
     *   asked ID                                        "LENGTH N N+1 N+2 OPERATION" of such a question
     *   order                                           "big" or "little"
     *   echo ID                                         twice: when it begins, and when nothing has come for 2 seconds
     */
    std::string Ask(const std::string &command);

    /** The same for results that are one number. */
    int64_t Do(const std::string &command) { return std::stoll(Ask(command)); }

    /** Gives it a command, whose result is read later. */
    void Tell(const std::string &command);
    std::string Result();

    /** What it has printed on standard error. */
    std::string Complaints() const;

    void Signal(int number) const;
    void Kill();

  private:
    pid_t process_ = 0;
    FILE *commands_ = nullptr, *results_ = nullptr, *complaints_ = nullptr;
};

#endif
