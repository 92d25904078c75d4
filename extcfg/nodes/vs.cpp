/*
 * VS nodes: the classes of one virtual system, and the systems of a store.
 */
#include "common/log.h"
#include "extcfg/format/tlv.h"
#include "extcfg/memory.h"
#include "extcfg/nodes/class.h"
#include "extcfg/nodes/id_index.h"
#include "extcfg/nodes/list.h"
#include "extcfg/nodes/valid.h"

using extcfg::ClassesOf;
using extcfg::IsValid;

namespace {

constexpr uint32_t kVsIdTlvSize = TAV_EXT_TLV_HEAD_SIZE + sizeof(uint32_t);

}  // namespace

TAV_ExtCfgVsNode *TAV_ExtCfgVsNodeCreate(uint32_t vsId) {
    auto *vs = static_cast<TAV_ExtCfgVsNode *>(extcfg::kHeap.Take(sizeof(TAV_ExtCfgVsNode)));
    FAIL_IF_NULL(nullptr, vs);
    vs->link = {};
    vs->vsId = vsId;
    extcfg::InitList(&vs->classes);
    vs->dataLength = 0;
    extcfg::InitIdNode(&vs->byVsId, &vs->link, vsId);
    extcfg::InitIdIndex(&vs->classIndex);
    return vs;
}

void TAV_ExtCfgVsNodeFree(TAV_ExtCfgVsNode *vs) {
    if (vs == nullptr) {
        return;
    }
    extcfg::LeaveIdIndex(&vs->byVsId);
    extcfg::DropIdIndex(&vs->classIndex);
    for (TAV_ExtCfgClassNode *classNode : ClassesOf(vs)) {
        SLL_Delete(&vs->classes, &classNode->link);
        TAV_ExtCfgClassNodeFree(classNode);
    }
    extcfg::kHeap.Return(vs);
}

TAV_ExtCfgVsNode *TAV_ExtCfgVsNodeFind(CfgLocal *local, uint32_t vsId) {
    FAIL_UNLESS(nullptr, IsValid(local), "Invalid CfgLocal");
    TAV_ExtCfgVsNode *vs = extcfg::FindById(&local->vsList, &local->vsIndex, &TAV_ExtCfgVsNode::vsId, vsId);
    FAIL_UNLESS(nullptr, vs != nullptr, "VS %d not found", vsId);
    return vs;
}

TAV_ExtCfgVsNode *TAV_ExtCfgVsNodeGetInstance(CfgLocal *local, uint32_t vsId) {
    TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeFind(local, vsId);
    if (vs != nullptr || !IsValid(local)) {
        return vs;
    }
    vs = TAV_ExtCfgVsNodeCreate(vsId);
    FAIL_IF_NULL(nullptr, vs);
    extcfg::AppendIndexed(&local->vsList, &local->vsIndex, &vs->byVsId);
    return vs;
}

uint32_t TAV_ExtCfgVsNodeCalcSize(TAV_ExtCfgVsNode *vs) {
    FAIL_IF_NULL(0u, vs);
    uint32_t size = kVsIdTlvSize;
    for (TAV_ExtCfgClassNode *classNode : ClassesOf(vs)) {
        size = extcfg::AddSizes(size, extcfg::ClassSize(classNode));
    }
    vs->dataLength = size;
    return size;
}
