/*
 * What the sources of the C interface share: exceptions become codes, results the caller's, and fields bytes.
 */
#ifndef SESSION_C_CALL_H
#define SESSION_C_CALL_H

#include <cstring>
#include <string>

#include "session/start.h"
#include "tav/changes.h"
#include "tav/names.h"
#include "tav/store.h"
#include "tav_changes.h"

struct TAV_Names {
    tav::Names names;
};

namespace session {

/** Keeps what this thread's call has to say, for TAV_SessionErrorText and TAV_SessionErrorPlace. */
void KeepText(const char *text, const char *place = "") noexcept;

/** Forgets what was kept. */
void ForgetText() noexcept;

/** The code of the exception that is being handled, whose text is kept. */
uint32_t CodeOfException() noexcept;

/** Makes a call, before which the type table is completed, and whose exceptions become codes. */
template <typename Call>
uint32_t Guard(Call call) noexcept {
    try {
        ForgetText();
        CompleteTypeTable();
        return call();
    } catch (...) {
        return CodeOfException();
    }
}

/** Says no to a null. */
uint32_t RefuseNull() noexcept;

inline std::string TextOf(const char *text) {
    return text != nullptr ? text : "";
}

/** The names that a caller has given, or none. */
const tav::Names &NamesOf(const TAV_Names *names);

/** Copies bytes for the caller. Throws std::bad_alloc. */
void Give(std::string_view from, TAV_Bytes *bytes);

/** A store that stays its owner's. */
class Borrowed {
  public:
    explicit Borrowed(CfgLocal *local) : store_(local) {}
    ~Borrowed() { static_cast<void>(store_.Release()); }
    Borrowed(const Borrowed &) = delete;
    Borrowed &operator=(const Borrowed &) = delete;

    tav::Store &operator*() { return store_; }
    tav::Store *operator->() { return &store_; }

  private:
    tav::Store store_;
};

/** Appends a field to fields in bytes, as tav_store.h describes them. */
void AppendField(std::string *fields, uint32_t fid, std::string_view value);

/** Hands out each of the fields in bytes. Throws Error (TAV_ERR_INVALID) when they are cut off. */
template <typename Take>
void ForEachField(const void *fields, size_t size, Take take) {
    uint32_t head[2];
    for (const char *at = static_cast<const char *>(fields); size != 0; at += sizeof(head) + head[1]) {
        if (size >= sizeof(head)) {
            std::memcpy(head, at, sizeof(head));
        }
        if (size < sizeof(head) || size - sizeof(head) < head[1]) {
            throw tav::Error(TAV_ERR_INVALID, "", "the fields are cut off");
        }
        take(head[0], std::string_view(at + sizeof(head), head[1]));
        size -= sizeof(head) + head[1];
    }
}

}  // namespace session

#endif
