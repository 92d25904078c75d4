/*
 * How the library reports: the debug switch is tested first, so that a disabled report costs one byte test and its
 * arguments are not even evaluated. The log's readers look for the reporting function's own name, so these are macros:
 * a helper function would report its own.
 */
#ifndef COMMON_LOG_H
#define COMMON_LOG_H

#include "tav_common.h"

/** Reports a message (printf format and arguments) under a function's name. For helpers of one exported function. */
#define TAV_LOG_AS(function, ...)                                        \
    do {                                                                 \
        if (TAV_GetDebugFlag() != 0) {                                   \
            TAV_DEBUG_Log("tav_debug", function, __LINE__, __VA_ARGS__); \
        }                                                                \
    } while (false)

/** Reports a message under the enclosing function's name. */
#define TAV_LOG(...) TAV_LOG_AS(__func__, __VA_ARGS__)

/** Reports a message and returns `result`. */
#define TAV_FAIL(result, ...) \
    do {                      \
        TAV_LOG(__VA_ARGS__); \
        return (result);      \
    } while (false)

/** Reports that something needed is not there, and returns `code`. */
#define TAV_FAIL_NULL(code) TAV_FAIL(code, "Null pointer, return 0x%x", code)

/** Reports that something needed is not there, and returns none. */
#define TAV_FAIL_NONE() TAV_FAIL(nullptr, "Null pointer, return 0x%x", 0u)

/** Reports and returns `code` when a pointer is null. */
#define TAV_RETURN_IF_NULL(pointer, code) \
    do {                                  \
        if ((pointer) == nullptr) {       \
            TAV_FAIL_NULL(code);          \
        }                                 \
    } while (false)

/** Reports and returns none when a pointer is null. */
#define TAV_NONE_IF_NULL(pointer)   \
    do {                            \
        if ((pointer) == nullptr) { \
            TAV_FAIL_NONE();        \
        }                           \
    } while (false)

#endif
