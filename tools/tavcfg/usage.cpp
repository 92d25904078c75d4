#include "usage.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "errors.h"

namespace tavcfg {

namespace {

/** A number that takes the whole of a text; nothing when the text is none. */
template <typename Number>
std::optional<Number> NumberOf(const std::string &text) {
    Number number{};
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/** How many letters must be put in, taken out, replaced or swapped with the next to make one word of another. */
size_t Distance(const std::string &a, const std::string &b) {
    std::vector<std::vector<size_t>> least(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t k = 0; k <= b.size(); ++k) {
            if (i == 0 || k == 0) {
                least[i][k] = i + k;
                continue;
            }
            const size_t replaced = least[i - 1][k - 1] + (a[i - 1] == b[k - 1] ? 0 : 1);
            least[i][k] = std::min({replaced, least[i - 1][k] + 1, least[i][k - 1] + 1});
            if (i > 1 && k > 1 && a[i - 1] == b[k - 2] && a[i - 2] == b[k - 1]) {
                least[i][k] = std::min(least[i][k], least[i - 2][k - 2] + 1);
            }
        }
    }
    return least[a.size()][b.size()];
}

/** Asks for the word that may have been meant, if one is near enough. */
std::string Suggest(const std::string &word, const std::vector<std::string> &words) {
    const auto distance = [&](const std::string &other) { return Distance(word, other); };
    const auto nearest = std::ranges::min_element(words, {}, distance);
    return nearest != words.end() && distance(*nearest) <= (word.size() + 1) / 3
               ? fmt::format("; did you mean {}?", *nearest)
               : "";
}

/** The commands of a command that have been given, itself the first. */
std::vector<const CLI::App *> Given(const CLI::App &app) {
    std::vector<const CLI::App *> chain = {&app};
    while (!chain.back()->get_subcommands().empty()) {
        chain.push_back(chain.back()->get_subcommands().front());
    }
    return chain;
}

std::vector<std::string> CommandsOf(const CLI::App &app) {
    std::vector<std::string> names;
    for (const CLI::App *command : app.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return names;
}

std::vector<std::string> OptionsOf(const CLI::App &app) {
    std::vector<std::string> names;
    for (const CLI::Option *option : app.get_options()) {
        for (const std::string &name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

bool IsOption(const std::string &word) {
    return word.size() > 1 && word[0] == '-';
}

bool TakesSecrets(const CLI::App &command) {
    const std::string &name = command.get_name();
    return name == "encrypt" || name == "decrypt" || command.get_parent()->get_name() == "passwd";
}

/** Says what is wrong with a word that a command does not take. */
std::string Unknown(const CLI::App &app, const std::string &word) {
    const std::string name = word.substr(0, word.find('='));
    const std::vector<std::string> commands = CommandsOf(app);
    if (IsOption(word) && !commands.empty()) {
        return fmt::format("'{}' is no option here; those of a command stand behind it", name);
    }
    if (IsOption(word)) {
        return fmt::format("'{}' is no option of {}{}", name, app.get_name(), Suggest(name, OptionsOf(app)));
    }
    if (commands.empty() && TakesSecrets(app)) {
        return "there is a word too many; passwords and texts stand on standard input";  // it may be one: not repeated
    }
    if (commands.empty()) {
        return fmt::format("'{}' is one word too many", word);
    }
    return fmt::format("'{}' is no command{}{}", word, app.get_parent() == nullptr ? "" : " of " + app.get_name(),
                       Suggest(word, commands));
}

/** The first word that a command does not take; options before others, as they may have parted those. */
const std::string *UnknownIn(const std::vector<std::string> &words, bool optionsFirst) {
    const auto option = std::ranges::find_if(words, IsOption);
    const auto first = optionsFirst && option != words.end() ? option : words.begin();
    return first != words.end() ? &*first : nullptr;
}

/** What is wrong, in words of our own where the parser's are not plain. */
std::string WhatIsWrong(const CLI::App &app, const CLI::ParseError &error) {
    const std::vector<const CLI::App *> given = Given(app);
    for (const CLI::App *command : given) {
        const std::vector<std::string> words = command->remaining();
        if (const std::string *word = UnknownIn(words, command == given.back())) {
            return Unknown(*command, *word);
        }
    }
    if (const std::vector<std::string> commands = CommandsOf(*given.back()); !commands.empty()) {
        return given.size() == 1
                   ? "no command is given"
                   : fmt::format("{}: give one of {}", given.back()->get_name(), fmt::join(commands, ", "));
    }
    std::string text = error.what();
    const std::string name = text.substr(0, text.find(": "));
    if (dynamic_cast<const CLI::ArgumentMismatch *>(&error) != nullptr) {
        return name + (text.find("received") != std::string::npos ? " is given twice" : ": its value is missing");
    }
    if (dynamic_cast<const CLI::ConversionError *>(&error) != nullptr) {
        return "a switch takes no value";  // all values have checks of their own
    }
    return text;
}

}  // namespace

CLI::Validator WholeNumber(uint64_t least, uint64_t most) {
    const auto check = [=](const std::string &text) {
        const std::optional<uint64_t> number = NumberOf<uint64_t>(text);
        return number && *number >= least && *number <= most
                   ? std::string()
                   : fmt::format("'{}' is no whole number from {} to {}", text, least, most);
    };
    return {check, ""};
}

CLI::Validator Seconds() {
    constexpr double kDay = 86400;
    const auto check = [=](const std::string &text) {
        const std::optional<double> number = NumberOf<double>(text);
        return number && *number >= 0 && *number <= kDay
                   ? std::string()
                   : fmt::format("'{}' is no number of seconds from 0 to {}", text, kDay);
    };
    return {check, ""};
}

CLI::Validator OneOf(const std::vector<std::string> &words) {
    const auto check = [words](const std::string &text) {
        return std::ranges::find(words, text) != words.end()
                   ? std::string()
                   : fmt::format("'{}' is none of {}", text, fmt::join(words, ", "));
    };
    return {check, ""};
}

CLI::Validator NotEmpty() {
    return {[](const std::string &text) { return text.empty() ? "its value is empty" : ""; }, ""};
}

void RefuseCommandLine(const CLI::App &app, const CLI::ParseError &error) {
    throw UsageError(WhatIsWrong(app, error) + " (see tavcfg --help)");
}

}  // namespace tavcfg
