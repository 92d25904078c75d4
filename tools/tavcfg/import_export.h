/*
 * import, export: a file's content as JSON.
 */
#ifndef TAVCFG_IMPORT_EXPORT_H
#define TAVCFG_IMPORT_EXPORT_H

#include <string>

#include "file.h"

namespace tavcfg {

struct ImportOptions {
    Target target;
    std::string json;  // a text file, or "-" for standard input
    bool merges;       // into what the file holds already
};

/** Makes or changes a file as JSON says. Throws Failure. */
int RunImport(const ImportOptions &options);

/** Prints a file's content as JSON. Throws Failure for a file that an import could not give back. */
int RunExport(const Target &target);

}  // namespace tavcfg

#endif
