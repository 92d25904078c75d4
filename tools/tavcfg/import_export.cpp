#include "import_export.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>

#include "errors.h"
#include "progress.h"
#include "tav/diff.h"
#include "terminal.h"

namespace tavcfg {

namespace {

/** Reads a text into a new store. */
tav::Store ReadStore(const ImportOptions &options) {
    const FileOptions &file = options.write.file;
    const std::string text = ReadText(options.json);  // without progress: it may be typed
    const Progress progress("reading " + options.json);
    tav::Store store = tav::Store::New(file.target.file.path);
    try {
        tav::ReadJson(text, options.form, &store, file.names);
    } catch (const tav::Error &error) {
        throw Failure(
            fmt::format("cannot import {}: {}", options.json == "-" ? "standard input" : options.json, error.what()));
    }
    return store;
}

/** Brings what a store holds into a file. */
int MergeInto(tav::Session *session, const tav::Store &store, const ImportOptions &options) {
    try {
        return ApplyAndCommit(
            session, tav::Merge(store, session->Store()), options.write, [&](const tav::ChangeCounts &counts) {
                return fmt::format("wrote {}: {}", options.write.file.target.file.given, CountsText(counts));
            });
    } catch (const tav::Error &error) {
        if (!error.Place().starts_with("change ")) {
            throw;  // the commit has failed
        }
        throw Failure(fmt::format("cannot import {}: {}", options.json, error.what()));
    }
}

/** Puts a store in the place of what a file holds. */
int Replace(tav::Session *session, tav::Store store, const ImportOptions &options) {
    const std::string &name = options.write.file.target.file.given;
    if (!session->IsNew() && !options.replaces && Differ(session->Store(), store)) {
        throw Failure(
            fmt::format("{} is there and holds something else: --merge adds to it, --force replaces it", name));
    }
    if (options.write.isDryRun) {
        PrintScript(tav::Diff(session->Store(), store), options.write.file.shown);
        return 0;
    }
    const tav::ChangeCounts counts =
        WithProgress("comparing with " + name, [&] { return tav::CountDifferences(session->Store(), store); });
    session->Store() = std::move(store);
    return Commit(session, options.write, fmt::format("wrote {}: {}", name, CountsText(counts)));
}

/** The standard output, or a file of text that is closed with it. */
class TextOutput {
  public:
    explicit TextOutput(const std::string &name)
        : name_(name), file_(name == "-" ? nullptr : fopen(name.c_str(), "wb")) {
        if (name != "-" && file_ == nullptr) {
            Fail();
        }
    }

    void Write(std::string_view text) {
        if (file_ == nullptr) {
            PrintPiece(text);
        } else if (fwrite(text.data(), 1, text.size(), file_.get()) != text.size()) {
            Fail();
        }
    }

    /** Brings a file to its end. The standard output is seen to at last. */
    void Close() {
        if (file_ != nullptr && fclose(file_.release()) != 0) {
            Fail();
        }
    }

  private:
    struct CloseFile {
        void operator()(std::FILE *file) const { fclose(file); }
    };

    [[noreturn]] void Fail() const {
        throw Failure(fmt::format("cannot write {}: {}", name_, std::generic_category().message(errno)));
    }

    std::string name_;
    std::unique_ptr<std::FILE, CloseFile> file_;
};

/** The checksum of the body that a store would be written as, in hexadecimal. */
std::string BodyChecksum(const tav::Store &store) {
    const uint32_t size = TAV_CalcExtCfgFileBodySize(store.Get());
    const auto body = std::make_unique_for_overwrite<uint8_t[]>(size);
    std::array<uint8_t, TAV_EXT_CHECKSUM_SIZE> checksum{};
    uint32_t code = TAV_BuildExtCfgFileBody(store.Get(), body.get(), size);
    if (code == TAV_OK) {
        code = TAV_CalcChecksum(body.get(), size, checksum.data(), TAV_EXT_CHECKSUM_SIZE);
    }
    if (code != TAV_OK) {
        throw Failure("the body cannot be built: " + tav::CodeText(code));
    }
    return fmt::format("{:02x}", fmt::join(checksum, ""));
}

void RequireAsWritten(const tav::Snapshot &snapshot, const ExportOptions &options) {
    if (BodyChecksum(snapshot.Store()) == snapshot.Checksum()) {
        return;
    }
    const std::string &name = options.file.target.file.given;
    const std::string what = fmt::format(
        "{} is not as this library writes files, so an import gives the same records, but not the same bytes", name);
    if (options.isStrict) {
        throw Failure(
            fmt::format("cannot export: {}; to have it written anew: tavcfg convert --rewrite {} OUT", what, name));
    }
    fmt::print(stderr, "tavcfg: {}\n", Printable(what));
}

}  // namespace

int RunImport(const ImportOptions &options) {
    tav::Store store = ReadStore(options);
    tav::Session session = OpenToReplace(options.write, options.replaces);
    return options.merges ? MergeInto(&session, store, options) : Replace(&session, std::move(store), options);
}

int RunExport(const ExportOptions &options) {
    if (options.output != "-" && SameFile(options.file.target.file, NamedFile(options.output))) {
        throw Failure(fmt::format("cannot export {} to itself", options.file.target.file.given));
    }
    const tav::Snapshot snapshot = Read(options.file);
    RequireAsWritten(snapshot, options);
    TextOutput output(options.output);
    tav::JsonWriter writer(
        options.form, [&](std::string_view piece) { output.Write(piece); }, options.file.shown);
    const std::vector<VsRecords> selected = Select(snapshot.Store(), options.selection, options.file);
    const Progress progress("exporting " + options.file.target.file.given, options.output == "-");
    for (const VsRecords &vs : selected) {
        writer.BeginVs(vs.vsId);
        for (const ClassRecords &chosen : vs.classes) {
            for (const tav::RecordView record : chosen.records) {
                writer.Add(record);
            }
        }
    }
    writer.End();
    output.Close();
    return 0;
}

}  // namespace tavcfg
