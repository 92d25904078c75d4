/*
 * What the bus's subjects are called.
 */
#include "fleet/bus_subjects.h"

#include <cerrno>
#include <charconv>

#include "fleet/connection.h"

namespace fleet {

namespace {

constexpr size_t kLongestPrefix = 100;

bool IsLetterOfPrefix(char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || (letter >= '0' && letter <= '9') ||
           letter == '-' || letter == '_' || letter == '.';
}

/** Returns whether a text is words of letters, digits, - and _ with single dots between them. */
bool IsPrefix(const std::string &text) {
    for (const char letter : text) {
        if (!IsLetterOfPrefix(letter)) {
            return false;
        }
    }
    return !text.empty() && text.size() <= kLongestPrefix && text.front() != '.' && text.back() != '.' &&
           text.find("..") == std::string::npos;
}

/** Takes the last word off a subject. */
std::string_view TakeLastWord(std::string_view *subject) {
    const size_t dot = subject->rfind('.');
    const std::string_view word = subject->substr(dot + 1);
    *subject = subject->substr(0, dot == std::string_view::npos ? 0 : dot);
    return word;
}

}  // namespace

std::string BusPrefix() {
    std::string prefix = TrustedSetting("TAV_BUS_PREFIX");
    if (prefix.empty()) {
        return "tav";
    }
    if (!IsPrefix(prefix)) {
        throw Refusal(EINVAL, "TAV_BUS_PREFIX must be words of letters, digits, - and _ with dots between them");
    }
    return prefix;
}

std::string MessageSubject(const std::string &prefix, uint32_t sender, uint32_t receiver) {
    return prefix + ".m." + std::to_string(sender) + "." + std::to_string(receiver);
}

std::string MessagesTo(const ComponentName &component) {
    return component.prefix + ".m.*." + std::to_string(component.id);
}

uint32_t SenderIn(std::string_view subject) {
    TakeLastWord(&subject);
    const std::string_view word = TakeLastWord(&subject);
    uint32_t sender = 0;
    std::from_chars(word.data(), word.data() + word.size(), sender);
    // one spelling for one component: permissions are given by the text
    return std::to_string(sender) == word ? sender : 0;
}

std::string ClaimSubject(const ComponentName &component) {
    return component.prefix + ".b." + std::to_string(component.id);
}

std::string ServiceSubject(const std::string &prefix, uint32_t kind, uint32_t vr, uint32_t vsId) {
    return prefix + ".s." + std::to_string(kind) + "." + std::to_string(vr) + "." + std::to_string(vsId);
}

std::string AskSubject(const std::string &service) {
    return service + ".ask";
}

std::string NewsSubject(const std::string &service) {
    return service + ".new";
}

}  // namespace fleet
