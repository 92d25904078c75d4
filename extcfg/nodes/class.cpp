/*
 * Class nodes: the records of one class in one VS, in a tree, with what makes the tree faster.
 */
#include "extcfg/nodes/class.h"

#include "common/log.h"
#include "containers/rbtree.h"
#include "extcfg/format/tlv.h"
#include "extcfg/memory.h"
#include "extcfg/nodes/id_index.h"
#include "extcfg/nodes/key_index.h"
#include "extcfg/nodes/key_order.h"
#include "extcfg/nodes/record.h"

namespace {

/**
 * Returns whether the tree of a class may be searched by a KeyOrder: comparisons may report, so with the log on those
 * of the tree's own descent are made, and no others; and the tree is public, so somebody may have given it another
 * comparer.
 */
bool OrdersByKey(const TAV_RBT_Tree *records) {
    return TAV_GetDebugFlag() == 0 && records->comparer == TAV_ExtCfgRecordCompare && records->root != nullptr;
}

/** Returns whether a class's tree is as it was made: it is public. */
bool HasUsualTree(const TAV_ExtCfgClassNode *classNode) {
    const TAV_RBT_Tree &records = classNode->records;
    return records.root != nullptr && records.destructor == TAV_ExtCfgRecordNodeFreeForRBT &&
           records.comparer == TAV_ExtCfgRecordCompare;
}

/** Returns the record with the greatest key of a class, or null when the class is empty. */
TAV_ExtCfgRecordNode *GreatestRecord(TAV_ExtCfgClassNode *classNode) {
    if (classNode->greatest == nullptr) {
        classNode->greatest = extcfg::RecordAt(containers::RbtGreatest(&classNode->records));
    }
    return classNode->greatest;
}

/** Puts a record into the tree of its class. Result as of TAV_RBT_AddNode. */
uint32_t AddToTree(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record) {
    if (!OrdersByKey(&classNode->records)) {
        classNode->greatest = nullptr;
        return TAV_RBT_AddNode(&classNode->records, record);
    }
    const extcfg::KeyOrder order(record);
    TAV_ExtCfgRecordNode *greatest = GreatestRecord(classNode);
    if (greatest == nullptr || order(&greatest->node) <= 0) {
        return containers::RbtAdd(&classNode->records, &record->node, order);
    }
    containers::RbtAppend(&classNode->records, &greatest->node, &record->node);
    classNode->greatest = record;
    return TAV_OK;
}

}  // namespace

uint32_t extcfg::ClassAddRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record) {
    const uint32_t result = AddToTree(classNode, record);
    if (result == TAV_OK) {
        ++classNode->recordCount;
        ForgetIndex(classNode);
    }
    return result;
}

TAV_ExtCfgRecordNode *extcfg::ClassFindRecord(TAV_ExtCfgClassNode *classNode, const TAV_ExtCfgRecordNode *keyRecord) {
    if (!OrdersByKey(&classNode->records)) {
        return static_cast<TAV_ExtCfgRecordNode *>(TAV_RBT_GetNode(&classNode->records, &keyRecord->fields));
    }
    const KeyOrder order(keyRecord);
    TAV_ExtCfgRecordNode *record = FindByIndex(classNode, order);
    return record != nullptr ? record : RecordAt(containers::RbtFind(&classNode->records, order));
}

void extcfg::ClassTakeRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record) {
    if (classNode->greatest == record) {
        classNode->greatest = nullptr;
    }
    --classNode->recordCount;
    ForgetIndex(classNode);
    BEX_RBT_RemoveNode(&classNode->records, &record->node);
    record->node = {};  // as of a record that was never added
}

void extcfg::ClassDelRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record) {
    ClassTakeRecord(classNode, record);
    classNode->records.destructor(record);
}

uint32_t extcfg::ClassSize(const TAV_ExtCfgClassNode *classNode) {
    uint32_t size = 0;
    for (const TAV_ExtCfgRecordNode *record = TAV_ExtCfgClassFirstRecord(classNode); record != nullptr;
         record = TAV_ExtCfgClassNextRecord(classNode, record)) {
        size = AddSizes(size, AddSizes(record->recordLength, TAV_EXT_TLV_HEAD_SIZE));
    }
    return size;
}

TAV_ExtCfgClassNode *TAV_ExtCfgClassNodeCreate(uint32_t cid) {
    auto *classNode = static_cast<TAV_ExtCfgClassNode *>(extcfg::kHeap.Take(sizeof(TAV_ExtCfgClassNode)));
    FAIL_IF_NULL(nullptr, classNode);
    classNode->link = {};
    classNode->cid = cid;
    TAV_RBT_Init(&classNode->records, TAV_ExtCfgRecordNodeFreeForRBT, TAV_ExtCfgRecordCompare);
    classNode->greatest = nullptr;
    classNode->recordCount = 0;
    classNode->searches = 0;
    classNode->index = nullptr;
    extcfg::InitIdNode(&classNode->byCid, &classNode->link, cid);
    return classNode;
}

void TAV_ExtCfgClassNodeFree(TAV_ExtCfgClassNode *classNode) {
    if (classNode == nullptr) {
        return;
    }
    extcfg::LeaveIdIndex(&classNode->byCid);
    extcfg::ForgetIndex(classNode);
    if (HasUsualTree(classNode)) {
        containers::RbtFreeAll(&classNode->records);
    } else {
        TAV_RBT_DelTree(&classNode->records);
    }
    extcfg::kHeap.Return(classNode);
}

TAV_ExtCfgClassNode *TAV_ExtCfgClassNodeFind(TAV_ExtCfgVsNode *vs, uint32_t cid) {
    FAIL_IF_NULL(nullptr, vs);
    TAV_ExtCfgClassNode *classNode = extcfg::FindById(&vs->classes, &vs->classIndex, &TAV_ExtCfgClassNode::cid, cid);
    FAIL_UNLESS(nullptr, classNode != nullptr, "Class %d not found", cid);
    return classNode;
}

TAV_ExtCfgClassNode *TAV_ExtCfgClassNodeGetInstance(TAV_ExtCfgVsNode *vs, uint32_t cid) {
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeFind(vs, cid);
    if (classNode != nullptr || vs == nullptr) {
        return classNode;
    }
    classNode = TAV_ExtCfgClassNodeCreate(cid);
    FAIL_IF_NULL(nullptr, classNode);
    extcfg::AppendIndexed(&vs->classes, &vs->classIndex, &classNode->byCid);
    return classNode;
}
