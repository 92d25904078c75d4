#include "salvage.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "errors.h"
#include "image.h"
#include "progress.h"
#include "tav/values.h"

namespace tavcfg {

namespace {

/** A TLV that may be cut off. */
struct Piece {
    uint32_t type;
    const uint8_t *value;
    size_t length;  // of what is there
    bool isWhole;
};

uint32_t Word(const uint8_t *bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

/** The TLVs of a sequence, the last one perhaps cut off; less than a TLV's header is passed over. */
std::vector<Piece> PiecesOf(const uint8_t *first, size_t length) {
    std::vector<Piece> pieces;
    while (length >= TAV_EXT_TLV_HEAD_SIZE) {
        const size_t stated = Word(first + 4), there = std::min<size_t>(stated, length - TAV_EXT_TLV_HEAD_SIZE);
        pieces.push_back({Word(first), first + TAV_EXT_TLV_HEAD_SIZE, there, stated == there});
        first += TAV_EXT_TLV_HEAD_SIZE + there;
        length -= TAV_EXT_TLV_HEAD_SIZE + there;
    }
    return pieces;
}

/** Reads an image as far as it goes. */
class Reader {
  public:
    Reader(const Image &image, Salvaged *salvaged) : image_(image), salvaged_(salvaged) {}

    void Read() {
        for (const Piece &piece : PiecesOf(image_.data.get(), image_.size)) {
            if (piece.type == EXT_TLV_VS) {
                ReadVs(piece);
            } else if (piece.type != EXT_TLV_HDR) {
                Lose(piece, fmt::format("what is of type {} and no VS", piece.type));
            }
        }
    }

  private:
    void Lose(const Piece &piece, const std::string &what) {
        salvaged_->losses.push_back(
            fmt::format("{} at offset {}", what, piece.value - image_.data.get() - TAV_EXT_TLV_HEAD_SIZE));
    }

    void ReadVs(const Piece &vs) {
        std::optional<uint32_t> id;
        const std::vector<Piece> pieces = PiecesOf(vs.value, vs.length);
        for (const Piece &piece : pieces) {
            if (piece.type == EXT_TLV_VS_ID && piece.length == sizeof(uint32_t) && !id) {
                id = Word(piece.value);
            }
        }
        if (!id) {
            return Lose(vs, fmt::format("a VS without an id, with {} bytes,", vs.length));
        }
        salvaged_->store.AddVs(*id);
        for (const Piece &piece : pieces) {
            if (tav::IsRecordClass(piece.type)) {
                ReadRecord(*id, piece);
            } else if (piece.type != EXT_TLV_VS_ID) {
                Lose(piece, fmt::format("VS {}: what is of type {} and no record", *id, piece.type));
            }
        }
        if (!vs.isWhole) {
            Lose(vs, fmt::format("VS {}: the end, which was cut off, of what stands", *id));
        }
    }

    void ReadRecord(uint32_t vsId, const Piece &piece) {
        tav::Record record(piece.type);
        try {
            bool isWhole = piece.isWhole;
            for (const Piece &field : PiecesOf(piece.value, piece.length)) {
                isWhole = isWhole && field.isWhole;
                AddField(&record, field);
            }
            const std::string name = tav::DescribeRecord(vsId, record.View());
            if (!isWhole) {
                return Lose(piece, name + ": a record that is cut off");
            }
            salvaged_->store.Add(vsId, std::move(record));
            ++salvaged_->recordCount;
        } catch (const tav::Error &error) {
            Lose(piece, fmt::format("VS {} class {}: {}", vsId, piece.type, error.what()));
        }
    }

    static void AddField(tav::Record *record, const Piece &field) {
        std::vector<uint8_t> value(field.length);
        if (TAV_ExtTlvConvertEndian(field.type, static_cast<uint32_t>(field.length), field.value, value.data()) !=
            TAV_OK) {
            throw tav::Error(TAV_ERR_INVALID, fmt::format("field {}", field.type), "its value is too long");
        }
        record->Add(field.type, value);
    }

    const Image &image_;
    Salvaged *salvaged_;
};

}  // namespace

Salvaged SalvageFrom(const File &file) {
    const Progress progress("salvaging " + file.given);
    const Image image = ReadImage(file);
    Salvaged salvaged{tav::Store::New(file.path), 0, {}};
    Reader(image, &salvaged).Read();
    if (salvaged.recordCount == 0) {
        throw Failure(fmt::format("cannot salvage {}: no record in it can be read", file.given));
    }
    return salvaged;
}

}  // namespace tavcfg
