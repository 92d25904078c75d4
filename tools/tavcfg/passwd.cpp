#include "passwd.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "errors.h"
#include "file.h"
#include "platform/bex_crypt.h"
#include "secret_input.h"

namespace tavcfg {

namespace {

constexpr uint8_t kStoredForm = 0;  // of a record that holds a cipher or an irreversible form
constexpr uint32_t kMinCipherKind = 2;

/** Asks for the password of a command. */
void ReadPassword(Asking asking, SecretText *password) {
    ReadLine("password", asking, password);
}

/** What the policy holds against a password. */
std::string ExplainVerdict(uint32_t code) {
    switch (code) {
        case TAV_PWD_UNUSABLE:
            return "it is empty, or made of asterisks alone";
        case TAV_PWD_TOO_SHORT:
            return "it is too short: less than 8 characters";
        case TAV_PWD_TOO_SIMPLE_BASIC:
            return "it lacks a digit, an upper-case letter, or a character that is neither digit nor letter";
        case TAV_PWD_TOO_SIMPLE_STRICT:
            return "it lacks a digit, an upper-case or lower-case letter, or a character that is neither digit nor "
                   "letter";
        case TAV_PWD_LIKE_NAME:
            return "it contains the user name, forwards or backwards";
        case TAV_PWD_NAME_LIKE_PASSWORD:
            return "the user name contains it, forwards or backwards";
        case TAV_PWD_IN_HISTORY:
            return "it is one of the last passwords";
        default:
            return "the check failed";
    }
}

/**
 * Finds out why a text is no stored form that this platform can use; a reversible one only when `takesReversible`.
 * Empty when it is one.
 */
std::string FormProblem(const std::string &form, const char *keyContext, bool takesReversible) {
    const auto length = static_cast<uint32_t>(form.size());
    if (form.size() >= TAV_PWD_BUFFER_SIZE || form.find('\0') != std::string::npos) {
        return "it is no stored form";
    }
    if (BEX_CRYPT_IsPasswordCipher(form.c_str(), length) == 0) {
        // Without a password nothing is computed, but the form is looked at first.
        return BEX_VerifySystemPassword(nullptr, 0, form.c_str()) == EOPNOTSUPP
                   ? "it is a salted form that costs more than this platform allows, or one that was cut short"
                   : std::string();
    }
    if (TAV_IsStringSHACipher(form.c_str()) == 0) {
        return {};
    }
    if (BEX_CRYPT_IsCipher(form.c_str(), length) < kMinCipherKind) {
        return "it is no stored form";
    }
    SecretText plain;
    uint32_t plainLength = SecretText::capacity();
    uint32_t code = BEX_Decrypt_AES256_Sec(form.c_str(), length, plain.data(), &plainLength, keyContext);
    if (code == EINVAL && !takesReversible) {
        return "it is a reversible cipher text (see tavcfg decrypt)";
    }
    if (code == EINVAL) {
        code = TAV_CRYPT_Decrypt(form.c_str(), plain.data(), SecretText::capacity(), keyContext);
    }
    return code == 0 ? std::string() : ExplainCipher(code);
}

/** Takes a carriage return off the end of a line. */
std::string WithoutReturn(std::string line) {
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    return line;
}

/** A password history, as the library wants it. */
class History {
  public:
    /** Reads a stored form a line. Throws Failure, also for an entry that the library would pass over. */
    explicit History(const std::string &file) {
        std::string text = ReadText(file);
        for (size_t number = 0; !text.empty(); ++number) {
            const size_t end = std::min(text.find('\n'), text.size());
            Add(file, number, WithoutReturn(text.substr(0, end)));
            text.erase(0, end + 1);
        }
    }
    History(const History &) = delete;
    History &operator=(const History &) = delete;

    const char *const *Get() const { return entries_.data(); }

  private:
    void Add(const std::string &file, size_t number, const std::string &form) {
        if (number == TAV_PWD_HISTORY_COUNT) {
            throw Failure(fmt::format("cannot use {}: it has more than {} lines", file, TAV_PWD_HISTORY_COUNT));
        }
        const std::string problem = FormProblem(form, TAV_PWD_HISTORY_CONTEXT, true);
        if (!problem.empty()) {
            throw Failure(fmt::format("cannot use {}: line {}: {}", file, number + 1, problem));
        }
        TAV_SYS_PASSWORD_S &record = records_[number];
        memcpy(record.text, form.c_str(), form.size() + 1);
        record.form = kStoredForm;
        entries_[number] = record.text;
    }

    std::array<TAV_SYS_PASSWORD_S, TAV_PWD_HISTORY_COUNT> records_ = {};
    std::array<const char *, TAV_PWD_HISTORY_COUNT> entries_ = {};
};

/** The stored form that the options give. */
std::string StoredForm(const PasswdVerifyOptions &options) {
    if (!options.form.empty()) {
        return options.form;
    }
    std::string form = ReadText(options.formFile);
    if (!form.ends_with('\n')) {
        return form;
    }
    form.pop_back();
    return WithoutReturn(form);
}

}  // namespace

int RunPasswdCheck(const PasswdCheckOptions &options) {
    const bool isStrict = options.isStrict || !options.isBasic;
    std::optional<History> history;
    if (!options.history.empty()) {
        history.emplace(options.history);
    }
    SecretText password;
    ReadPassword(Asking::kHidden, &password);
    const uint32_t code =
        TAV_CheckLocUserPassword(password.data(), options.user ? options.user->c_str() : nullptr, isStrict ? 1 : 0,
                                 options.isBasic ? 1 : 0, history ? history->Get() : nullptr, 0);
    if (code != TAV_CRYPT_OK) {
        throw Denial(fmt::format("the password is not acceptable: {} (code 0x{:x})", ExplainVerdict(code), code));
    }
    fmt::print("the password is acceptable\n");
    return 0;
}

int RunPasswdHash(const PasswdHashOptions &options) {
    SecretText password;
    ReadPassword(Asking::kHiddenTwice, &password);
    if (password.size() == 0) {
        throw Failure("the password is empty");
    }
    char form[TAV_PWD_BUFFER_SIZE] = "";
    const uint32_t code = options.isLegacy
                              ? TAV_CRYPT_EncryptPassword4096(password.data(), password.size(), form, sizeof(form))
                              : TAV_EncryptSystemPassword(password.data(), form, sizeof(form));
    if (code != TAV_CRYPT_OK) {
        throw Failure(fmt::format("cannot make a stored form: the platform fails (code 0x{:x})", code));
    }
    fmt::print("{}\n", form);
    return 0;
}

int RunPasswdVerify(const PasswdVerifyOptions &options) {
    const std::string form = StoredForm(options);
    const std::string problem = FormProblem(form, options.context.c_str(), false);
    if (!problem.empty()) {
        throw Failure(fmt::format("cannot use the stored form: {}{}", problem,
                                  options.form.empty() ? "" : " (FORM stands in single quotes, for the shell)"));
    }
    SecretText password;
    ReadPassword(Asking::kHidden, &password);
    const uint32_t code = TAV_VerifySystemPassword(password.data(), form.c_str(), options.context.c_str());
    if (code != TAV_CRYPT_OK) {
        throw Denial("the password does not match the stored form");
    }
    fmt::print("the password matches\n");
    return 0;
}

}  // namespace tavcfg
