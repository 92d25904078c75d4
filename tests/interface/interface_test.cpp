/*
 * What the library shows to the outside, looked at as a packager does: exported names, needed libraries, start-up code,
 * and headers that compile alone.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

/** Runs a command, which must succeed. Returns what it printed. */
std::string Shell(const std::string &command) {
    FILE *pipe = popen((command + " 2>&1").c_str(), "r");
    std::string output;
    for (int letter; (letter = fgetc(pipe)) != EOF;) {
        output += static_cast<char>(letter);
    }
    EXPECT_EQ(pclose(pipe), 0) << command << "\n" << output;
    return output;
}

/** Returns the lines that readelf prints of the library, cut into columns. */
std::vector<std::vector<std::string>> Table(const std::string &option) {
    std::istringstream lines(Shell(std::string(TAV_READELF) + " " + option + " -W " TAV_LIBRARY));
    std::vector<std::vector<std::string>> table;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        table.emplace_back(std::istream_iterator<std::string>(words), std::istream_iterator<std::string>());
    }
    return table;
}

/** Whether a header is C++ alone: those of libtav_session for C++ programs. */
bool IsForCxxAlone(const std::filesystem::path &header) {
    return header.parent_path().filename() == "tav";
}

/**
 * Returns the exported names that the library's headers declare: each stands before a parenthesis, bracket or
 * semicolon. tav_session.h is another library's.
 */
std::set<std::string> DeclaredNames() {
    std::istringstream lines(
        Shell("grep -rhoP --exclude-dir=tav --exclude=tav_session.h "
              "'^TAV_API (TAV_PRINTF_FORMAT\\([^)]*\\) )?\\K[^([;]*' " TAV_INCLUDE));
    std::set<std::string> names;
    for (std::string line; std::getline(lines, line);) {
        names.insert(line.substr(line.find_last_of(" *") + 1));
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
    const std::set<std::string> declared = DeclaredNames();
    EXPECT_GT(declared.size(), 90u);
    EXPECT_THAT(exported, testing::UnorderedElementsAreArray(declared));
}

TEST(Interface, NeedsAndStartsNoMoreThanItSays) {
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
    const std::set<std::string> allowed = {"libc", TAV_HOSTED ? "libtav_posix" : "libc"};
    EXPECT_THAT(libraries, testing::IsSubsetOf(allowed));
    for (const std::vector<std::string> &columns : Table("-S")) {
        // [number], name, type, address, offset, size; a blank in the number's brackets shifts them by one
        for (size_t at = 1; at + 4 < columns.size() && at <= 2; ++at) {
            EXPECT_NE(columns[at], ".ctors");
            EXPECT_NE(columns[at], ".preinit_array");
            if (columns[at] == ".init_array") {
                // The C start files bring one entry (frame_dummy); a constructor or a static object would be a second.
                EXPECT_LE(std::stoul(columns[at + 4], nullptr, 16), sizeof(void *));
            }
        }
    }
}

TEST(Interface, EveryHeaderCompilesAlone) {
    const std::string warnings =
        " -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only -I " TAV_INCLUDE " ";
    const std::vector<std::string> compilers = {std::string(TAV_C_COMPILER) + " -std=c11 -x c" + warnings,
                                                std::string(TAV_CXX_COMPILER) + " -std=c++20 -x c++" + warnings};
    int count = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(TAV_INCLUDE)) {
        if (entry.path().extension() == ".h") {
            ++count;
            const std::string include =  // twice, for the guard
                "#include \"" + std::filesystem::relative(entry.path(), TAV_INCLUDE).string() + "\"\\n";
            for (size_t at = IsForCxxAlone(entry.path()) ? 1 : 0; at < compilers.size(); ++at) {
                Shell("printf '" + include + include + "int unused;\\n' | " + compilers[at] + "-");
            }
        }
    }
    EXPECT_GE(count, 13);
}

}  // namespace
