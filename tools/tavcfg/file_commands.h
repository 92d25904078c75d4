/*
 * The commands on configuration files, and their options.
 */
#ifndef TAVCFG_FILE_COMMANDS_H
#define TAVCFG_FILE_COMMANDS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "invocation.h"

namespace tavcfg {

/** Words and switches of a command on files. Their meaning is looked up in the library's types once those are there. */
struct FileWords {
    std::string file;   // the file worked on; IN of convert, A of diff
    std::string other;  // OUT of convert, B of diff, JSON of import, the script of apply
    std::string refer;  // empty when it is not given; likewise below
    std::string names;
    std::string vs;
    std::string cls;
    std::string field;
    std::string format;
    std::string comment;
    std::string output = "-";
    std::string command;                 // of watch
    double wait = 5;                     // seconds
    size_t limit = 0;                    // 0 for none
    uint32_t keep = 20;                  // commits
    std::vector<std::string> arguments;  // FIELD=VALUE
    std::vector<std::string> where, fields, sort, excluded;
    bool all = false;
    bool anyMember = false;
    bool dryRun = false;
    bool force = false;
    bool ignoreRefer = false;
    bool json = false;
    bool merge = false;
    bool raw = false;
    bool remove = false;
    bool reverse = false;
    bool rewrite = false;
    bool safe = false;
    bool salvage = false;
    bool script = false;
    bool strict = false;
};

/** Builds the commands, one method for each family of options. */
class FileCommands {
  public:
    void AddTo(CLI::App *app, Invocation *invocation);

  private:
    using Run = int (*)(const FileWords &);  // complains of one word after the other, in the order of its options

    CLI::App *AddOnFile(const char *name, const char *fileName, const char *help, Run run, CLI::App *parent = nullptr);
    CLI::App *AddWriter(const char *name, const char *fileName, const char *help, Run run);
    CLI::App *AddEditor(const char *name, const char *arguments, const char *help, Run run);
    CLI::Option *AddReferFile(CLI::App *command);
    void AddWait(CLI::App *command);
    void AddReading(CLI::App *command);
    void AddNames(CLI::App *command);
    void AddDryRun(CLI::App *command, const char *help);
    void AddComment(CLI::App *command);
    void AddWriteOptions(CLI::App *command);
    void AddPlace(CLI::App *command, bool isRequired);
    void AddWhere(CLI::App *command);
    void AddInfo();
    void AddReaders();
    void AddEditors();
    void AddPatch();
    void AddJson();
    void AddConvert();
    void AddDiff();
    void AddHistory();
    void AddWatch();
    void AddRefer();
    void AddSchema();

    CLI::App *app_ = nullptr;
    Invocation *invocation_ = nullptr;
    FileWords words_;
};

}  // namespace tavcfg

#endif
