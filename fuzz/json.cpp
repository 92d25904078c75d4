// JSON texts for the tool's import. What is imported can be exported, and the export gives the same file.
#include <unistd.h>

#include "support.h"
#include "tools/tavcfg/commands.h"
#include "tools/tavcfg/errors.h"

/** Imports a text into a new file. Returns the file; nothing, and there is none, when the text is refused. */
static Bytes Import(const tavcfg::Options &options, const Bytes &text) {
    WriteFile(options.other, text);
    std::filesystem::remove(options.file);
    try {
        tavcfg::RunImport(options);
        return WithoutTime(ReadFile(options.file));
    } catch (const tavcfg::Failure &) {
        assert(!FileExists(options.file));
        return {};
    }
}

void Fuzz(FuzzedDataProvider *input) {
    static FILE *const output = freopen(Scratch("output").c_str(), "a", stdout);
    tavcfg::Options options;
    options.file = Scratch("json.dat");
    options.other = Scratch("text.json");
    const Bytes image = Import(options, input->ConsumeRemainingBytes<uint8_t>());
    if (!image.empty()) {
        assert(fflush(output) == 0 && ftruncate(STDOUT_FILENO, 0) == 0);
        assert(tavcfg::RunExport(options) == 0 && fflush(output) == 0);
        assert(Import(options, ReadFile(Scratch("output"))) == image);
    }
}
