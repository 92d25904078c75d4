/*
 * Images that take a file's place.
 */
#include "tav/image_session.h"

#include <algorithm>

#include "session/commit.h"
#include "session/draft.h"
#include "session/errors.h"
#include "session/history_folder.h"
#include "session/start.h"
#include "tav_session.h"

namespace tav {

namespace {

using session::Block;
using session::Place;

constexpr size_t kHeadRoom = 4096;  // more than any head has

Block CopyOf(std::span<const uint8_t> bytes) {
    Block block(bytes.size());
    std::ranges::copy(bytes, block.bytes.get());
    return block;
}

/** The beginning of a file's image, with its head; nothing when there is none. */
std::optional<Block> ReadHead(const Place &place, size_t size) {
    if (place.IsArchive()) {
        std::optional<session::ReadImage> read = session::ReadImageOf(place);
        return read ? std::optional(std::move(read->image)) : std::nullopt;
    }
    const session::Descriptor file = session::OpenRegular(place.Path());
    if (!file) {
        session::FailOfSystem(TAV_ERR_OPEN, place.given, "it cannot be read");
    }
    return session::ReadAll(file, std::min(size, kHeadRoom), place.given);
}

/** The checksum that a file states; nothing when it states none. */
std::optional<session::Digest> StatedChecksum(const Place &place, size_t size) {
    try {
        const std::optional<Block> head = ReadHead(place, size);
        return head && head->size > 0 ? session::BodyChecksum(*head) : std::nullopt;
    } catch (const Error &error) {
        if (error.Code() != TAV_ERR_INVALID) {
            throw;
        }
        return {};
    }
}

}  // namespace

struct ImageSession::State {
    State(const std::string &given, std::chrono::milliseconds wait)
        : place(session::Resolve(given)),
          path(place.Path()),
          lock((session::RequireUsable(place, true), place), session::EndOf(wait)) {
        session::Draft::RemoveLeftover(place);
        const std::optional<struct stat> status = session::StatusOf(path);
        if (!status && session::Exists(place.Backup())) {
            throw Error(TAV_ERR_BACKUP, place.given,
                        "it is missing, but a backup lies beside it, " + place.Backup() + ": recover the file");
        }
        if (status) {
            const std::optional<session::Digest> stated = StatedChecksum(place, static_cast<size_t>(status->st_size));
            checksum = stated ? session::ToHex(*stated) : "";
        }
        file.identity = session::IdentityOf(status);
        file.index = session::HistoryFolder(place).Settle(checksum.value_or(""));
    }

    /** What the history is to compare; nothing when it is off, and then nothing is loaded. */
    Store Load(std::span<const uint8_t> image) const {
        if (!file.index.isOn) {
            return Store::New(path);
        }
        Block copy = CopyOf(image);
        return session::ParseImage(copy, path, {}, place.given).store;
    }

    const Place place;
    const std::string path;
    session::HeldLock lock;
    session::FileState file;
    std::optional<std::string> checksum;
};

ImageSession::ImageSession(const std::string &path, std::chrono::milliseconds wait) {
    session::CompleteTypeTable();
    state_ = std::make_unique<State>(path, wait);
}
ImageSession::~ImageSession() = default;
ImageSession::ImageSession(ImageSession &&) noexcept = default;
ImageSession &ImageSession::operator=(ImageSession &&) noexcept = default;

const std::string &ImageSession::Path() const {
    return state_->path;
}

const std::optional<std::string> &ImageSession::Checksum() const {
    return state_->checksum;
}

void ImageSession::Replace(std::span<const uint8_t> image, const std::string &comment) {
    const std::optional<session::Digest> digest =
        session::BodyChecksum(CopyOf(image.first(std::min(image.size(), kHeadRoom))));
    if (!digest) {
        throw Error(TAV_ERR_INVALID, state_->place.given, "the image has no head");
    }
    session::Commit(state_->place, {image, {*digest, {}}, state_->Load(image)}, comment, &state_->file);
    state_->checksum = session::ToHex(*digest);
}

}  // namespace tav
