/*
 * patch: values written in place. The file is searched for the record, but not loaded into a store.
 */
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "assignments.h"
#include "commands.h"
#include "diagnose.h"
#include "errors.h"
#include "store.h"

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

}  // namespace

int RunPatch(const Options &options) {
    const Target target = TargetOf(options);
    const uint32_t vsId = ParseId(options.vs, "--vs");
    const Record change = ParseChange(ParseId(options.cls, "--class"), options.assignments);
    const std::string name = Describe(vsId, change);
    try {
        if (TAV_CheckFileSuffix(target.file.path.c_str(), ".dat") != 1) {
            throw Problem("only a plain file whose name ends in .dat can be patched");
        }
        RequireWritable(target.file);
        const Image image = ReadImage(target.file);
        RequireFits(FindStored(target, image, vsId, change), change);
        const uint32_t code =
            TAV_ExtCfgSetRecordToFile(vsId, RecordNode(change).Get(), target.file.path.c_str(), target.ReferPath());
        if (code != TAV_OK) {
            throw Problem(Explain(code) + "; look at the file with: tavcfg verify " + target.file.given);
        }
    } catch (const Problem &problem) {
        throw Failure(fmt::format("cannot patch {} in {}: {}", name, target.file.given, problem.what()));
    }
    fmt::print("patched {} in {}\n", name, target.file.given);
    return 0;
}

}  // namespace tavcfg
