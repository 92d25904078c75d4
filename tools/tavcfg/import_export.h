/*
 * import, export: a file's content as JSON.
 */
#ifndef TAVCFG_IMPORT_EXPORT_H
#define TAVCFG_IMPORT_EXPORT_H

#include <string>

#include "open.h"
#include "records.h"
#include "tav/json.h"

namespace tavcfg {

struct ImportOptions {
    WriteOptions write;
    std::string json;  // a text file, or "-" for standard input
    tav::JsonForm form;
    bool merges;    // into what the file holds already
    bool replaces;  // what the file holds already
};

/** Makes or changes a file as JSON says. Throws Failure and tav::Error. */
int RunImport(const ImportOptions &options);

struct ExportOptions {
    FileOptions file;
    Selection selection;
    std::string output;  // a file, or "-" for standard output
    tav::JsonForm form;
    bool isStrict;  // refuses a file that an import would not give back byte for byte
};

/** Writes a file's content as JSON. Throws Failure and tav::Error. */
int RunExport(const ExportOptions &options);

}  // namespace tavcfg

#endif
