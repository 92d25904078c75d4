/*
 * A text streamed into an archive, and read back character by character.
 *
 * usage: zip_text ARCHIVE <TEXT
 *
 * Writes the standard input, a text, as the only member of ARCHIVE, and then prints what reading the archive gives.
 * Finding the member's name takes a temporary folder below /mnt/tmpfs, or below TAV_TMPFS_PATH.
 */
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include "bus_process.h"
#include "platform/mel_memory.h"
#include "tav_common.h"

namespace {

/** An archive that is being written; its buffer goes with it. */
class ArchiveWriter {
  public:
    explicit ArchiveWriter(const char *path) {
        if (TAV_ZipStart(g_pTavCommHandle, &block_, path) != 0) {
            throw std::runtime_error("memory is short");
        }
    }
    ~ArchiveWriter() { TAV_ZipEnd(&block_); }
    ArchiveWriter(const ArchiveWriter &) = delete;
    ArchiveWriter &operator=(const ArchiveWriter &) = delete;

    void Append(const char *text, uint32_t length) {
        Grow(length);
        memcpy(static_cast<char *>(block_.buffer) + block_.used, text, length);
        block_.used += length;
    }

    /** Writes the archive. The text's terminator goes into it, too, so it must stand there. */
    void Finish() {
        static_cast<char *>(block_.buffer)[block_.used] = '\0';
        if (const uint32_t code = TAV_Zip(&block_); code != 0) {
            throw std::runtime_error("the archive cannot be written, code " + std::to_string(code));
        }
    }

  private:
    /** Makes room for that many bytes and the terminator; the buffer is the caller's to enlarge. */
    void Grow(uint32_t length) {
        const uint32_t size = TAV_GetZipBufferSize(&block_, length);
        if (size == 0) {
            return;
        }
        void *const buffer =
            size != TAV_ZIP_FAILED ? MEL_MemReAlloc(g_pTavCommHandle, g_aucMelMemPt[0], block_.buffer, size) : nullptr;
        if (buffer == nullptr) {
            throw std::runtime_error("memory is short for so much text");
        }
        block_.buffer = buffer;
        block_.size = size;
    }

    TAV_ZipCb block_ = {};
};

void WriteArchive(const char *path) {
    ArchiveWriter writer(path);
    char chunk[4096];
    for (size_t length; (length = fread(chunk, 1, sizeof(chunk), stdin)) > 0;) {
        if (memchr(chunk, '\0', length) != nullptr) {
            throw std::runtime_error("the input is no text: it holds a zero byte, where a reader would stop");
        }
        writer.Append(chunk, static_cast<uint32_t>(length));
    }
    if (ferror(stdin) != 0) {
        throw std::runtime_error("the input cannot be read");
    }
    writer.Finish();
}

void PrintArchive(const char *path) {
    TAV_ZipCb block = {};
    if (const uint32_t code = TAV_UnZipStart(&block, path); code != 0) {
        throw std::runtime_error("the archive cannot be read, code " + std::to_string(code));
    }
    bool isPrinted = true;
    while (const int8_t character = TAV_GetCharFromZip(&block)) {
        isPrinted = putchar(character) != EOF && isPrinted;
    }
    TAV_UnZipEnd(&block);
    if (fflush(stdout) != 0 || !isPrinted) {
        throw std::runtime_error("the text cannot be printed");
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: zip_text ARCHIVE <TEXT\n");
        return 2;
    }
    return RunAccounted("zip_text", [=] {
        WriteArchive(argv[1]);
        PrintArchive(argv[1]);
    });
}
