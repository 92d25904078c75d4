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

/** The content of every file in a folder, by name. */
std::map<std::string, Bytes> FilesIn(const std::string &folder) {
    std::map<std::string, Bytes> files;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        files[entry.path()] = entry.is_regular_file() ? ReadFile(entry.path()) : Bytes{};
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
    const bool isOneLine = result.error.starts_with("tavcfg: ") && result.error.find('\n') == result.error.size() - 1;
    EXPECT_TRUE(isDone ? result.error.empty() : isOneLine && result.code > 0) << arguments << ": " << result.error;
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
    EXPECT_NE(result.error.find(why), std::string::npos) << arguments << ": " << result.error;
    EXPECT_TRUE(FilesIn(folder_.Path()) == before) << arguments << " changed a file";
}

Bytes Damaged(Bytes bytes, size_t offset) {
    bytes.at(offset) ^= 0x15;
    return bytes;
}

Bytes Rec13(uint32_t key, uint32_t value) {
    return Tlv(13, {Tlv(14, Be32(key)), Tlv(15, Be16(value))});
}

Bytes SmallBody() {
    return Join({VsTlv(0, {Rec13(5, 1), Rec13(7, 2), Tlv(7, {Tlv(8, Text("ssh")), Tlv(9, Be16(22))})}), VsTlv(3, {})});
}

Bytes SmallImage() {
    return Image(SmallBody());
}
