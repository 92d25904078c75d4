#include "file_commands.h"

#include <fmt/format.h>

#include "assignments.h"
#include "convert.h"
#include "diff.h"
#include "edit.h"
#include "errors.h"
#include "history.h"
#include "import_export.h"
#include "info.h"
#include "patch.h"
#include "recover.h"
#include "schema.h"
#include "show.h"
#include "usage.h"
#include "watch.h"

namespace tavcfg {

namespace {

Target TargetOf(const FileWords &words) {
    return {NamedFile(words.file), words.refer.empty() ? std::nullopt : std::optional(NamedFile(words.refer))};
}

/** The file of a command in which nothing is named. */
FileOptions PlainFileOf(const FileWords &words) {
    return {TargetOf(words), words.ignoreRefer, words.anyMember,
            std::chrono::milliseconds(static_cast<int64_t>(words.wait * 1000))};
}

WriteOptions PlainWriteOf(const FileWords &words) {
    return {PlainFileOf(words), words.dryRun, words.comment};
}

FileOptions FileOf(const FileWords &words) {
    FileOptions options = PlainFileOf(words);
    options.names = FindNames(words.names, words.file);
    if (!words.names.empty()) {
        options.shown = options.names;
    }
    return options;
}

WriteOptions WriteOf(const FileWords &words) {
    return {FileOf(words), words.dryRun, words.comment};
}

void RefuseBoth(bool one, const char *nameOfOne, bool other, const char *nameOfOther) {
    if (one && other) {
        throw UsageError(fmt::format("{} and {} exclude each other", nameOfOne, nameOfOther));
    }
}

uint32_t VsOf(const FileWords &words) {
    return ParseId(words.vs, "--vs");
}

std::optional<uint32_t> OptionalVs(const FileWords &words) {
    return words.vs.empty() ? std::nullopt : std::optional(VsOf(words));
}

std::optional<uint32_t> OptionalClass(const FileWords &words, const tav::Names &names) {
    return words.cls.empty() ? std::nullopt : std::optional(ParseClass(words.cls, names));
}

Place PlaceOf(const FileWords &words, const tav::Names &names) {
    return {VsOf(words), ParseClass(words.cls, names)};
}

Selection SelectionOf(const FileWords &words, const tav::Names &names) {
    Selection selection{OptionalVs(words), OptionalClass(words, names), words.where, words.sort, words.reverse};
    if (words.limit > 0) {
        selection.limit = words.limit;
    }
    return selection;
}

Format FormatOf(const FileWords &words) {
    const std::string &name = words.json ? "json" : words.format;
    return name == "csv"     ? Format::kCsv
           : name == "json"  ? Format::kJson
           : name == "jsonl" ? Format::kJsonLines
                             : Format::kTable;
}

tav::JsonForm JsonFormOf(const FileWords &words) {
    return words.format == "jsonl" ? tav::JsonForm::kLines : tav::JsonForm::kTree;
}

int Show(const FileWords &words) {
    RefuseBoth(words.json, "--json", !words.format.empty(), "--format");
    const FileOptions file = FileOf(words);
    RequireFields(words.fields, file.names, "--fields");
    return RunShow({file, SelectionOf(words, file.names), words.fields, FormatOf(words)});
}

int Count(const FileWords &words) {
    const FileOptions file = FileOf(words);
    return RunCount({file, SelectionOf(words, file.names)});
}

int Get(const FileWords &words) {
    const FileOptions file = FileOf(words);
    if (words.raw && words.field.empty()) {
        throw UsageError("get: --raw needs --field");
    }
    RefuseBoth(words.raw, "--raw", words.json, "--json");
    const tav::Change key = ParseChange(tav::Verb::kDelete, PlaceOf(words, file.names), words.arguments, file.names);
    const std::optional<uint32_t> fid =
        words.field.empty() ? std::nullopt : std::optional(ParseFieldId(words.field, *key.cid, file.names, "--field"));
    return RunGet({file, key, fid, words.json, words.raw});
}

/** Edits one record, or with --where and --all many. */
int Edit(tav::Verb verb, const FileWords &words) {
    const WriteOptions write = WriteOf(words);
    const Place place = PlaceOf(words, write.file.names);
    if (words.where.empty() && !words.all) {
        if (verb == tav::Verb::kDelete && words.arguments.empty()) {
            throw UsageError("del: which records to delete is not said: give the key fields, --where or --all");
        }
        return RunEdit({write, ParseChange(verb, place, words.arguments, write.file.names)});
    }
    return RunEditMany(
        {write, SelectionOf(words, write.file.names), ParseKeyless(verb, place, words.arguments, write.file.names)});
}

HistoryOptions HistoryOf(const FileWords &words) {
    return {PlainWriteOf(words), words.keep, words.json};
}

int Import(const FileWords &words) {
    RefuseBoth(words.merge, "--merge", words.force, "--force");
    return RunImport({WriteOf(words), words.other, JsonFormOf(words), words.merge, words.force});
}

int Export(const FileWords &words) {
    const FileOptions file = FileOf(words);
    return RunExport({file, SelectionOf(words, file.names), words.output, JsonFormOf(words), words.strict});
}

int Convert(const FileWords &words) {
    if (words.salvage && (words.rewrite || words.anyMember)) {
        throw UsageError("convert: --salvage stands alone");
    }
    return RunConvert({WriteOf(words), NamedFile(words.other), words.rewrite, words.salvage, words.force});
}

int Diff(const FileWords &words) {
    RefuseBoth(words.script, "--script", words.json, "--json");
    const FileOptions file = FileOf(words);
    tav::DiffScope scope{OptionalVs(words), OptionalClass(words, file.names)};
    RequireFields(words.excluded, file.names, "--exclude");
    for (const std::string &field : words.excluded) {
        for (const TAV_ExtTlvDataTypeRow *row = g_astExtTlvDataTypeTbl; row->type != 0; ++row) {
            if (const std::optional<uint32_t> fid = FindField(row->type, field, file.names)) {
                scope.ignored.insert(*fid);
            }
        }
    }
    const DiffFormat format = words.script ? DiffFormat::kScript
                              : words.json ? DiffFormat::kJsonLines
                                           : DiffFormat::kText;
    return RunDiff({file, NamedFile(words.other), scope, format});
}

/** Writes a file that may carry the checksum of another refer file, or of none any more. */
int Rebind(const FileWords &words) {
    WriteOptions write = PlainWriteOf(words);
    write.file.ignoresRefer = true;
    tav::Session session = OpenToWrite(write, false);
    const std::string done = words.refer.empty() ? fmt::format("{} refers to no file any more", words.file)
                                                 : fmt::format("{} refers to {} as it is now", words.file, words.refer);
    if (write.isDryRun) {
        SayDone(write, done);
        return 0;
    }
    return Commit(&session, write, done);
}

constexpr char kShowScript[] = "write nothing, print the changes as a script";
constexpr char kSayOnly[] = "change nothing, print what would be done";

/** An option that may be given several times, each time with one value. */
void AddList(CLI::App *command, const char *name, std::vector<std::string> &values, const char *text,
             const char *help) {
    command->add_option(name, values, help)->option_text(text)->allow_extra_args(false);
}

}  // namespace

/** Adds a command that works on a file. */
CLI::App *FileCommands::AddOnFile(const char *name, const char *fileName, const char *help, Run run, CLI::App *parent) {
    CLI::App *command = (parent != nullptr ? parent : app_)->add_subcommand(name, help);
    command->callback([this, run] { invocation_->run = [words = words_, run] { return run(words); }; });
    command->add_option(fileName, words_.file, "the configuration file")->required();
    command->add_flag("--log", invocation_->logs, "switch the debug log on");
    return command;
}

CLI::Option *FileCommands::AddReferFile(CLI::App *command) {
    return command->add_option("--refer", words_.refer, "the file whose checksum FILE carries")
        ->option_text("FILE")
        ->check(NotEmpty());
}

void FileCommands::AddWait(CLI::App *command) {
    command
        ->add_option("--wait", words_.wait,
                     "how long to wait for the file's lock, and for a program that is writing it; 5 unless "
                     "said, at most a day")
        ->option_text("SECONDS")
        ->check(Seconds());
}

/** Adds what tells how a file is read. */
void FileCommands::AddReading(CLI::App *command) {
    AddReferFile(command);
    command->add_flag("--ignore-refer", words_.ignoreRefer, "read FILE whatever refer file it carries the checksum of");
    AddWait(command);
}

void FileCommands::AddNames(CLI::App *command) {
    command->add_option("--names", words_.names, "JSON text with names of classes and fields")
        ->option_text("FILE")
        ->check(NotEmpty());
}

void FileCommands::AddDryRun(CLI::App *command, const char *help) {
    command->add_flag("--dry-run", words_.dryRun, help);
}

void FileCommands::AddComment(CLI::App *command) {
    command->add_option("--comment", words_.comment, "what the history keeps about it")->option_text("TEXT");
}

void FileCommands::AddWriteOptions(CLI::App *command) {
    AddReading(command);
    AddNames(command);
    AddDryRun(command, kShowScript);
    AddComment(command);
}

CLI::App *FileCommands::AddWriter(const char *name, const char *fileName, const char *help, Run run) {
    CLI::App *command = AddOnFile(name, fileName, help, run);
    AddWriteOptions(command);
    return command;
}

/** Adds the options that choose a VS and a class. */
void FileCommands::AddPlace(CLI::App *command, bool isRequired) {
    command->add_option("--vs", words_.vs, "id of the virtual system")->option_text("N")->required(isRequired);
    command->add_option("--class", words_.cls, "class of the record")->option_text("CLASS")->required(isRequired);
    for (const char *place : {"--vs", "--class"}) {
        command->get_option(place)->check(NotEmpty());
    }
}

void FileCommands::AddWhere(CLI::App *command) {
    AddList(command, "--where", words_.where, "TERM",
            "records whose FIELD=VALUE, or !=, <, <=, >, >=, ~PATTERN; all terms must hold");
}

CLI::App *FileCommands::AddEditor(const char *name, const char *arguments, const char *help, Run run) {
    CLI::App *command = AddWriter(name, "FILE", help, run);
    AddPlace(command, true);
    command->add_option(arguments, words_.arguments, "fields of the record, its key fields among them");
    return command;
}

void FileCommands::AddInfo() {
    CLI::App *info =
        AddOnFile("info", "FILE", "show what a file is: version, times, sizes, checksums, counts of records",
                  [](const FileWords &words) {
                      return RunInfo({TargetOf(words), words.json});
                  });
    AddReferFile(info);
    info->add_flag("--json", words_.json, "print JSON");
    CLI::App *verify = AddOnFile("verify", "FILE", "check that a file loads; else say what is wrong",
                                 [](const FileWords &words) { return RunVerify(PlainFileOf(words)); });
    AddReading(verify);
    verify->preparse_callback([this](size_t) { invocation_->failureCode = 2; });
    CLI::App *recover =
        AddOnFile("recover", "FILE", "after a crash: bring back the newest of FILE and FILE.bak that loads",
                  [](const FileWords &words) { return RunRecover(PlainWriteOf(words)); });
    AddReading(recover);
    AddDryRun(recover, kSayOnly);
}

void FileCommands::AddReaders() {
    CLI::App *show = AddOnFile("show", "FILE", "show records as tables; * marks key fields", Show);
    AddPlace(show, false);
    AddWhere(show);
    AddList(show, "--fields", words_.fields, "FIELD", "show these fields alone, in this order");
    AddList(show, "--sort", words_.sort, "FIELD", "sort the records of each class by these fields");
    for (const char *list : {"--fields", "--sort"}) {
        show->get_option(list)->delimiter(',');
    }
    show->add_flag("--reverse", words_.reverse, "the last record first");
    show->add_option("--limit", words_.limit, "show at most so many records")
        ->option_text("N")
        ->check(WholeNumber(1, UINT32_MAX));
    show->add_option("--format", words_.format, "table, csv, json, or jsonl, a record a line")
        ->check(OneOf({"table", "csv", "json", "jsonl"}))
        ->option_text("FORMAT");
    show->add_flag("--json", words_.json, "the same as --format json");
    CLI::App *count = AddOnFile("count", "FILE", "print the number of records", Count);
    AddPlace(count, false);
    AddWhere(count);
    CLI::App *get = AddOnFile("get", "FILE", "show one record, found by its key fields", Get);
    AddPlace(get, true);
    get->add_option("FIELD=VALUE", words_.arguments, "the key fields of the record");
    get->add_option("--field", words_.field, "print the value of this field alone")
        ->option_text("FIELD")
        ->check(NotEmpty());
    get->add_flag("--json", words_.json, "print JSON");
    get->add_flag("--raw", words_.raw, "print the bytes of the field's value as they stand in the file");
    for (CLI::App *command : {show, count, get}) {
        AddReading(command);
        AddNames(command);
    }
}

void FileCommands::AddEditors() {
    AddEditor("add", "FIELD=VALUE", "add a record; a missing file is made",
              [](const FileWords &words) {
                  const WriteOptions write = WriteOf(words);
                  return RunEdit({write, ParseChange(tav::Verb::kAdd, PlaceOf(words, write.file.names), words.arguments,
                                                     write.file.names)});
              })
        ->get_option("FIELD=VALUE")
        ->required();
    CLI::App *set = AddEditor("set", "FIELD=VALUE", "overwrite fields of a record, or of many",
                              [](const FileWords &words) { return Edit(tav::Verb::kSet, words); });
    CLI::App *unset = AddEditor("unset", "FIELD[=VALUE]", "take fields out of a record, or of many",
                                [](const FileWords &words) { return Edit(tav::Verb::kUnset, words); });
    CLI::App *del = AddEditor("del", "FIELD=VALUE", "delete a record, found by its key fields, or many",
                              [](const FileWords &words) { return Edit(tav::Verb::kDelete, words); });
    for (CLI::App *command : {set, unset, del}) {
        AddWhere(command);
        command->add_flag("--all", words_.all, "all records of the class");
    }
    CLI::App *apply =
        AddWriter("apply", "FILE", "make the changes of a script, all or none", [](const FileWords &words) {
            return RunApply({WriteOf(words), words.other});
        });
    apply->add_option("SCRIPT", words_.other, "changes, one a line; - is standard input")->required();
}

void FileCommands::AddPatch() {
    CLI::App *patch = AddOnFile(
        "patch", "FILE", "write values of the same length in place, in a .dat file", [](const FileWords &words) {
            const WriteOptions write = WriteOf(words);
            const tav::Names &names = write.file.names;
            return RunPatch(
                {write, ParseChange(tav::Verb::kSet, PlaceOf(words, names), words.arguments, names), words.safe});
        });
    AddPlace(patch, true);
    patch->add_option("FIELD=VALUE", words_.arguments, "fields of the record, its key fields among them")->required();
    AddReferFile(patch);
    AddWait(patch);
    AddNames(patch);
    AddDryRun(patch, kShowScript);
    AddComment(patch);
    patch->add_flag("--safe", words_.safe,
                    "patch a copy, and move it over FILE once it loads: no crash leaves a broken file");
}

void FileCommands::AddJson() {
    CLI::App *import = AddWriter("import", "FILE", "make a file from JSON", Import);
    import->add_option("JSON", words_.other, "the JSON text; - is standard input")->required();
    import->add_flag("--merge", words_.merge,
                     "keep what is in FILE; of a record that is there, overwrite the fields that JSON gives");
    import->add_flag("--force", words_.force, "replace what is in FILE");
    CLI::App *exporting = AddOnFile("export", "FILE", "print the content of a file as JSON", Export);
    AddReading(exporting);
    AddNames(exporting);
    AddPlace(exporting, false);
    exporting->add_option("--output", words_.output, "write to this file; - is standard output")->option_text("FILE");
    exporting->add_flag("--strict", words_.strict, "refuse a file that an import would not give back byte for byte");
    for (CLI::App *command : {import, exporting}) {
        command->add_option("--format", words_.format, "json, or jsonl, a record a line")
            ->check(OneOf({"json", "jsonl"}))
            ->option_text("FORMAT");
    }
}

void FileCommands::AddConvert() {
    CLI::App *convert = AddOnFile("convert", "IN", "copy a file; plain or archive by the name of OUT", Convert);
    AddWriteOptions(convert);
    convert->add_option("OUT", words_.other, "the file to write")->required();
    convert->add_flag("--rewrite", words_.rewrite, "write the records anew, in order, and nothing but them");
    convert->add_flag("--salvage", words_.salvage, "take what can be read of a damaged file, and say what is lost");
    convert->add_flag("--any-member", words_.anyMember, "read an archive that has been renamed");
    convert->add_flag("--force", words_.force, "replace what is in OUT");
}

void FileCommands::AddDiff() {
    CLI::App *diff = AddOnFile("diff", "A", "show records added (+), removed (-) and changed (~)", Diff);
    AddReading(diff);
    AddNames(diff);
    diff->add_option("B", words_.other, "the other file")->required();
    AddPlace(diff, false);
    diff->add_flag("--script", words_.script, "print what apply needs to make B of A");
    diff->add_flag("--json", words_.json, "print the same changes as JSON, one a line");
    AddList(diff, "--exclude", words_.excluded, "FIELD", "a field that makes no difference");
    diff->get_option("--exclude")->delimiter(',');
    diff->preparse_callback([this](size_t) {
        invocation_->failureCode = 2;
        invocation_->cutShortCode = 1;  // what was printed is a difference
    });
}

void FileCommands::AddRefer() {
    CLI::App *refer = app_->add_subcommand("refer", "bind a file to a refer file anew, or to none");
    refer->require_subcommand(1);
    CLI::App *rebind = AddOnFile("rebind", "FILE", "take over the checksum that the refer file has now", Rebind, refer);
    AddReferFile(rebind)->required();
    CLI::App *drop = AddOnFile("drop", "FILE", "refer to no file any more", Rebind, refer);
    for (CLI::App *command : {rebind, drop}) {
        AddWait(command);
        AddDryRun(command, kSayOnly);
        AddComment(command);
    }
}

void FileCommands::AddSchema() {
    CLI::App *schema = app_->add_subcommand("schema", "show what classes and fields there are");
    schema->callback([this] {
        invocation_->run = [words = words_] { return RunSchema({FindNames(words.names, ""), words.json}); };
    });
    AddNames(schema);
    schema->add_flag("--json", words_.json, "print JSON");
}

void FileCommands::AddHistory() {
    CLI::App *history = app_->add_subcommand("history", "keep what a file held before its last commits");
    history->require_subcommand(1);
    CLI::App *start = AddOnFile(
        "start", "FILE", "keep it from now on",
        [](const FileWords &words) { return RunHistoryStart(HistoryOf(words)); }, history);
    start->add_option("--keep", words_.keep, "how many commits stay, at least 1; 20 unless said")
        ->option_text("N")
        ->check(WholeNumber(1, UINT32_MAX));
    CLI::App *stop = AddOnFile(
        "stop", "FILE", "keep no more", [](const FileWords &words) { return RunHistoryStop(HistoryOf(words)); },
        history);
    CLI::App *show = AddOnFile(
        "show", "FILE", "print what is kept: commits, and checkpoints",
        [](const FileWords &words) { return RunHistoryShow(HistoryOf(words)); }, history);
    show->add_flag("--json", words_.json, "print JSON");
    CLI::App *checkpoint =
        AddOnFile("checkpoint", "FILE", "keep what a file holds under a name", [](const FileWords &words) {
            return RunCheckpoint({PlainWriteOf(words), words.other, words.remove});
        });
    checkpoint->add_option("NAME", words_.other, "the name")->required();
    checkpoint->add_flag("--remove", words_.remove, "keep it no longer");
    AddComment(checkpoint);
    for (CLI::App *command : {start, stop, checkpoint}) {
        AddWait(command);
        AddDryRun(command, kSayOnly);
    }
    AddWriter("rollback", "FILE", "bring back what a file held before; a commit like any other",
              [](const FileWords &words) {
                  return RunRollback({WriteOf(words), words.other});
              })
        ->add_option("STATE", words_.other, "so many commits back, or the name of a checkpoint")
        ->required()
        ->check(NotEmpty());
}

void FileCommands::AddWatch() {
    CLI::App *watch =
        AddOnFile("watch", "FILE", "print the changes of a file as they come", [](const FileWords &words) {
            return RunWatch({FileOf(words), words.json, words.command, words.limit});
        });
    AddReading(watch);
    AddNames(watch);
    watch->add_flag("--json", words_.json, "print JSON, a change a line");
    watch->add_option("--exec", words_.command, "run this after each commit, with its changes as the input")
        ->option_text("COMMAND")
        ->check(NotEmpty());
    watch->add_option("--limit", words_.limit, "end after so many commits")
        ->option_text("N")
        ->check(WholeNumber(1, UINT32_MAX));
}

void FileCommands::AddTo(CLI::App *app, Invocation *invocation) {
    app_ = app;
    invocation_ = invocation;
    AddInfo();
    AddReaders();
    AddEditors();
    AddPatch();
    AddJson();
    AddConvert();
    AddDiff();
    AddHistory();
    AddWatch();
    AddRefer();
    AddSchema();
}

}  // namespace tavcfg
