#include "patch.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "diagnose.h"
#include "errors.h"
#include "store.h"
#include "tav/session.h"

namespace tavcfg {

namespace {

/** The key fields of a change. */
Record KeyFieldsOf(const Record &change) {
    Record key{change.cid, {}};
    for (const Field &field : change.fields) {
        if (IsKeyFid(change.cid, field.fid)) {
            key.fields.push_back(field);
        }
    }
    return key;
}

/** The stored record that a change is for, as it stands in the image. Throws Failure and Problem. */
TlvList FindStored(const Target &target, const Image &image, uint32_t vsId, const Record &change) {
    const RecordNode key(KeyFieldsOf(change));
    TAV_ExtCfgFileContext context = {};
    context.vsFilter = &vsId;
    context.recordCond = key.Get();
    context.referPath = target.ReferPath();
    const uint32_t code = TAV_ParseExtCfgFileData(image.data.get(), image.size, &context);
    if (context.foundValue != nullptr) {
        return ListTlvs(context.foundValue, context.foundLength);
    }
    if (code != TAV_OK) {
        throw Failure(fmt::format("cannot load {}: {}", target.file.given, Diagnose(image, target.refer, code)));
    }
    throw Problem("there is no such record");
}

/**
 * Throws Problem unless every value fits in the place of the stored one: the library passes over those that do not, and
 * calls it a success.
 */
void RequireFits(const TlvList &stored, const Record &change) {
    for (const auto &[fid, value] : change.fields) {
        const auto isField = [fid = fid](const Tlv &tlv) { return tlv.type == fid; };
        const auto field = std::find_if(stored.tlvs.begin(), stored.tlvs.end(), isField);
        if (field == stored.tlvs.end()) {
            throw Problem(fmt::format("the record has no field {}", fid));
        }
        if (field->length != value.size()) {
            throw Problem(
                fmt::format("field {} has {} bytes in the file, the new value {}", fid, field->length, value.size()));
        }
    }
}

uint32_t WriteInPlace(const Target &target, uint32_t vsId, const Record &change) {
    return TAV_ExtCfgSetRecordToFile(vsId, RecordNode(change).Get(), target.file.path.c_str(), target.ReferPath());
}

/** A new file beside another one, under a name of its own. It goes with this object, unless it has been moved away. */
class Draft {
  public:
    /** Makes an empty file. Throws Failure when its name would be too long, Problem when it cannot be made. */
    explicit Draft(const std::string &path)
        : file_(NamedFile(path + ".XXXXXX.dat")), fd_(mkostemps(file_.path.data(), kSuffixLength, O_CLOEXEC)) {
        if (fd_ < 0) {
            throw Problem("no copy can be made beside it: " + std::generic_category().message(errno));
        }
        file_.given = file_.path;
    }
    ~Draft() {
        close(fd_);
        unlink(file_.path.c_str());
    }
    Draft(const Draft &) = delete;
    Draft &operator=(const Draft &) = delete;

    const File &Get() const { return file_; }

    /** Takes over the owner and mode of another file, and brings all to stable storage. Throws Problem. */
    void Finish(const std::string &original) const {
        constexpr mode_t kPermissionBits = 07777;
        struct stat status = {};
        if (stat(original.c_str(), &status) != 0 || fchown(fd_, status.st_uid, status.st_gid) != 0 ||
            fchmod(fd_, status.st_mode & kPermissionBits) != 0 || fsync(fd_) != 0) {
            throw Problem("its copy cannot be finished: " + std::generic_category().message(errno));
        }
    }

  private:
    static constexpr int kSuffixLength = 4;  // of the ".dat" that a file to patch must have

    File file_;
    int fd_;
};

/**
 * Writes a change into a copy of a file, and moves the copy over the file once it loads: whatever happens, the old file
 * or the new one is there. Throws Failure and Problem.
 */
void PatchCopy(const Target &target, const Image &image, uint32_t vsId, const Record &change) {
    const std::string original = std::filesystem::canonical(target.file.path);  // where a link leads
    const Draft draft(original);
    const Target copy{draft.Get(), target.refer};
    uint32_t code = TAV_WriteFileAtOffset(image.data.get(), image.size, copy.file.path.c_str(), 0);
    if (code == TAV_OK) {
        code = WriteInPlace(copy, vsId, change);
    }
    if (code != TAV_OK) {
        throw Problem("its copy cannot be written: " + Explain(code));
    }
    draft.Finish(original);
    Store::Parse(copy, ReadImage(copy.file));
    MoveFile(copy.file, {target.file.given, original, {}});
}

}  // namespace

int RunPatch(const PatchOptions &options) {
    const auto &[target, vsId, change, isSafe] = options;
    const std::string name = Describe(vsId, change);
    try {
        if (TAV_CheckFileSuffix(target.file.path.c_str(), ".dat") != 1) {
            throw Problem("only a plain file whose name ends in .dat can be patched");
        }
        RequireWritable(target.file);
        const tav::Lock lock(target.file.given);
        const Image image = ReadImage(target.file);
        RequireFits(FindStored(target, image, vsId, change), change);
        if (isSafe) {
            PatchCopy(target, image, vsId, change);
        } else if (const uint32_t code = WriteInPlace(target, vsId, change); code != TAV_OK) {
            throw Problem(Explain(code) + "; look at the file with: tavcfg verify " + target.file.given);
        }
    } catch (const Problem &problem) {
        throw Failure(fmt::format("cannot patch {} in {}: {}", name, target.file.given, problem.what()));
    }
    fmt::print("patched {} in {}\n", name, target.file.given);
    return 0;
}

}  // namespace tavcfg
