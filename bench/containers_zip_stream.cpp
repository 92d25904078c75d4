/*
 * Measures the stream that writes an archive beside a library that compresses the same text in one piece.
 */
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "containers_bench.h"
#include "platform/mel_memory.h"
#include "random.h"
#include "tav_common.h"

namespace tav::bench {
namespace {

constexpr size_t kTextSize = 20000000;
constexpr int kLevel = 6;  // that of TAV_Zip

/** Lines of a configuration. */
std::vector<std::string> MakeText() {
    Random random;
    std::vector<std::string> words;
    for (int i = 0; i < 2000; ++i) {
        words.push_back(random.Text(3, 12));
    }
    std::vector<std::string> lines;
    for (size_t size = 0; size < kTextSize; size += lines.back().size()) {
        std::string line = random.Between(0, 2) == 0 ? "" : " ";
        for (uint32_t i = random.Between(2, 6); i > 0; --i) {
            line += words[random.Between(0, 1999)] + " ";
        }
        lines.push_back(line + std::to_string(random.Between(0, 65535)) + "\n");
    }
    return lines;
}

/** Appends to the stream's text, as a caller does. */
void Append(TAV_ZipCb &block, const std::string &line) {
    const auto length = static_cast<uint32_t>(line.size());
    if (const uint32_t size = TAV_GetZipBufferSize(&block, length); size != 0) {
        block.buffer = MEL_MemReAlloc(g_pTavCommHandle, g_aucMelMemPt[0], block.buffer, size);
        Require(block.buffer != nullptr, "memory");
        block.size = size;
    }
    memcpy(static_cast<char *>(block.buffer) + block.used, line.c_str(), length + 1);
    block.used += length;
}

void WriteStream(const std::vector<std::string> &lines, const std::string &path) {
    TAV_ZipCb block;
    Require(TAV_ZipStart(g_pTavCommHandle, &block, path.c_str()) == 0, "TAV_ZipStart");
    for (const std::string &line : lines) {
        Append(block, line);
    }
    Require(TAV_Zip(&block) == 0, "TAV_Zip");
    Require(TAV_ZipEnd(&block) == 0, "TAV_ZipEnd");
}

/** Compresses a text that stands in memory into a gzip file, which has the same checksum as a member of an archive. */
void Deflate(const std::string &text, const std::string &path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    Require(file >= 0, "open for writing");
    z_stream stream{};
    Require(deflateInit2(&stream, kLevel, Z_DEFLATED, MAX_WBITS + 16, 9, Z_DEFAULT_STRATEGY) == Z_OK, "deflateInit2");
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    std::vector<Bytef> chunk(1 << 16);
    do {
        stream.next_out = chunk.data();
        stream.avail_out = static_cast<uInt>(chunk.size());
        Require(deflate(&stream, Z_FINISH) != Z_STREAM_ERROR, "deflate");
        const auto ready = static_cast<ssize_t>(chunk.size() - stream.avail_out);
        Require(write(file, chunk.data(), static_cast<size_t>(ready)) == ready, "write");
    } while (stream.avail_out == 0);
    Require(deflateEnd(&stream) == Z_OK && fsync(file) == 0 && close(file) == 0, "end of file");
}

}  // namespace

/**
 * Measures both ways of writing in each repetition: what else the disk does then falls on both. Each goes once before,
 * for nothing: where the system must fetch free memory from a host first, that would be what is measured.
 */
void RegisterStreams(const std::string &folder) {
    const auto lines = std::make_shared<const std::vector<std::string>>(MakeText());
    const auto text = std::make_shared<const std::string>(std::accumulate(lines->begin(), lines->end(), std::string()));
    const auto ours = [=] { WriteStream(*lines, folder + "/text.zip"); };
    const auto theirs = [=] { Deflate(*text, folder + "/text.gz"); };
    Register("zip stream", benchmark::kMillisecond, [=](benchmark::State &state) {
        theirs();
        ours();
        for ([[maybe_unused]] auto _ : state) {
            state.counters["zip"] = Seconds(ours) * 1e3;
            state.counters["zlib"] = Seconds(theirs) * 1e3;
            state.SetIterationTime((state.counters["zip"] + state.counters["zlib"]) / 1e3);
        }
    });
}

void PrintStreams(CollectingReporter &times) {
    PrintPaired(times, "zip stream", "ms", "zip", "zlib", 1.1);
}

}  // namespace tav::bench
