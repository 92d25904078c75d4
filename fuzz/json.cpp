// JSON texts for the tool's import. What is imported can be exported, and the export gives the same file.
#include <unistd.h>

#include "support.h"
#include "tools/tavcfg/errors.h"
#include "tools/tavcfg/import_export.h"

/** Imports a text into a new file. Returns the file; nothing, and there is none, when the text is refused. */
static Bytes Import(const tavcfg::ImportOptions &options, const Bytes &text) {
    const std::string &path = options.target.file.path;
    WriteFile(options.json, text);
    std::filesystem::remove(path);
    try {
        tavcfg::RunImport(options);
        return WithoutTime(ReadFile(path));
    } catch (const tavcfg::Failure &) {
        assert(!FileExists(path));
        return {};
    }
}

void Fuzz(FuzzedDataProvider *input) {
    static FILE *const output = freopen(Scratch("output").c_str(), "a", stdout);
    const tavcfg::ImportOptions options{{tavcfg::NamedFile(Scratch("json.dat")), {}}, Scratch("text.json"), false};
    const Bytes image = Import(options, input->ConsumeRemainingBytes<uint8_t>());
    if (!image.empty()) {
        assert(fflush(output) == 0 && ftruncate(STDOUT_FILENO, 0) == 0);
        assert(tavcfg::RunExport(options.target) == 0 && fflush(output) == 0);
        assert(Import(options, ReadFile(Scratch("output"))) == image);
    }
}
