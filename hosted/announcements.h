/*
 * Who serves a virtual system: symbolic links in the folder of the bus that read a component id.
 *
 * There is no lock, as anyone who may look into the folder could hold it for ever: a link is replaced in one step, and
 * taken out of its place before it is removed. Links of other users are left alone, whatever they read.
 */
#ifndef HOSTED_ANNOUNCEMENTS_H
#define HOSTED_ANNOUNCEMENTS_H

#include <cstdint>

#include "bus_folder.h"

namespace hosted {

/** Announces that a component serves a VS, in place of an earlier announcement. Returns 0, else an errno code. */
uint32_t Announce(const BusFolder &folder, uint32_t componentId, uint32_t component, uint32_t vr, uint32_t vsId);

/** Withdraws all announcements that name a component and are this process's user's, drafts that were left included. */
void WithdrawAnnouncements(const BusFolder &folder, uint32_t componentId);

/** As the transport's find. */
uint32_t FindAnnounced(uint32_t component, uint32_t vr, uint32_t vsId, uint32_t *componentId);

}  // namespace hosted

#endif
