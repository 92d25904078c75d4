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

/** Returns the lines that readelf prints of a library, cut into columns. */
std::vector<std::vector<std::string>> Table(const std::string &option, const std::string &library = TAV_LIBRARY) {
    std::istringstream lines(Shell(std::string(TAV_READELF) + " " + option + " -W " + library));
    std::vector<std::vector<std::string>> table;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        table.emplace_back(std::istream_iterator<std::string>(words), std::istream_iterator<std::string>());
    }
    return table;
}

/** Returns the exported names that headers declare: each stands before a parenthesis, bracket or semicolon. */
std::set<std::string> DeclaredNames(const std::string &headers) {
    std::istringstream lines(Shell("grep -rhoP '^TAV_API (TAV_PRINTF_FORMAT\\([^)]*\\) )?\\K[^([;]*' " + headers));
    std::set<std::string> names;
    for (std::string line; std::getline(lines, line);) {
        names.insert(line.substr(line.find_last_of(" *") + 1));
    }
    return names;
}

/** Returns the names that a library exports, without their versions. */
std::set<std::string> ExportedNames(const std::string &library) {
    std::set<std::string> exported;
    for (const std::vector<std::string> &columns : Table("--dyn-syms", library)) {
        // number, value, size, type, binding, visibility, section (undefined, or absolute for a version itself), name
        if (columns.size() >= 8 && (columns[4] == "GLOBAL" || columns[4] == "WEAK") && columns[6] != "UND" &&
            columns[6] != "ABS") {
            exported.insert(columns[7].substr(0, columns[7].find('@')));
        }
    }
    return exported;
}

constexpr const char *kSessionHeaders[] = {"tav_session.h", "tav_store.h", "tav_changes.h", "tav_history.h",
                                           "tav_watch.h"};

TEST(Interface, ExportsWhatTheHeadersDeclare) {
    std::string others = TAV_INCLUDE " --exclude=tav_fleet.h";
    for (const std::string header : kSessionHeaders) {
        others += " --exclude=" + header;
    }
    const std::set<std::string> declared = DeclaredNames(others);
    EXPECT_GT(declared.size(), 90u);
    EXPECT_THAT(ExportedNames(TAV_LIBRARY), testing::UnorderedElementsAreArray(declared));
}

/** Sessions show their C interface and one namespace, and nothing of what they stand on. */
TEST(Interface, SessionsExportWhatTheirHeadersDeclare) {
    std::set<std::string> exported = ExportedNames(TAV_SESSION_LIBRARY);
    std::erase_if(exported, [](const std::string &name) {
        return name.starts_with("_ZN3tav") || name.starts_with("_ZNK3tav") || name.starts_with("_ZT") ||
               name.starts_with("__asan") || name.starts_with("__ubsan");
    });
    std::string headers;
    for (const std::string header : kSessionHeaders) {
        headers += " " TAV_INCLUDE "/" + header;
    }
    EXPECT_THAT(exported, testing::UnorderedElementsAreArray(DeclaredNames(headers)));
}

#ifdef TAV_FLEET_LIBRARY
TEST(Interface, TheFleetExportsWhatItsHeaderDeclares) {
    EXPECT_EQ(ExportedNames(TAV_FLEET_LIBRARY), DeclaredNames(TAV_INCLUDE "/tav_fleet.h"));
}
#endif

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
    const std::string inC = std::string(TAV_C_COMPILER) + " -std=c11 -x c" + warnings;
    const std::string inCxx = std::string(TAV_CXX_COMPILER) + " -std=c++20 -x c++" + warnings;
    int count = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(TAV_INCLUDE)) {
        if (entry.path().extension() == ".h") {
            ++count;
            const std::string name = std::filesystem::relative(entry.path(), TAV_INCLUDE);
            const std::string include = "#include \"" + name + "\"\\n";
            const std::string source = "printf '" + include + include + "int unused;\\n' | ";  // twice, for the guard
            Shell(source + inCxx + "-");
            if (!name.starts_with("tav/")) {  // those are C++
                Shell(source + inC + "-");
            }
        }
    }
    EXPECT_GE(count, 13);
}

}  // namespace
