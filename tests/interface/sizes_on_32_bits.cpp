/*
 * Sizes of what callers on 32-bit hosts hold, embed or fill: checked when this is compiled for one.
 */
#include <cstddef>

#include "tav_common.h"
#include "tav_crypt.h"
#include "tav_extcfg.h"
#include "tav_ftpci.h"
#include "tav_rbtree.h"

namespace {

/** Whether a type has a size where pointers have 4 bytes. */
template <typename Type, size_t kSize>
constexpr bool kHasSize = sizeof(void *) != 4 || sizeof(Type) == kSize;

static_assert(kHasSize<TAV_RBT_Node, 16> && kHasSize<TAV_RBT_Tree, 36>);
static_assert(kHasSize<TAV_FSM_Record, 20> && kHasSize<TAV_FSM_Ring, 204> && kHasSize<TAV_FSM, 216>);
static_assert(kHasSize<TAV_FSM_Transition, 12> && kHasSize<FSM_Transition, 8> && kHasSize<TAV_SubIfHandler, 8>);
static_assert(kHasSize<TAV_CmdHandler, 8> && kHasSize<TAV_ConstructHandler, 8> && kHasSize<TAV_StateHandler, 8>);
static_assert(kHasSize<TAV_ZipCb, 272> && kHasSize<TAV_SYS_PASSWORD_S, 435> && kHasSize<TAV_ExtTlvDataTypeRow, 16>);
static_assert(kHasSize<NFTPCI_ReqParam, 28> && kHasSize<NFTPCI_MemBufBlock, 12> && kHasSize<NFTPCI_CommHandle, 8>);

}  // namespace
