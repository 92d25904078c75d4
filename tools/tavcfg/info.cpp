#include "info.h"

#include <fmt/format.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "body.h"
#include "diagnose.h"
#include "errors.h"
#include "progress.h"
#include "terminal.h"
#include "value.h"

using nlohmann::json;

namespace tavcfg {

namespace {

/** What `info` tells. */
struct Info {
    uint64_t fileSize;
    uint32_t imageSize;
    uint32_t headSize;
    std::string version;  // empty when the head has none; likewise below
    std::string modifyTime;
    std::string stored;
    std::string computed;
    std::string refer;
    std::string problem;  // why the file does not load
    std::vector<VsCounts> counts;

    bool Matches() const { return stored == computed; }
};

/** The value of a head field in hexadecimal, or an empty text. */
std::string HeadHex(const Frame &frame, uint32_t type, size_t maxSize = Bytes::npos) {
    const Tlv *field = frame.HeadField(type);
    return field == nullptr ? "" : ToHex(ValueOf(*field).substr(0, maxSize));
}

/** Gathers what can be told of a file whose structure can be walked, be its checksum right or wrong. */
Info Gather(const Target &target) {
    const Progress progress("reading " + target.file.given);
    const Image image = ReadImage(target.file);
    try {
        const Frame frame = ReadFrame(image);
        const Checksum computed = BodyChecksum(image, frame);
        uint32_t fileSize = 0;
        TAV_GetFileSize(target.file.path.c_str(), &fileSize);
        const Tlv *time = frame.HeadField(EXT_TLV_MODIFY_TIME);
        const std::string version = HeadHex(frame, EXT_TLV_VERSION);
        const std::string problem = LoadProblem(image, target);
        if (!problem.empty()) {
            ReadBody(image, frame);  // throws where the TLVs of a record do not nest; in one that loads they do
        }
        return {fileSize,
                image.size,
                frame.headSize,
                version.empty() ? "" : "0x" + version,
                time == nullptr ? "" : FormatTime(ValueOf(*time)),
                HeadHex(frame, EXT_TLV_CHECKSUM, TAV_EXT_CHECKSUM_SIZE),
                ToHex(Bytes(computed.begin(), computed.end())),
                HeadHex(frame, EXT_TLV_REFER_CHECKSUM),
                problem,
                CountBody(image, frame)};
    } catch (const Problem &problem) {
        throw Failure(fmt::format("cannot walk {}: {}", target.file.given, problem.what()));
    }
}

json TextOrNull(const std::string &text) {
    return text.empty() ? json() : json(text);
}

void PrintInfoJson(const File &file, const Info &info) {
    nlohmann::ordered_json form = {
        {"file", file.given},
        {"archive", file.IsArchive()},
        {"fileSize", info.fileSize},
        {"imageSize", info.imageSize},
        {"headSize", info.headSize},
        {"bodySize", info.imageSize - info.headSize},
        {"version", TextOrNull(info.version)},
        {"modifyTime", TextOrNull(info.modifyTime)},
        {"checksum", {{"stored", TextOrNull(info.stored)}, {"computed", info.computed}, {"match", info.Matches()}}},
        {"referChecksum", TextOrNull(info.refer)},
        {"loads", info.problem.empty()},
        {"problem", TextOrNull(info.problem)},
        {"vs", json::array()}};
    for (const VsCounts &vs : info.counts) {
        json classes = json::array();
        for (const auto &[cid, count] : vs.byClass) {
            classes.push_back({{"class", cid}, {"records", count}});
        }
        form["vs"].push_back({{"id", vs.id}, {"classes", classes}});
    }
    fmt::print("{}\n", form.dump(2, ' ', true, json::error_handler_t::replace));
}

void PrintInfoText(const File &file, const Info &info) {
    const auto line = [](const char *name, const std::string &value) {
        fmt::print("{:<15} {}\n", name, value.empty() ? "none" : Printable(value));
    };
    line("file", file.given);
    line("kind", file.IsArchive() ? fmt::format("archive, {} bytes", info.fileSize) : "plain");
    line("size",
         fmt::format("{} bytes: head {}, body {}", info.imageSize, info.headSize, info.imageSize - info.headSize));
    line("version", info.version);
    line("modify time", info.modifyTime);
    line("checksum", info.stored);
    line("computed", fmt::format("{} ({})", info.computed, info.Matches() ? "matches" : "DIFFERS"));
    line("refer checksum", info.refer);
    line("loads", info.problem.empty() ? "yes" : "NO: " + info.problem);
    for (const VsCounts &vs : info.counts) {
        std::string counts;
        for (const auto &[cid, count] : vs.byClass) {
            counts += fmt::format("{}class {}: {}", counts.empty() ? "" : ", ", cid, count);
        }
        line(fmt::format("VS {}", vs.id).c_str(), counts.empty() ? "no records" : "records of " + counts);
    }
}

/** Returns whether nothing is wrong with a file but that its refer file was not given. */
bool LoadsUnbound(FileOptions options) {
    options.ignoresRefer = true;
    try {
        Read(options);
        return true;
    } catch (const std::runtime_error &) {
        return false;
    }
}

}  // namespace

int RunInfo(const InfoOptions &options) {
    const auto &[target, asJson] = options;
    const Info info = Gather(target);
    (asJson ? PrintInfoJson : PrintInfoText)(target.file, info);
    return 0;
}

int RunVerify(const FileOptions &options) {
    const std::optional<File> &refer = options.target.refer;
    if (const std::string problem = refer ? ReferProblem(*refer) : ""; !problem.empty()) {
        throw Failure(fmt::format("cannot verify {}: {}", options.target.file.given, problem));
    }
    try {
        Read(options);
    } catch (const Damage &damage) {
        if (!refer && LoadsUnbound(options)) {
            throw Failure(damage.what());  // which asks for the refer file
        }
        throw Denial(damage.what());
    } catch (const tav::Error &error) {
        if (error.Code() == TAV_ERR_INVALID || (error.Code() == TAV_ERR_BACKUP && Exists(options.target.file))) {
            throw Denial(WithWayOut(error));
        }
        throw;
    }
    return 0;
}

}  // namespace tavcfg
