/*
 * Base 93: every four bytes become five printable characters. The frame and its words are big-endian on every host, so
 * that a stored text means the same everywhere.
 */
#include "common/words.h"
#include "crypt/secret.h"
#include "tav_crypt.h"

using crypt::SecretBlock;

namespace {

constexpr uint32_t kBase = 93;
constexpr uint32_t kDigitsPerWord = 5;
constexpr uint32_t kBytesPerWord = 4;
constexpr uint32_t kFrameHead = 2;   // bytes of the length before the data
constexpr char kFirstVisible = '!';  // the character of the digit 0
constexpr char kHidden = '?';        // not shown, because it asks for help on a command line
constexpr char kHiddenShownAs = '~';

/** Words of the frame that the encoder makes of that many bytes: as few as hold it. */
uint32_t EncodedWords(uint16_t length) {
    return (kFrameHead + length + kBytesPerWord - 1) / kBytesPerWord;
}

/**
 * Words of the frame that the decoder asks for: one more than the encoder makes when the frame fills its words. Stored
 * texts are told from others by this rule, so both roundings stay as they are.
 */
uint32_t DecodedWords(uint16_t length) {
    return (kFrameHead + length) / kBytesPerWord + 1;
}

}  // namespace

uint32_t TAV_LongToDesEnhSys(uint32_t value, uint8_t *output) {
    if (output == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    for (; value != 0; value /= kBase) {  // leading zeros are not written: the caller has zeroed the output
        *output++ = static_cast<uint8_t>(value % kBase);
    }
    return TAV_CRYPT_OK;
}

uint32_t TAV_DesEnhSysToLong(const uint8_t *digits, uint32_t *value) {
    if (digits == nullptr || value == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    uint32_t word = 0;
    for (uint32_t i = kDigitsPerWord; i-- > 0;) {
        word = word * kBase + digits[i];
    }
    *value = word;
    return TAV_CRYPT_OK;
}

uint32_t TAV_BinToAscii(const void *data, uint16_t length, uint8_t *output, uint32_t *outputLength, ...) {
    if (data == nullptr || output == nullptr || outputLength == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    SecretBlock<uint8_t> frame(kFrameHead + length + kBytesPerWord - 1);
    if (frame.data() == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    common::StoreBigEndian(length, frame.data());
    if (memcpy_s(frame.data() + kFrameHead, frame.size() - kFrameHead, data, length) != 0) {
        return TAV_CRYPT_FAILED;
    }
    const uint8_t *word = frame.data();
    const uint32_t words = EncodedWords(length);
    for (uint32_t i = 0; i < words; ++i) {
        TAV_LongToDesEnhSys(common::LoadBigEndian<uint32_t>(word), output);
        word += kBytesPerWord;
        output += kDigitsPerWord;
    }
    *outputLength = words * kDigitsPerWord;
    return TAV_CRYPT_OK;
}

uint32_t TAV_AsciiToBinAndGetLen(const uint8_t *digits, void *output, uint32_t digitCount, uint16_t *length) {
    if (digits == nullptr || output == nullptr || length == nullptr || digitCount < kDigitsPerWord) {
        return TAV_CRYPT_FAILED;
    }
    auto *bytes = static_cast<uint8_t *>(output);
    for (; digitCount >= kDigitsPerWord; digitCount -= kDigitsPerWord) {
        uint32_t word = 0;
        TAV_DesEnhSysToLong(digits, &word);
        common::StoreBigEndian(word, bytes);
        digits += kDigitsPerWord;
        bytes += kBytesPerWord;
    }
    *length = common::LoadBigEndian<uint16_t>(output);
    return TAV_CRYPT_OK;
}

uint32_t TAV_AsciiToBin(const uint8_t *digits, uint32_t digitCount, void *output, uint32_t outputSize, uint16_t *length,
                        ...) {
    if (digits == nullptr || output == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    if (digitCount % kDigitsPerWord != 0) {
        return TAV_PWD_MISMATCH;
    }
    if (digitCount == 0) {
        return TAV_CRYPT_FAILED;
    }
    SecretBlock<uint8_t> frame(digitCount / kDigitsPerWord * kBytesPerWord);
    uint16_t stated = 0;
    if (frame.data() == nullptr || TAV_AsciiToBinAndGetLen(digits, frame.data(), digitCount, &stated) != TAV_CRYPT_OK ||
        stated == 0 || stated > outputSize) {
        return TAV_CRYPT_FAILED;
    }
    if (frame.size() != DecodedWords(stated) * kBytesPerWord) {
        return TAV_PWD_MISMATCH;
    }
    if (memcpy_s(output, outputSize, frame.data() + kFrameHead, frame.size() - kFrameHead) != 0) {
        return TAV_CRYPT_FAILED;
    }
    if (length != nullptr) {
        *length = stated;
    }
    return TAV_CRYPT_OK;
}

uint32_t TAV_AsciiVisible(const uint8_t *digits, uint32_t count, char *output, uint32_t outputSize) {
    if (digits == nullptr || output == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    if (outputSize < count) {
        return 1;
    }
    for (uint32_t i = 0; i < count; ++i) {
        output[i] = TAV_QuestionMarkToWave(static_cast<char>(digits[i] + kFirstVisible));
    }
    return TAV_CRYPT_OK;
}

uint32_t TAV_AsciiUnvisible(const char *text, uint8_t *output, uint32_t *count) {
    if (text == nullptr || output == nullptr || count == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    *count = BEX_StrLen(text);
    for (uint32_t i = 0; i < *count; ++i) {
        output[i] = static_cast<uint8_t>(TAV_WaveToQuestionMark(text[i]) - kFirstVisible);
    }
    return TAV_CRYPT_OK;
}

char TAV_QuestionMarkToWave(char character) {
    return character == kHidden ? kHiddenShownAs : character;
}

char TAV_WaveToQuestionMark(char character) {
    return character == kHiddenShownAs ? kHidden : character;
}
