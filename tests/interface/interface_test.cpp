/*
 * What the library shows to the outside, looked at as a packager does: exported names, needed libraries, start-up code,
 * and headers that compile alone.
 */
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Output {
    int status;
    std::string text;
};

Output Shell(const std::string &command) {
    FILE *pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return {-1, "cannot run " + command};
    }
    Output output{0, {}};
    std::array<char, 4096> buffer;
    for (size_t count; (count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.text.append(buffer.data(), count);
    }
    output.status = pclose(pipe);
    return output;
}

/** The lines that readelf prints of the library, cut into columns. */
std::vector<std::vector<std::string>> Table(const std::string &option) {
    Output output = Shell(std::string(TAV_READELF) + " " + option + " -W " TAV_LIBRARY);
    EXPECT_EQ(output.status, 0) << output.text;
    std::vector<std::vector<std::string>> table;
    std::istringstream lines(output.text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        table.emplace_back(std::istream_iterator<std::string>(words), std::istream_iterator<std::string>());
    }
    return table;
}

std::vector<std::filesystem::path> Headers() {
    std::vector<std::filesystem::path> headers;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(TAV_INCLUDE)) {
        if (entry.path().extension() == ".h") {
            headers.push_back(entry.path());
        }
    }
    return headers;
}

/** Cuts everything between two marks out of a text, the marks included. */
std::string Without(std::string text, std::string_view begin, std::string_view end) {
    for (size_t at; (at = text.find(begin)) != std::string::npos;) {
        text.erase(at, text.find(end, at) + end.size() - at);
    }
    return text;
}

/** The names that the headers declare for export: the last word before the first parenthesis, bracket or semicolon. */
std::set<std::string> DeclaredNames() {
    const std::string mark = "\nTAV_API ";
    std::set<std::string> names;
    for (const std::filesystem::path &header : Headers()) {
        std::ifstream file(header);
        std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        text = Without(Without(text, "/*", "*/"), "TAV_PRINTF_FORMAT(", ")");
        for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
            std::string declaration = text.substr(at, text.find_first_of("([;", at) - at);
            names.insert(declaration.substr(declaration.find_last_of(" *") + 1));
        }
    }
    return names;
}

TEST(Interface, ExportsWhatTheHeadersDeclare) {
    std::set<std::string> exported;
    for (const std::vector<std::string> &columns : Table("--dyn-syms")) {
        // number, value, size, type, binding, visibility, section, name
        if (columns.size() >= 8 && (columns[4] == "GLOBAL" || columns[4] == "WEAK") && columns[6] != "UND" &&
            !columns[7].starts_with("__odr_asan")) {
            exported.insert(columns[7]);
        }
    }
    std::set<std::string> declared = DeclaredNames();
    EXPECT_GT(declared.size(), 90u);
    EXPECT_EQ(exported, declared);
}

TEST(Interface, NeedsNoMoreThanItSays) {
#ifdef TAV_SANITIZED
    GTEST_SKIP() << "the sanitizers bring libraries and start-up code of their own";
#endif
    std::set<std::string> libraries;
    for (const std::vector<std::string> &columns : Table("-d")) {
        // tag, (NEEDED), Shared, library:, [name.so.1]
        if (columns.size() == 5 && columns[1] == "(NEEDED)") {
            libraries.insert(columns[4].substr(1, columns[4].find('.') - 1));
        }
    }
    std::set<std::string> allowed = {"libc"};
    if (TAV_HOSTED) {
        allowed.insert("libtav_posix");
    }
    for (const std::string &library : libraries) {
        EXPECT_TRUE(allowed.count(library) > 0) << library;
    }
}

/** The C start files bring one entry of their own (frame_dummy); a constructor or a static object would be a second. */
TEST(Interface, HasNoStartUpCode) {
#ifdef TAV_SANITIZED
    GTEST_SKIP() << "the sanitizers bring libraries and start-up code of their own";
#endif
    for (const std::vector<std::string> &columns : Table("-S")) {
        // [number], name, type, address, offset, size; a blank in the number's brackets shifts them by one
        for (size_t at = 1; at + 4 < columns.size() && at <= 2; ++at) {
            EXPECT_NE(columns[at], ".ctors");
            EXPECT_NE(columns[at], ".preinit_array");
            if (columns[at] == ".init_array") {
                EXPECT_LE(std::stoul(columns[at + 4], nullptr, 16), sizeof(void *)) << "start-up code";
            }
        }
    }
    for (const std::vector<std::string> &columns : Table("-s")) {
        EXPECT_FALSE(!columns.empty() && columns.back().starts_with("_GLOBAL__sub_I")) << columns.back();
    }
}

TEST(Interface, EveryHeaderCompilesAlone) {
    const std::string warnings =
        " -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only -I " TAV_INCLUDE " ";
    const std::vector<std::string> compilers = {std::string(TAV_C_COMPILER) + " -std=c11 -x c" + warnings,
                                                std::string(TAV_CXX_COMPILER) + " -std=c++20 -x c++" + warnings};
    ASSERT_GE(Headers().size(), 13u);
    for (const std::filesystem::path &header : Headers()) {
        std::string name = std::filesystem::relative(header, TAV_INCLUDE).string();
        for (const std::string &compiler : compilers) {
            // Twice, for the guard.
            Output output = Shell("printf '#include \"" + name + "\"\\n#include \"" + name + "\"\\nint unused;\\n' | " +
                                  compiler + "-");
            EXPECT_EQ(output.status, 0) << name << "\n" << output.text;
        }
    }
}

}  // namespace
