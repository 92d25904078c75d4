/*
 * Layouts of what callers hold, embed, fill or walk, on hosts of either word size: checked when this is compiled.
 */
#include <cstddef>

#include "tav_common.h"
#include "tav_crypt.h"
#include "tav_extcfg_nodes.h"
#include "tav_ftpci.h"

namespace {

/** Whether a size or an offset is the one for hosts with pointers of 4 bytes, or of 8. */
constexpr bool Is(size_t value, size_t with4, size_t with8) {
    return value == (sizeof(void *) == 4 ? with4 : with8);
}

static_assert(Is(sizeof(SLL_List), 16, 32));
static_assert(Is(sizeof(TAV_RBT_Node), 16, 32));
static_assert(Is(sizeof(TAV_RBT_Tree), 36, 64));
static_assert(Is(sizeof(TAV_FSM_Record), 20, 20));
static_assert(Is(sizeof(TAV_FSM_Ring), 204, 204));
static_assert(Is(sizeof(TAV_FSM), 216, 232));
static_assert(Is(sizeof(TAV_FSM_Transition), 12, 24));
static_assert(Is(sizeof(FSM_Transition), 8, 16));
static_assert(Is(sizeof(TAV_SubIfHandler), 8, 16));
static_assert(Is(sizeof(TAV_CmdHandler), 8, 16));
static_assert(Is(sizeof(TAV_ConstructHandler), 8, 16));
static_assert(Is(sizeof(TAV_StateHandler), 8, 16));
static_assert(Is(sizeof(TAV_ZipCb), 272, 280));
static_assert(Is(sizeof(TAV_SYS_PASSWORD_S), 435, 435));
static_assert(Is(sizeof(TAV_ExtTlvDataTypeRow), 16, 24));
static_assert(Is(sizeof(NFTPCI_ReqParam), 28, 28));
static_assert(Is(sizeof(NFTPCI_MemBufBlock), 12, 16));
static_assert(Is(sizeof(NFTPCI_CommHandle), 8, 8));

// A field's value follows its header, a record's key its tree node.
static_assert(Is(offsetof(TAV_ExtCfgFieldNode, link), 0, 0));
static_assert(Is(offsetof(TAV_ExtCfgFieldNode, fid), 4, 8));
static_assert(Is(offsetof(TAV_ExtCfgFieldNode, length), 8, 12));
static_assert(Is(sizeof(TAV_ExtCfgFieldNode), 12, 16));

static_assert(Is(offsetof(TAV_ExtCfgRecordNode, node), 0, 0));
static_assert(Is(offsetof(TAV_ExtCfgRecordNode, fields), 16, 32));
static_assert(Is(offsetof(TAV_ExtCfgRecordNode, recordLength), 32, 64));

static_assert(Is(offsetof(TAV_ExtCfgClassNode, link), 0, 0));
static_assert(Is(offsetof(TAV_ExtCfgClassNode, cid), 4, 8));
static_assert(Is(offsetof(TAV_ExtCfgClassNode, records), 8, 16));

static_assert(Is(offsetof(TAV_ExtCfgVsNode, link), 0, 0));
static_assert(Is(offsetof(TAV_ExtCfgVsNode, vsId), 4, 8));
static_assert(Is(offsetof(TAV_ExtCfgVsNode, classes), 8, 16));
static_assert(Is(offsetof(TAV_ExtCfgVsNode, dataLength), 24, 48));

static_assert(Is(offsetof(CfgLocal, magic), 0, 0));
static_assert(Is(offsetof(CfgLocal, mode), 4, 4));
static_assert(Is(offsetof(CfgLocal, referFlag), 5, 5));
static_assert(Is(offsetof(CfgLocal, queryFlag), 6, 6));
static_assert(Is(offsetof(CfgLocal, filePath), 7, 7));
static_assert(Is(offsetof(CfgLocal, referPath), 7 + 256, 7 + 256));
static_assert(Is(offsetof(CfgLocal, vsList), 520, 520));
static_assert(Is(offsetof(CfgLocal, queryCursor), 536, 552));
static_assert(Is(offsetof(CfgLocal, queryVsId), 540, 560));
static_assert(Is(offsetof(CfgLocal, queryCondition), 544, 568));

}  // namespace
