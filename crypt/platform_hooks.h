/*
 * The hook that is not reached by a wrapper alone: what is done without it takes other hooks.
 */
#ifndef CRYPT_PLATFORM_HOOKS_H
#define CRYPT_PLATFORM_HOOKS_H

#include "tav_crypt.h"

namespace crypt {

/** Returns the platform's BEX_CRYPT_PasswordEx, which the hook keeps once it is found; null when the platform lacks it.
 */
TAV_PasswordExFunc FindPasswordEx();

}  // namespace crypt

#endif
