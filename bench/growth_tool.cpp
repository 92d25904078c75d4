/*
 * The commands of the tool, for growth_bench. TAVCFG is its path.
 */
#include "growth.h"
#include "peer_store.h"

namespace tav::bench {
namespace {

/** Makes a file with that many records of class 13, whose values follow from `seed`. */
void MakeFile(const std::string &path, size_t count, uint32_t seed) {
    Store store = OpenStore(TAV_EXT_MODE_WRITE_ONLY, path);
    for (uint32_t key = 0; key < count; ++key) {
        store.Add(kVs, Node(13).With(14, key).With(19, key * seed));
    }
    Require(TAV_ExtCfgFlush(store.Get()) == TAV_OK, "flush");
}

/** Runs the tool in a folder. Its exit status must be one of the two that say that all went well. */
void RunTool(const std::string &folder, const std::string &arguments) {
    const std::string command = "cd '" + folder + "' && '" TAVCFG "' " + arguments + " >out.txt 2>&1";
    const int status = std::system(command.c_str());
    Require(WIFEXITED(status) && WEXITSTATUS(status) <= 1, arguments.c_str());
}

/** A command over a.dat, b.dat with other values, and a.json, measured for one of their records. */
std::function<double(size_t)> Running(const char *arguments) {
    return [=](size_t count) {
        const TempFolder folder("growth");
        MakeFile(folder.Path() + "/a.dat", count, 1);
        MakeFile(folder.Path() + "/b.dat", count, 3);
        RunTool(folder.Path(), "export a.dat");
        std::filesystem::rename(folder.Path() + "/out.txt", folder.Path() + "/a.json");
        return Seconds([&] { RunTool(folder.Path(), arguments); }) / static_cast<double>(count);
    };
}

}  // namespace

std::vector<Growth> ToolGrowth() {
    constexpr size_t kRecords = 10000;
    std::vector<Growth> operations;
    for (const char *arguments :
         {"verify a.dat", "info a.dat", "show a.dat", "get a.dat --vs 0 --class 13 14=5",
          "set a.dat --vs 0 --class 13 14=5 19=6", "add a.dat --vs 0 --class 13 14=4000000000",
          "del a.dat --vs 0 --class 13 14=5", "patch a.dat --vs 0 --class 13 14=5 19=6", "export a.dat",
          "import c.dat a.json", "import --merge b.dat a.json", "diff a.dat b.dat", "convert a.dat c.zip"}) {
        operations.push_back({arguments, kRecords, kGrowth, Running(arguments)});
    }
    return operations;
}

}  // namespace tav::bench
