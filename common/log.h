/*
 * How the library reports failures. The debug switch is tested first, so that a disabled report costs one byte test and
 * its arguments are not even evaluated. The log's readers look for the reporting function's own name, so these are
 * macros: a function would report its own.
 */
#ifndef COMMON_LOG_H
#define COMMON_LOG_H

#include <cstddef>

#include "tav_common.h"

/** Reports a message (printf format and arguments) under a function's name. For helpers of one exported function. */
#define LOG_AS(function, ...)                                            \
    do {                                                                 \
        if (TAV_GetDebugFlag() != 0) {                                   \
            TAV_DEBUG_Log("tav_debug", function, __LINE__, __VA_ARGS__); \
        }                                                                \
    } while (false)

/** Reports a message under the enclosing function's name. */
#define LOG(...) LOG_AS(__func__, __VA_ARGS__)

/** Reports a message and returns `result`. */
#define FAIL(result, ...) \
    do {                  \
        LOG(__VA_ARGS__); \
        return (result);  \
    } while (false)

/** Reports a message and returns `result` unless a condition holds. */
#define FAIL_UNLESS(result, condition, ...) \
    do {                                    \
        if (!(condition)) {                 \
            FAIL(result, __VA_ARGS__);      \
        }                                   \
    } while (false)

/** Reports and returns `result`, a code or null, when one of the pointers that follow it is null. */
#define FAIL_IF_NULL(result, ...) \
    FAIL_UNLESS(result, !common::IsAnyNull(__VA_ARGS__), "Null pointer, return 0x%x", common::CodeOf(result))

namespace common {

/** Returns whether one of some pointers is null. */
template <typename... Pointer>
bool IsAnyNull(const Pointer &...pointer) {
    return ((pointer == nullptr) || ...);
}

/** Returns what the log shows of a result: a code as it is, null as 0. */
constexpr uint32_t CodeOf(uint32_t code) {
    return code;
}
constexpr uint32_t CodeOf(std::nullptr_t) {
    return 0;
}

}  // namespace common

#endif
