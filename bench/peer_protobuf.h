/*
 * The protobuf peer: the file digested and parsed into one message on an arena, and an ordered map over it.
 */
#ifndef TAV_BENCH_PEER_PROTOBUF_H
#define TAV_BENCH_PEER_PROTOBUF_H

#include <google/protobuf/arena.h>

#include <map>
#include <string_view>
#include <type_traits>

#include "peer_floor.h"
#include "records.pb.h"

namespace tav::bench {

inline void Fill(pb::Record13 &message, const Record13 &record) {
    message.set_key(record.key);
    message.set_f15(record.f15);
    message.set_f16(record.f16);
    message.set_f17(record.f17);
    message.set_f18(record.f18.data(), record.f18.size());
    message.set_f19(record.f19);
    message.set_f21(record.f21);
    message.set_f24(record.f24);
}

inline void Fill(pb::Record7 &message, const Record7 &record) {
    message.set_key(record.key);
    message.set_f9(record.f9);
    message.set_f12(record.f12);
}

template <typename Record>
class ProtobufOpener {
    static constexpr bool kNumbers = std::is_same_v<Record, Record13>;
    using File = std::conditional_t<kNumbers, pb::File13, pb::File7>;
    using Message = std::conditional_t<kNumbers, pb::Record13, pb::Record7>;
    using Key = std::conditional_t<kNumbers, uint32_t, std::string_view>;  // a text is the message's own, not a copy

  public:
    explicit ProtobufOpener(const std::string &path) : path_(path + ".pb") {}

    void Write(const std::vector<Record> &records) {
        File file;
        for (const Record &record : records) {
            Fill(*file.add_records(), record);
        }
        const std::string bytes = file.SerializeAsString();
        WriteFile(path_, bytes.data(), bytes.size());
        written_ = Sha256(bytes.data(), bytes.size());
    }

    void Open() {
        const Image image = ReadFile(path_);
        digest_ = Sha256(image.bytes.get(), image.size);
        google::protobuf::ArenaOptions options;
        options.start_block_size = options.max_block_size = 1 << 20;  // a large file is faster with large blocks
        arena_ = std::make_unique<google::protobuf::Arena>(options);
        auto *file = google::protobuf::Arena::CreateMessage<File>(arena_.get());
        Require(file->ParseFromArray(image.bytes.get(), static_cast<int>(image.size)), "protobuf parse");
        for (const Message &message : file->records()) {
            byKey_.emplace_hint(byKey_.end(), message.key(), &message);
        }
    }

    bool Check(const std::vector<Record> &records) const {
        const Record &probe = records[records.size() / 2];
        const auto found = byKey_.find(probe.key);
        Message expected;
        Fill(expected, probe);
        return digest_ == written_ && byKey_.size() == records.size() && found != byKey_.end() &&
               found->second->SerializeAsString() == expected.SerializeAsString();
    }

    void Close() {
        byKey_.clear();
        arena_.reset();
    }

  private:
    std::string path_;
    Digest written_{}, digest_{};
    std::unique_ptr<google::protobuf::Arena> arena_;
    std::map<Key, const Message *> byKey_;
};

}  // namespace tav::bench

#endif
