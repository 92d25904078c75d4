#include "crash.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <utility>

namespace fs = std::filesystem;

namespace {

ino_t InodeOf(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

}  // namespace

Files ReadFolder(const std::string &folder) {
    Files files;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path().extension() != ".lock") {
            files[fs::relative(entry.path(), folder)] = ReadFile(entry.path());
        }
    }
    return files;
}

void WriteFolder(const TempFolder &folder, const Files &files) {
    for (const auto &[name, content] : files) {
        fs::create_directories(fs::path(folder.Path(name)).parent_path());
        WriteFile(folder.Path(name), content);
    }
}

std::string RunChild(unsigned lastTurn, const std::function<int()> &run) {
    const TempFolder folder;
    const std::string link = folder.Path("turn");
    if (fork() == 0) {
        setenv(kTurn, (std::to_string(lastTurn) + link).c_str(), 1);
        _exit(run());
    }
    int status = -1;
    wait(&status);
    return WIFSIGNALED(status) ? fs::read_symlink(link).string() : status == 0 ? kDone : kFailed;
}

void Sweep(const std::function<std::string(unsigned lastTurn)> &tryOnce) {
    std::string end;
    unsigned turn = 0;
    while (end != kDone && !testing::Test::HasFailure()) {
        SCOPED_TRACE("killed at turn " + std::to_string(++turn));
        end = tryOnce(turn);
        EXPECT_NE(end, kFailed);
    }
    EXPECT_GT(turn, 2u) << "calls are not seen";
}

Disk::Disk(const std::string &folder) : folder_(folder) {
    Look(InodeOf(folder));
    for (auto &[file, contents] : contents_) {
        contents = {contents.back()};
    }
    lastingNames_ = names_;
    changes_.clear();
}

void Disk::Look(ino_t synced) {
    Names names = names_, changed;
    for (auto &[name, file] : names) {
        file = 0;  // gone, until it is seen
    }
    const std::map<ino_t, unsigned> known = std::exchange(present_, {});
    for (const auto &[name, content] : ReadFolder(folder_)) {
        const ino_t inode = InodeOf(folder_ + "/" + name);
        const auto found = known.find(inode);
        names[name] = present_[inode] = found != known.end() ? found->second : ++files_;
        std::vector<Bytes> &contents = contents_[names[name]];
        contents.resize(std::max<size_t>(contents.size(), 1));  // a new file is empty
        if (inode == synced) {
            contents = {content};
        } else if (contents.back() != content) {
            const size_t size = content.size();
            contents.insert(contents.end(), {Bytes(size), Slice(content, 0, size / 2), content});
        }
    }
    std::set_difference(names.begin(), names.end(), names_.begin(), names_.end(),
                        std::inserter(changed, changed.end()));
    names_ = names;
    changes_.push_back(changed);
    std::erase_if(changes_, [&](const Names &change) {
        const bool isLasting = std::any_of(change.begin(), change.end(), [&](const auto &entry) {
            return InodeOf(fs::path(folder_ + "/" + entry.first).parent_path()) == synced;
        });
        for (const auto &[name, file] : isLasting ? change : Names()) {
            lastingNames_[name] = file;
        }
        return isLasting || change.empty();
    });
}

void Disk::VisitStates(const std::function<void(const Files &)> &visit) const {
    for (size_t number = 0, left = 0; left == 0; ++number) {
        left = number;
        const auto pick = [&left](size_t choices) { return std::exchange(left, left / choices) % choices; };
        Names names = lastingNames_;
        for (const Names &change : changes_) {
            const bool isDone = change.empty() || pick(2) != 0;
            for (const auto &[name, file] : isDone ? change : Names()) {
                names[name] = file;
            }
        }
        std::map<unsigned, Bytes> found;
        for (const auto &[file, contents] : contents_) {
            found[file] = contents[pick(contents.size())];
        }
        Files files;
        for (const auto &[name, file] : names) {
            if (file != 0) {
                files[name] = found[file];
            }
        }
        if (left == 0) {
            visit(files);
        }
    }
}
