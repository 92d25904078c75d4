/*
 * What is wrong with a piece of data, said where its place is not known.
 */
#ifndef SESSION_PROBLEM_H
#define SESSION_PROBLEM_H

#include <stdexcept>

namespace session {

/** What is wrong with a piece of data. Whoever knows its place turns it into a tav::Error. */
class Problem : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace session

#endif
