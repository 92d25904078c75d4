// Stored passwords and secrets: what is made is verified and, changed or of any content, taken for what it is.
#include "tav_crypt.h"

#include <cstring>

#include "platform/bex_crypt.h"
#include "support.h"

static constexpr const char *kContext = "context";

/** Takes a stored form: any text, or one that was made of the password, perhaps with a changed character. */
static std::string TakeForm(FuzzedDataProvider *input, const std::string &password) {
    TAV_SYS_PASSWORD_S record = {};
    const auto mode = input->ConsumeIntegralInRange<uint32_t>(0, 2);
    if (mode == 0) {
        return input->ConsumeRemainingBytesAsString();
    }
    const auto length = static_cast<uint32_t>(password.size());
    assert(TAV_CRYPT_Encrypt_Sec(password.data(), length, record.text, TAV_PWD_BUFFER_SIZE, mode, kContext) == 0);
    assert(TAV_VerifySystemPassword_Enh(password.c_str(), record.text, kContext) == 0);
    char &changed = record.text[input->ConsumeIntegralInRange<size_t>(0, strlen(record.text) - 1)];
    changed = static_cast<char>(changed ^ input->ConsumeIntegralInRange(0, 7));
    return record.text;
}

void Fuzz(FuzzedDataProvider *input) {
    // Hashes of passwords are slow by design: none is made here, and salted forms are recognised but not verified.
    g_pfn_BEX_CRYPT_PasswordEx = [](const char *, uint32_t, char *, uint32_t *, uint32_t) { return 1u; };
    TAV_SYS_PASSWORD_S record = {{}, input->ConsumeIntegralInRange<uint8_t>(0, 7)};
    const std::string password = input->ConsumeRandomLengthString(100).c_str(), form = TakeForm(input, password);
    const Bytes bytes(form.begin(), form.end());
    const auto *const text = reinterpret_cast<const char *>(bytes.data());  // without a terminator
    const auto length = static_cast<uint32_t>(bytes.size());
    char plain[TAV_PWD_BUFFER_SIZE] = "";
    const uint32_t kind = TAV_CRYPT_IsCipher(text, length, nullptr, kContext);
    assert(kind == 8 || TAV_CRYPT_Decrypt_Sec(text, length, plain, sizeof(plain), 0, kContext) != 0);
    TAV_ValidateStrWithQuotes(text, length);
    form.copy(record.text, sizeof(record.text));
    assert((TAV_GetPasswordType(&record) == 0xFF) == (TAV_CheckSystemPassword(&record) != 0));
    if (BEX_CRYPT_IsPasswordCipher(text, length) != 0 && record.text[TAV_PWD_TEXT_SIZE - 1] == 0) {
        TAV_VerifyEncryptSystemPassword_Enh(password.c_str(), kContext, &record, kContext);
        TAV_VerifySystemPassword(password.c_str(), record.text, kContext);
        TAV_DecryptAndVerify_Enh(record.text, plain, kContext, &record, kContext);
        const char *history[TAV_PWD_HISTORY_COUNT] = {record.text};
        TAV_CheckLocUserPassword(password.c_str(), form.c_str(), record.form & 1, 1, history, 1);
        TAV_StrValidate(record.text, record.form & 1, record.form & 2, record.form & 4);
        Bytes digits(form.size() + 1), data(400);
        uint32_t count = 0;
        TAV_AsciiUnvisible(record.text, digits.data(), &count);
        TAV_AsciiToBin(digits.data(), count, data.data(), 400, nullptr);
    }
}
