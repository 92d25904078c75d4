/*
 * The source modules that take blocks, by name and by index.
 */
#ifndef HOSTED_MODULES_H
#define HOSTED_MODULES_H

#include <cstdint>

namespace hosted {

inline constexpr uint16_t kMaxModules = 256;

/** Index of the modules that have no name, or came when the table was full. */
inline constexpr uint16_t kOtherModules = 0;

/** Returns the index of a module and registers a new one; kOtherModules when that cannot be done. */
uint16_t FindModule(const char *name);

/** Returns how many modules there are, kOtherModules included. */
uint16_t ModuleCount();

/** Returns the name of a module, which lives as long as the process. */
const char *ModuleName(uint16_t index);

}  // namespace hosted

#endif
