/*
 * What the sources of the C interface share.
 */
#include "session/c_call.h"

#include <algorithm>
#include <new>

#include "tav_session.h"

namespace session {

namespace {

/** What the thread's last call had to say; fixed words when there was no memory for it. */
struct LastText {
    std::string text, place;
    bool isShort = false;
};
thread_local LastText t_last;

}  // namespace

void ForgetText() noexcept {
    t_last = {};
}

void KeepText(const char *text, const char *place) noexcept {
    ForgetText();
    try {
        t_last.text = text;
        t_last.place = place;
    } catch (...) {
        t_last.isShort = true;
    }
}

uint32_t CodeOfException() noexcept {
    try {
        throw;
    } catch (const tav::Error &error) {
        KeepText(error.what(), error.Place().c_str());
        return error.Code();
    } catch (const std::bad_alloc &) {
        KeepText("memory is short");
        return TAV_ERR_NO_MEMORY;
    } catch (const std::exception &error) {
        KeepText(error.what());
        return TAV_ERR_COPY;
    }
}

uint32_t RefuseNull() noexcept {
    KeepText("a pointer is null");
    return TAV_ERR_NULL;
}

const tav::Names &NamesOf(const TAV_Names *names) {
    static const auto *const kNone = new tav::Names;  // stays: a thread may be at work while the process ends
    return names != nullptr ? names->names : *kNone;
}

void Give(std::string_view from, TAV_Bytes *bytes) {
    auto *const data = static_cast<char *>(::operator new(from.size() + 1));
    std::copy(from.begin(), from.end(), data);
    data[from.size()] = '\0';
    *bytes = {data, from.size()};
}

void AppendField(std::string *fields, uint32_t fid, std::string_view value) {
    const uint32_t head[2] = {fid, static_cast<uint32_t>(value.size())};
    fields->append(reinterpret_cast<const char *>(head), sizeof(head)).append(value);
}

}  // namespace session

const char *TAV_SessionErrorText(void) {
    return session::t_last.isShort ? "memory is short" : session::t_last.text.c_str();
}

const char *TAV_SessionErrorPlace(void) {
    return session::t_last.place.c_str();
}
