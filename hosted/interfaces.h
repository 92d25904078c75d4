/*
 * Everything that the hosted platform exports, declared with default visibility.
 *
 * The interface headers belong to the platform's users and carry no attributes; the library is compiled with hidden
 * visibility. Every source file of the platform takes the interfaces from here.
 */
#ifndef HOSTED_INTERFACES_H
#define HOSTED_INTERFACES_H

// The system headers of the interfaces come first, outside of the pragma.
#include <cstdarg>
#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default)
#include "platform/bex_crypt.h"
#include "platform/bex_rbt.h"
#include "platform/bex_string.h"
#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"
#include "platform/data_type.h"
#include "platform/dms_message.h"
#include "platform/mel_assert.h"
#include "platform/mel_clock.h"
#include "platform/mel_environment.h"
#include "platform/mel_memory.h"
#include "platform/sll.h"
#include "tav_posix.h"
#include "tav_posix_bus.h"
#pragma GCC visibility pop

#endif
