/*
 * Calls of the system, made to the end, whose failures say what could not be done and why.
 */
#include "session/files.h"

#include <fcntl.h>

#include "session/errors.h"
#include "tav_session.h"

namespace session {

namespace {

/** Repeats a call of the system as long as signals interrupt it. */
template <typename Call>
auto Retry(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

void WriteAll(int fd, std::span<const uint8_t> content, const std::string &place) {
    while (!content.empty()) {
        const ssize_t done = Retry([&] { return write(fd, content.data(), content.size()); });
        if (done < 0) {
            FailOfSystem(TAV_ERR_NOT_SAVED, place, "cannot be written");
        }
        content = content.subspan(static_cast<size_t>(done));
    }
}

}  // namespace

Descriptor OpenFile(const std::string &path, int flags, mode_t mode) {
    return Descriptor(Retry([&] { return open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

bool MakeOwnFolder(const std::string &path) {
    if (mkdir(path.c_str(), 0700) != 0) {
        return false;
    }
    static_cast<void>(fchmodat(AT_FDCWD, path.c_str(), 0700, AT_SYMLINK_NOFOLLOW));  // an umask may have taken rights
    return true;
}

std::optional<struct stat> StatusOf(const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0) {
        return status;
    }
    if (errno == ENOENT) {
        return {};
    }
    FailOfSystem(TAV_ERR_OPEN, path, "cannot be looked at");
}

Block ReadAll(const Descriptor &file, size_t size, const std::string &place) {
    Block block(size);
    for (size_t done = 0; done < size;) {
        const ssize_t got = Retry([&] { return read(file.Get(), &block.bytes[done], size - done); });
        if (got < 0) {
            FailOfSystem(TAV_ERR_OPEN, place, "cannot be read");
        }
        if (got == 0) {
            throw tav::Error(TAV_ERR_INVALID, place, "it has become shorter while it was read");
        }
        done += static_cast<size_t>(got);
    }
    return block;
}

Descriptor OpenRegular(const std::string &path, int flags) {
    Descriptor file = OpenFile(path, O_RDONLY | O_NONBLOCK | flags);
    struct stat status {};
    if (file && fstat(file.Get(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw tav::Error(TAV_ERR_INVALID, path, "is not a regular file");
    }
    return file;
}

Block ReadAll(const Descriptor &file, const std::string &place) {
    struct stat status {};
    if (fstat(file.Get(), &status) != 0) {
        FailOfSystem(TAV_ERR_OPEN, place, "cannot be read");
    }
    return ReadAll(file, static_cast<size_t>(status.st_size), place);
}

void WriteNewFile(const std::string &path, std::span<const uint8_t> content, const struct stat &like) {
    const Descriptor file = OpenFile(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0600);
    if (!file) {
        FailOfSystem(TAV_ERR_NOT_SAVED, path, "cannot be created");
    }
    try {
        MakeLike(file.Get(), like, path);
        WriteAll(file.Get(), content, path);
        Sync(file.Get(), path);
    } catch (const tav::Error &) {
        unlink(path.c_str());
        throw;
    }
}

void MakeLike(int fd, const struct stat &like, const std::string &place) {
    struct stat now {};
    fstat(fd, &now);
    const bool sameOwner = now.st_uid == like.st_uid && now.st_gid == like.st_gid;
    if (!sameOwner && fchown(fd, like.st_uid, like.st_gid) != 0) {
        FailOfSystem(TAV_ERR_NOT_SAVED, place, "its owner cannot be kept");
    }
    if (fchmod(fd, like.st_mode & 07777) != 0) {  // last: a change of the owner takes bits away
        FailOfSystem(TAV_ERR_NOT_SAVED, place, "its mode cannot be kept");
    }
}

void Sync(int fd, const std::string &place) {
    // EINVAL and ENOTSUP say that there is no way to, or nothing.
    if (Retry([=] { return fsync(fd); }) != 0 && errno != EINVAL && errno != ENOTSUP) {
        FailOfSystem(TAV_ERR_NOT_SAVED, place, "cannot be brought to the disk");
    }
}

void SyncFolder(const std::string &path) {
    const Descriptor folder = OpenFile(path, O_RDONLY | O_DIRECTORY);
    if (!folder) {
        FailOfSystem(TAV_ERR_NOT_SAVED, path, "cannot be opened");
    }
    Sync(folder.Get(), path);
}

void Rename(const std::string &from, const std::string &to) {
    if (rename(from.c_str(), to.c_str()) != 0) {
        FailOfSystem(TAV_ERR_NOT_SAVED, to, "cannot be replaced");
    }
}

void Remove(const std::string &path) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
        FailOfSystem(TAV_ERR_NOT_SAVED, path, "cannot be removed");
    }
}

}  // namespace session
