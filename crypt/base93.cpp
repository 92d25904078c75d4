/*
 * Base 93: every four bytes become five printable characters. The frame and its words are big-endian on every host, so
 * that a stored text means the same everywhere.
 */
#include "crypt/secret.h"
#include "tav_crypt.h"

using namespace crypt;

namespace {

constexpr uint32_t kBase = 93;
constexpr uint32_t kDigitsPerWord = 5;
constexpr uint32_t kBytesPerWord = 4;
constexpr uint32_t kFrameHead = 2;   // the length before the data
constexpr char kFirstVisible = '!';  // the character of the digit 0
constexpr char kHidden = '?';        // never shown: it asks for help on a command line
constexpr char kHiddenShownAs = '~';

void StoreWord(uint32_t word, uint8_t *bytes) {
    for (uint32_t i = kBytesPerWord; i-- > 0; word >>= 8) {
        bytes[i] = static_cast<uint8_t>(word);
    }
}

uint32_t LoadWord(const uint8_t *bytes) {
    uint32_t word = 0;
    for (uint32_t i = 0; i < kBytesPerWord; ++i) {
        word = word << 8 | bytes[i];
    }
    return word;
}

/** Bytes that the decoder expects for a stated length: one word more than the encoder writes when length + 2 fits words
 * exactly. Kept on purpose, and so is the encoder's rounding. */
uint32_t FrameSize(uint16_t length) {
    return length + 6u - ((length + 2u) & 3u);
}

}  // namespace

uint32_t TAV_LongToDesEnhSys(uint32_t value, uint8_t *output) {
    if (output == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    for (; value != 0; value /= kBase) {  // leading zeros are not written, on purpose: the caller has zeroed the output
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
    SecretBlock frame(length + 5u);
    if (!frame.IsThere()) {
        return TAV_CRYPT_FAILED;
    }
    frame.Bytes()[0] = static_cast<uint8_t>(length >> 8);
    frame.Bytes()[1] = static_cast<uint8_t>(length);
    if (memcpy_s(frame.Bytes() + kFrameHead, frame.Size() - kFrameHead, data, length) != 0) {
        return TAV_CRYPT_FAILED;
    }
    const uint32_t words = ((length + 5u) & 0x1FFFC) / kBytesPerWord;
    for (uint32_t i = 0; i < words; ++i) {
        TAV_LongToDesEnhSys(LoadWord(frame.Bytes() + i * kBytesPerWord), output + i * kDigitsPerWord);
    }
    *outputLength = words * kDigitsPerWord;
    return TAV_CRYPT_OK;
}

uint32_t TAV_AsciiToBinAndGetLen(const uint8_t *digits, void *output, uint32_t digitCount, uint16_t *length) {
    if (digits == nullptr || output == nullptr || length == nullptr || digitCount < kDigitsPerWord) {
        return TAV_CRYPT_FAILED;
    }
    auto *const bytes = static_cast<uint8_t *>(output);
    for (uint32_t i = 0; i < digitCount / kDigitsPerWord; ++i) {
        uint32_t word = 0;
        TAV_DesEnhSysToLong(digits + i * kDigitsPerWord, &word);
        StoreWord(word, bytes + i * kBytesPerWord);
    }
    *length = static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
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
    SecretBlock frame(digitCount / kDigitsPerWord * kBytesPerWord);
    uint16_t stated = 0;
    if (!frame.IsThere() || TAV_AsciiToBinAndGetLen(digits, frame.Bytes(), digitCount, &stated) != TAV_CRYPT_OK ||
        stated == 0 || stated > outputSize) {
        return TAV_CRYPT_FAILED;
    }
    if (frame.Size() != FrameSize(stated)) {
        return TAV_PWD_MISMATCH;
    }
    if (memcpy_s(output, outputSize, frame.Bytes() + kFrameHead, frame.Size() - kFrameHead) != 0) {
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
