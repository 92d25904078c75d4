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

/** Lets go of the index: the records change. */
void DropIndex(TAV_ExtCfgClassNode *classNode) {
    extcfg::FreeKeyIndex(classNode->index);
    classNode->index = nullptr;
    classNode->searches = 0;
}

/** Returns whether the records are so many, and have been searched for so often, that an index pays. */
bool IndexPays(const TAV_ExtCfgClassNode *classNode) {
    constexpr uint32_t kManyRecords = 1024;  // fewer stay in the processor's caches
    return classNode->recordCount >= kManyRecords && classNode->searches >= classNode->recordCount / 2;
}

/** Counts a search that finds no index. Builds one when that pays by now. */
void CountSearch(TAV_ExtCfgClassNode *classNode) {
    if (!IndexPays(classNode)) {
        ++classNode->searches;
        return;
    }
    classNode->searches = 0;  // when memory is short, the next try is as far off as this one was
    classNode->index = extcfg::BuildKeyIndex(&classNode->records, classNode->recordCount);
}

/** Finds a record with the help of the index, if there is one or it is time for one; null when that does not help. */
TAV_ExtCfgRecordNode *FindFast(TAV_ExtCfgClassNode *classNode, const TAV_ExtCfgRecordNode *keyRecord) {
    if (classNode->index == nullptr) {
        CountSearch(classNode);
    }
    return classNode->index != nullptr ? extcfg::FindInKeyIndex(classNode->index, keyRecord) : nullptr;
}

}  // namespace

uint32_t extcfg::ClassAddRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record) {
    const uint32_t result = AddToTree(classNode, record);
    if (result == TAV_OK) {
        ++classNode->recordCount;
        DropIndex(classNode);
    }
    return result;
}

TAV_ExtCfgRecordNode *extcfg::ClassFindRecord(TAV_ExtCfgClassNode *classNode, const TAV_ExtCfgRecordNode *keyRecord) {
    if (!OrdersByKey(&classNode->records)) {
        return static_cast<TAV_ExtCfgRecordNode *>(TAV_RBT_GetNode(&classNode->records, &keyRecord->fields));
    }
    TAV_ExtCfgRecordNode *record = FindFast(classNode, keyRecord);
    if (record != nullptr) {
        return record;
    }
    return RecordAt(containers::RbtFind(&classNode->records, KeyOrder(keyRecord)));
}

void extcfg::ClassTakeRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record) {
    if (classNode->greatest == record) {
        classNode->greatest = nullptr;
    }
    --classNode->recordCount;
    DropIndex(classNode);
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
    extcfg::FreeKeyIndex(classNode->index);
    TAV_RBT_DelTree(&classNode->records);
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
