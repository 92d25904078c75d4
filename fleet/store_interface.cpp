/*
 * The C interface of the store.
 */
#include <new>
#include <string>

#include "fleet/store_call.h"
#include "fleet/store_follower.h"
#include "fleet/store_publisher.h"
#include "tav_common.h"
#include "tav_posix.h"

namespace {

/** The text of the thread's last call; a fixed one when there was no memory for it. */
struct LastText {
    std::string text;
    bool isShort = false;
};
thread_local LastText t_last;

void Keep(const char *text) noexcept {
    try {
        t_last.text = text;
        t_last.isShort = false;
    } catch (...) {
        t_last.isShort = true;
    }
}

/** Does a call, whose exceptions become codes. */
uint32_t Do(void (*work)(fleet::Call *), const char *path, const TAV_FleetOptions *options) noexcept {
    if (path == nullptr || options == nullptr || options->url == nullptr || options->bucket == nullptr) {
        Keep("a pointer is null");
        return TAV_ERR_NULL;
    }
    t_last = {};
    try {
        TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
        fleet::Call call(path, *options);
        work(&call);
        return TAV_OK;
    } catch (const fleet::Over &) {
        return TAV_OK;
    } catch (const tav::Error &error) {
        Keep(error.what());
        return error.Code();
    } catch (const std::bad_alloc &) {
        Keep("memory is short");
        return TAV_ERR_NO_MEMORY;
    } catch (const std::exception &error) {
        Keep(error.what());
        return TAV_ERR_COPY;
    }
}

}  // namespace

uint32_t TAV_FleetPublish(const char *path, const TAV_FleetOptions *options) {
    return Do(fleet::Publish, path, options);
}

uint32_t TAV_FleetFollow(const char *path, const TAV_FleetOptions *options) {
    return Do(fleet::Follow, path, options);
}

const char *TAV_FleetErrorText(void) {
    return t_last.isShort ? "memory is short" : t_last.text.c_str();
}
