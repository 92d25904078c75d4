#include "diagnose.h"

#include <fmt/format.h>

#include <algorithm>

#include "body.h"
#include "errors.h"
#include "tav/store.h"
#include "value.h"

namespace tavcfg {

namespace {

void RequireLength(const Tlv &field, uint32_t length, const char *name) {
    if (field.length != length) {
        throw Problem(fmt::format("the head's {} is {} bytes long, not {}", name, field.length, length));
    }
}

void CheckVersion(const Tlv &field) {
    RequireLength(field, 4, "version");
    if (field.value[0] != 0x08) {
        throw Problem(fmt::format("version 0x{} is not one of 0x08......", ToHex(ValueOf(field))));
    }
}

void CheckChecksum(const Image &image, const Frame &frame, const Tlv &field) {
    // The library takes a checksum with four bytes behind it, too.
    if (field.length != TAV_EXT_CHECKSUM_SIZE + 4) {
        RequireLength(field, TAV_EXT_CHECKSUM_SIZE, "checksum");
    }
    const Checksum computed = BodyChecksum(image, frame);
    if (!std::equal(computed.begin(), computed.end(), field.value)) {
        throw Problem(fmt::format("checksum mismatch: the head says {}, the body has {}",
                                  ToHex(ValueOf(field).substr(0, computed.size())),
                                  ToHex(Bytes(computed.begin(), computed.end()))));
    }
}

void CheckReferChecksum(const Tlv &field, const std::optional<File> &refer) {
    RequireLength(field, TAV_EXT_CHECKSUM_SIZE, "refer checksum");
    if (!refer) {
        throw Problem("it carries the checksum of a refer file, which must be given with --refer (or --ignore-refer)");
    }
    if (const std::string problem = ReferProblem(*refer); !problem.empty()) {
        throw Problem(problem);
    }
    Checksum actual;
    if (TAV_GetExtCfgFileChecksum(refer->path.c_str(), actual.data(), TAV_EXT_CHECKSUM_SIZE) == TAV_OK &&
        !std::equal(actual.begin(), actual.end(), field.value)) {
        throw Problem(
            fmt::format("refer checksum mismatch: the head says {}, {} has {} (see refer rebind, and --ignore-refer)",
                        ToHex(ValueOf(field)), refer->given, ToHex(Bytes(actual.begin(), actual.end()))));
    }
}

/** Throws Problem when a mandatory head field is missing. */
void RequireHeadFields(const Frame &frame, bool withRefer) {
    const auto require = [&](uint32_t type, const char *what) {
        if (frame.HeadField(type) == nullptr) {
            throw Problem(fmt::format("the head has no {}", what));
        }
    };
    require(EXT_TLV_VERSION, "version");
    require(EXT_TLV_MODIFY_TIME, "modify time");
    require(EXT_TLV_CHECKSUM, "checksum");
    if (withRefer) {
        require(EXT_TLV_REFER_CHECKSUM, "refer checksum, yet a refer file was given with --refer");
    }
}

void CheckHead(const Image &image, const Frame &frame, const std::optional<File> &refer) {
    RequireHeadFields(frame, refer.has_value());
    for (const Tlv &field : frame.head) {
        switch (field.type) {
            case EXT_TLV_VERSION:
                CheckVersion(field);
                break;
            case EXT_TLV_MODIFY_TIME:
                RequireLength(field, 12, "modify time");
                break;
            case EXT_TLV_CHECKSUM:
                CheckChecksum(image, frame, field);
                break;
            case EXT_TLV_REFER_CHECKSUM:
                CheckReferChecksum(field, refer);
                break;
            default:
                throw Problem(fmt::format("the head has a field of type {}, which does not belong there", field.type));
        }
    }
}

void CheckRecords(const Model &model) {
    RecordCheck check;
    for (const Vs &vs : model) {
        for (const Record &record : vs.records) {
            try {
                check.Pass(vs.id, record);
            } catch (const Problem &problem) {
                throw Problem(
                    fmt::format("{} at offset {}: {}", Describe(vs.id, record), record.offset, problem.what()));
            }
        }
    }
}

/** Says why the library refuses an image; in the last resort, what it answered. */
std::string Explanation(const Image &image, const std::optional<File> &refer, uint32_t code) {
    try {
        const Frame frame = ReadFrame(image);
        CheckHead(image, frame, refer);
        if (frame.body.empty()) {
            return "nothing follows the head";
        }
        CheckRecords(ReadBody(image, frame));
    } catch (const Problem &problem) {
        return problem.what();
    }
    return tav::CodeText(code);
}

}  // namespace

std::string LoadProblem(const Image &image, const Target &target) {
    const tav::Store store = tav::Store::New(target.file.path, target.refer ? target.refer->path : "");
    TAV_ExtCfgFileContext context = {};
    context.local = store.Get();
    context.referPath = target.ReferPath();
    const uint32_t code = TAV_ParseExtCfgFileData(image.data.get(), image.size, &context);
    return code == TAV_OK ? "" : Explanation(image, target.refer, code);
}

void RequireLoads(const Target &target) {
    if (const std::string problem = LoadProblem(ReadImage(target.file), target); !problem.empty()) {
        throw Damage(fmt::format("cannot load {}: {}", target.file.given, problem));
    }
}

bool CarriesReferChecksum(const File &file) {
    const Image image = ReadImage(file);
    try {
        return ReadFrame(image).HeadField(EXT_TLV_REFER_CHECKSUM) != nullptr;
    } catch (const Problem &) {
        return false;  // loading it will say what is wrong
    }
}

std::string ReferProblem(const File &refer) {
    Checksum ignored;
    const uint32_t code =
        TAV_GetExtCfgFileChecksum(refer.path.c_str(), ignored.data(), static_cast<uint32_t>(ignored.size()));
    if (code == TAV_OK) {
        return {};
    }
    try {
        const Image image = ReadImage(refer);
        const Frame frame = ReadFrame(image);
        if (frame.HeadField(EXT_TLV_REFER_CHECKSUM) != nullptr) {
            return fmt::format("refer file {} cannot serve: it carries a refer checksum itself", refer.given);
        }
        CheckHead(image, frame, {});
    } catch (const std::runtime_error &problem) {
        return fmt::format("refer file {} cannot serve: {}", refer.given, problem.what());
    }
    return fmt::format("refer file {} cannot serve: {}", refer.given, tav::CodeText(code));
}

void RequireRefer(const Target &target) {
    if (!target.refer) {
        return;
    }
    if (SameFile(target.file, *target.refer)) {
        throw Failure(fmt::format("cannot write {}: it cannot be its own refer file", target.file.given));
    }
    if (const std::string problem = ReferProblem(*target.refer); !problem.empty()) {
        throw Failure(fmt::format("cannot write {}: {}", target.file.given, problem));
    }
}

}  // namespace tavcfg
