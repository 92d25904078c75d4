/*
 * Finding a stored record by its key.
 */
#include "extcfg/store/lookup.h"

#include "extcfg/nodes/class.h"

extcfg::Place extcfg::LookUp(CfgLocal *local, uint32_t vsId, const TAV_ExtCfgRecordNode *keyRecord) {
    TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeFind(local, vsId);
    if (vs == nullptr) {
        return {};
    }
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeFind(vs, TAV_ExtCfgRecordCid(keyRecord));
    if (classNode == nullptr) {
        return {};
    }
    return {classNode, ClassFindRecord(classNode, keyRecord)};
}
