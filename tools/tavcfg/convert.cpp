#include "convert.h"

#include <fmt/format.h>

#include <cstdio>

#include "errors.h"
#include "store.h"

namespace tavcfg {

namespace {

/** Writes an image as a whole new file, keeping what was there under its backup's name until the new one stands. */
void ReplaceFile(const File &file, const Image &image) {
    RequireWritable(file);
    const File backup = BackupOf(file);
    const bool wasThere = Exists(file);
    if (wasThere) {
        MoveFile(file, backup);
    }
    const uint32_t code = file.IsArchive() ? TAV_ZipBufferToExtCfgFile(image.data.get(), image.size, file.path.c_str())
                                           : TAV_WriteBufferToFile(image.data.get(), image.size, file.path.c_str());
    if (code == TAV_OK) {
        if (wasThere) {
            DeleteFile(backup);
        }
        return;
    }
    if (wasThere) {
        MoveFile(backup, file);
    } else if (Exists(file)) {
        DeleteFile(file);
    }
    throw Failure(fmt::format("cannot write {}: {}", file.given, Explain(code)));
}

}  // namespace

int RunConvert(const ConvertOptions &options) {
    const auto &[in, out, rewrites] = options;
    if (SameFile(in.file, out)) {
        throw Failure(fmt::format("cannot convert {} to {}: they are the same file", in.file.given, out.given));
    }
    LoadedFile loaded = Load(in);
    if (!rewrites) {
        ReplaceFile(out, loaded.image);
    } else if (!loaded.store.WriteTo(out)) {
        fmt::print("nothing to write: {} holds the same already\n", out.given);
        return 0;
    }
    fmt::print("converted {} to {}\n", in.file.given, out.given);
    return 0;
}

}  // namespace tavcfg
