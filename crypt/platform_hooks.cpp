/*
 * The platform's entry points that are looked up at run time, so that the library loads where they are missing; and the
 * random numbers made of them.
 */
#include "crypt/platform_hooks.h"

#include <dlfcn.h>

TAV_IsStringCipherFunc g_pfn_SYSDT_IsStringCipher_CRYPT;
TAV_SaltFunc g_pfn_BEX_CRYPT_Salt;
TAV_Password4096Func g_pfn_BEX_CRYPT_Password_4096;
TAV_PasswordExFunc g_pfn_BEX_CRYPT_PasswordEx;
TAV_RandomFunc g_pfn_CRYPT_random;
uint32_t g_uiSaltRandValue;

namespace {

/** Fills a hook that is still empty with the process's function of a name. Returns whether there is one. */
template <typename Function>
bool FillHook(const char *name, Function **hook) {
    if (*hook == nullptr) {
        *hook = reinterpret_cast<Function *>(dlsym(RTLD_DEFAULT, name));
    }
    return *hook != nullptr;
}

}  // namespace

TAV_PasswordExFunc crypt::FindPasswordEx() {
    FillHook("BEX_CRYPT_PasswordEx", &g_pfn_BEX_CRYPT_PasswordEx);
    return g_pfn_BEX_CRYPT_PasswordEx;
}

uint32_t TAV_SYSDT_IsStringCipher_CRYPT(const char *text, uint32_t length, uint32_t mode, const char *keyContext) {
    return FillHook("SYSDT_IsStringCipher_CRYPT", &g_pfn_SYSDT_IsStringCipher_CRYPT)
               ? g_pfn_SYSDT_IsStringCipher_CRYPT(text, length, mode, keyContext)
               : TAV_CRYPT_FAILED;
}

uint32_t TAV_BEX_CRYPT_Salt(uint8_t *buffer, uint32_t length) {
    return FillHook("BEX_CRYPT_Salt", &g_pfn_BEX_CRYPT_Salt) ? g_pfn_BEX_CRYPT_Salt(buffer, length) : TAV_CRYPT_FAILED;
}

uint32_t TAV_BEX_CRYPT_Password_4096(const char *password, uint32_t passwordLength, const uint8_t *salt,
                                     uint32_t saltLength, char *output, uint32_t outputSize) {
    return FillHook("BEX_CRYPT_Password_4096", &g_pfn_BEX_CRYPT_Password_4096)
               ? g_pfn_BEX_CRYPT_Password_4096(password, passwordLength, salt, saltLength, output, outputSize)
               : TAV_CRYPT_FAILED;
}

uint32_t TAV_CRYPT_random(void *buffer, uint32_t length) {
    return FillHook("CRYPT_random", &g_pfn_CRYPT_random) ? g_pfn_CRYPT_random(buffer, length) : TAV_CRYPT_FAILED;
}

uint32_t TAV_GetRandomValue() {
    uint32_t value = 0;
    return TAV_CRYPT_random(&value, sizeof(value)) == 0 ? value : UINT32_MAX;
}
