#include "recover.h"

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>

#include "errors.h"
#include "store.h"

namespace tavcfg {

namespace {

/** One of the two files, as it was found. */
struct Candidate {
    File file;
    bool exists = false;
    std::string problem;                           // why it does not load; empty when it does
    Bytes modifyTime;                              // the head's, in an order that compares
    std::filesystem::file_time_type changeTime{};  // the file system's

    bool IsGood() const { return exists && problem.empty(); }
};

/** Makes a head's modify time comparable bytewise: it is big-endian, and the week day says nothing. */
Bytes Comparable(const Bytes &time) {
    return time.substr(0, 7) + time.substr(8);
}

Candidate Examine(const File &file, const std::optional<File> &refer) {
    Candidate candidate;
    candidate.file = file;
    candidate.exists = Exists(file);
    if (!candidate.exists) {
        return candidate;
    }
    try {
        const LoadedFile loaded = LoadWithReferIfAny(file, refer);
        candidate.modifyTime = Comparable(ValueOf(*loaded.frame.HeadField(EXT_TLV_MODIFY_TIME)));
        candidate.changeTime = std::filesystem::last_write_time(file.path);
    } catch (const std::runtime_error &error) {
        candidate.problem = error.what();
    }
    return candidate;
}

/** Returns whether the backup is newer than the file, both being good. */
bool IsNewer(const Candidate &backup, const Candidate &file) {
    return backup.modifyTime != file.modifyTime ? backup.modifyTime > file.modifyTime
                                                : backup.changeTime > file.changeTime;
}

/** Moves a broken file to a name that is free: nothing is lost, be it ever so broken. */
File PutAside(const File &file) {
    for (int i = 0;; ++i) {
        File aside = WithSuffix(file, i == 0 ? ".broken" : fmt::format(".broken.{}", i));
        if (!Exists(aside)) {
            MoveFile(file, aside);
            return aside;
        }
    }
}

/** Settles the case of a file and a backup that both load. */
void KeepNewer(const Candidate &file, const Candidate &backup) {
    if (IsNewer(backup, file)) {
        MoveFile(backup.file, file.file);
        fmt::print("recovered {} from {}: both load, the backup is newer\n", file.file.given, backup.file.given);
    } else {
        DeleteFile(backup.file);
        fmt::print("kept {}, deleted {}: both load, the backup is not newer\n", file.file.given, backup.file.given);
    }
}

/** Settles the case of a file that loads and a backup that does not, or is not there. */
void KeepFile(const Candidate &file, const Candidate &backup) {
    if (!backup.exists) {
        fmt::print("nothing to recover: {} loads, and there is no backup\n", file.file.given);
        return;
    }
    const File aside = PutAside(backup.file);
    fmt::print("kept {}; the backup does not load and was moved to {}\n", file.file.given, aside.given);
}

/** Settles the case of a backup that loads and a file that does not, or is not there. */
void TakeBackup(const Candidate &file, const Candidate &backup) {
    std::string note = "it was missing";
    if (file.exists) {
        note = fmt::format("it does not load and was moved to {}", PutAside(file.file).given);
    }
    MoveFile(backup.file, file.file);
    fmt::print("recovered {} from {}: {}\n", file.file.given, backup.file.given, note);
}

}  // namespace

int RunRecover(const Target &target) {
    const Candidate file = Examine(target.file, target.refer);
    const Candidate backup = Examine(BackupOf(target.file), target.refer);
    if (file.IsGood() && backup.IsGood()) {
        KeepNewer(file, backup);
    } else if (file.IsGood()) {
        KeepFile(file, backup);
    } else if (backup.IsGood()) {
        TakeBackup(file, backup);
    } else {
        const auto state = [](const Candidate &candidate) {
            return candidate.exists ? candidate.problem : "there is no " + candidate.file.given;
        };
        throw Failure(fmt::format("cannot recover {}: {}; {}", target.file.given, state(file), state(backup)));
    }
    return 0;
}

}  // namespace tavcfg
