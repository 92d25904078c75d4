#include "tool.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <map>

namespace {

std::string TextOf(const std::string &path) {
    const Bytes bytes = ReadFile(path);
    return {bytes.begin(), bytes.end()};
}

/** The content of every file in a folder, by name; but for locks, which stay behind. */
std::map<std::string, Bytes> FilesIn(const std::string &folder) {
    std::map<std::string, Bytes> files;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".lock") {
            files[entry.path()] = entry.is_regular_file() ? ReadFile(entry.path()) : Bytes{};
        }
    }
    return files;
}

}  // namespace

Result ToolTest::Run(const std::string &arguments) {
    const TempFolder output;
    // The call's own redirections stand behind these and win.
    const std::string command = "cd '" + folder_.Path() + "' && { '" TAVCFG_PROGRAM "' " + arguments + "; } >'" +
                                output.Path("out") + "' 2>'" + output.Path("error") + "' </dev/null";
    const int status = std::system(command.c_str());
    Result result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, TextOf(output.Path("out")),
                  TextOf(output.Path("error"))};
    const bool isDone = result.code == 0 || (result.code == 1 && arguments.starts_with("diff "));
    EXPECT_GE(result.code, 0) << arguments << " was killed";
    EXPECT_THAT(result.error, testing::MatchesRegex(isDone ? "" : "tavcfg: [^\n]*\n")) << arguments;
    return result;
}

std::string ToolTest::Out(const std::string &arguments) {
    const Result result = Run(arguments);
    EXPECT_EQ(result.code, 0) << arguments << ": " << result.error;
    return result.out;
}

void ToolTest::Refused(int code, const std::string &why, const std::string &arguments) {
    const auto before = FilesIn(folder_.Path());
    const Result result = Run(arguments);
    EXPECT_EQ(result.code, code) << arguments << ": " << result.error;
    EXPECT_THAT(result.error, HasSubstr(why)) << arguments;
    EXPECT_TRUE(FilesIn(folder_.Path()) == before) << arguments << " changed a file";
}
