/*
 * Commits: the draft, the history, and the one step in between.
 */
#include "session/commit.h"

#include "session/draft.h"
#include "session/recorder.h"
#include "tav_session.h"

namespace session {

namespace {

/** Throws when the file is no longer the one that was loaded. */
void RequireUnchanged(const Place &place, const FileState &file) {
    if (IdentityOf(StatusOf(place.Path())) != file.identity) {
        throw tav::Error(
            TAV_ERR_CHANGED, place.given,
            "a program that writes without a session has changed it meanwhile; nothing was written, try again");
    }
}

/** The file is another one now; makes that last. */
void Settle(const Place &place, Recorder *recorder) {
    recorder->ComeTrue();
    try {
        SyncFolder(place.folder);
    } catch (const tav::Error &error) {
        throw tav::Error(error.Code(), place.given,
                         std::string("it has been changed, but that may not outlive a loss of power: ") + error.what());
    }
    recorder->Confirm();
}

/** Removes the file of a store that has become empty. */
void RemoveFile(const Place &place, const NextState &next, const std::string &comment, FileState *file) {
    Recorder recorder(place, &file->index);
    recorder.Prepare(next.store, "", comment, {});
    RequireUnchanged(place, *file);
    Remove(place.Path());
    file->checksums.reset();
    file->identity = {};
    Settle(place, &recorder);
}

void ReplaceFile(const Place &place, const NextState &next, const std::string &comment, FileState *file) {
    Draft draft(place, next.image);
    Recorder recorder(place, &file->index);
    recorder.Prepare(next.store, ToHex(next.checksums.body), comment, draft.Status());
    const Identity identity(draft.Status());
    RequireUnchanged(place, *file);
    draft.TakePlace();
    file->checksums = next.checksums;
    file->identity = identity;
    Settle(place, &recorder);
}

}  // namespace

FileState StateOf(const Place &place, const std::optional<Loaded> &loaded) {
    FileState file;
    if (loaded) {
        file.checksums = loaded->content.checksums;
        file.identity = loaded->identity;
    }
    file.index = HistoryFolder(place).Settle(loaded ? ToHex(file.checksums->body) : "");
    return file;
}

void Commit(const Place &place, const NextState &next, const std::string &comment, FileState *file) {
    (next.image.empty() ? RemoveFile : ReplaceFile)(place, next, comment, file);
}

}  // namespace session
