/*
 * Class and VS nodes.
 */
#include "extcfg/model.h"

#include "common/log.h"
#include "containers/rbtree.h"
#include "extcfg/key_index.h"
#include "extcfg/memory.h"

using extcfg::AddSizes;
using extcfg::FirstOf;
using extcfg::NextOf;

namespace {

constexpr uint32_t kVsIdTlvSize = TAV_EXT_TLV_HEAD_SIZE + sizeof(uint32_t);

/** Returns the bytes of all record TLVs of a class. */
uint32_t ClassSize(TAV_ExtCfgClassNode *classNode) {
    uint32_t size = 0;
    TAV_RBT_Tree *records = &classNode->records;
    for (TAV_RBT_Node *node = BEX_RBT_FirstNode(records); node != nullptr; node = BEX_RBT_NextNode(records, node)) {
        const uint32_t recordLength = reinterpret_cast<TAV_ExtCfgRecordNode *>(node)->recordLength;
        size = AddSizes(size, AddSizes(recordLength, TAV_EXT_TLV_HEAD_SIZE));
    }
    return size;
}

/** Returns the record with the greatest key of a class, or null when the class is empty. */
TAV_ExtCfgRecordNode *GreatestRecord(TAV_ExtCfgClassNode *classNode) {
    if (classNode->greatest == nullptr) {
        classNode->greatest = reinterpret_cast<TAV_ExtCfgRecordNode *>(containers::RbtGreatest(&classNode->records));
    }
    return classNode->greatest;
}

/** Puts a record into the tree of its class. Result as of TAV_RBT_AddNode. */
uint32_t AddToTree(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record) {
    if (TAV_GetDebugFlag() != 0) {
        /* Comparisons may report: with the log on, make those of a descent and no other. */
        classNode->greatest = nullptr;
        return TAV_RBT_AddNode(&classNode->records, record);
    }
    TAV_ExtCfgRecordNode *greatest = GreatestRecord(classNode);
    if (greatest == nullptr || TAV_ExtCfgRecordCompare(&record->fields, &greatest->fields) <= 0) {
        return TAV_RBT_AddNode(&classNode->records, record);
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

/** Tells whether records are searched for so often, and are so many, that an index pays; else counts the search. */
bool IndexPays(TAV_ExtCfgClassNode *classNode) {
    constexpr uint32_t kManyRecords = 1024; /* fewer stay in the processor's caches */
    if (classNode->recordCount < kManyRecords || classNode->searches < classNode->recordCount / 2) {
        ++classNode->searches;
        return false;
    }
    classNode->searches = 0; /* when memory is short, the next try is as far off as this one was */
    return true;
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
    /* Comparisons may report: with the log on, those of a descent alone are made. */
    if (TAV_GetDebugFlag() == 0) {
        if (classNode->index == nullptr && IndexPays(classNode)) {
            classNode->index = BuildKeyIndex(&classNode->records, classNode->recordCount);
        }
        if (classNode->index != nullptr) {
            TAV_ExtCfgRecordNode *record = FindInKeyIndex(classNode->index, keyRecord);
            if (record != nullptr) {
                return record;
            }
        }
    }
    return static_cast<TAV_ExtCfgRecordNode *>(TAV_RBT_GetNode(&classNode->records, &keyRecord->fields));
}

void extcfg::ClassDelRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record) {
    if (classNode->greatest == record) {
        classNode->greatest = nullptr;
    }
    --classNode->recordCount;
    DropIndex(classNode);
    TAV_RBT_DelNode(&classNode->records, record);
}

TAV_ExtCfgClassNode *TAV_ExtCfgClassNodeCreate(uint32_t cid) {
    auto *classNode = static_cast<TAV_ExtCfgClassNode *>(TAV_TAKE(sizeof(TAV_ExtCfgClassNode)));
    TAV_NONE_IF_NULL(classNode);
    classNode->link = {};
    classNode->cid = cid;
    TAV_RBT_Init(&classNode->records, TAV_ExtCfgRecordNodeFreeForRBT, TAV_ExtCfgRecordCompare);
    classNode->greatest = nullptr;
    classNode->recordCount = 0;
    classNode->searches = 0;
    classNode->index = nullptr;
    return classNode;
}

void TAV_ExtCfgClassNodeFree(TAV_ExtCfgClassNode *classNode) {
    if (classNode == nullptr) {
        return;
    }
    extcfg::FreeKeyIndex(classNode->index);
    TAV_RBT_DelTree(&classNode->records);
    TAV_GIVE_BACK(classNode);
}

TAV_ExtCfgClassNode *TAV_ExtCfgClassNodeFind(TAV_ExtCfgVsNode *vs, uint32_t cid) {
    TAV_NONE_IF_NULL(vs);
    for (auto *classNode = FirstOf<TAV_ExtCfgClassNode>(&vs->classes); classNode != nullptr;
         classNode = NextOf(&vs->classes, classNode)) {
        if (classNode->cid == cid) {
            return classNode;
        }
    }
    TAV_FAIL(nullptr, "Class %d not found", cid);
}

TAV_ExtCfgClassNode *TAV_ExtCfgClassNodeGetInstance(TAV_ExtCfgVsNode *vs, uint32_t cid) {
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeFind(vs, cid);
    if (classNode != nullptr || vs == nullptr) {
        return classNode;
    }
    classNode = TAV_ExtCfgClassNodeCreate(cid);
    TAV_NONE_IF_NULL(classNode);
    extcfg::AppendTo(&vs->classes, &classNode->link);
    return classNode;
}

TAV_ExtCfgVsNode *TAV_ExtCfgVsNodeCreate(uint32_t vsId) {
    auto *vs = static_cast<TAV_ExtCfgVsNode *>(TAV_TAKE(sizeof(TAV_ExtCfgVsNode)));
    TAV_NONE_IF_NULL(vs);
    vs->link = {};
    vs->vsId = vsId;
    extcfg::InitList(&vs->classes);
    vs->dataLength = 0;
    return vs;
}

void TAV_ExtCfgVsNodeFree(TAV_ExtCfgVsNode *vs) {
    if (vs == nullptr) {
        return;
    }
    while (auto *classNode = FirstOf<TAV_ExtCfgClassNode>(&vs->classes)) {
        SLL_Delete(&vs->classes, &classNode->link);
        TAV_ExtCfgClassNodeFree(classNode);
    }
    TAV_GIVE_BACK(vs);
}

TAV_ExtCfgVsNode *TAV_ExtCfgVsNodeFind(CfgLocal *local, uint32_t vsId) {
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(nullptr, "Invalid CfgLocal");
    }
    for (auto *vs = FirstOf<TAV_ExtCfgVsNode>(&local->vsList); vs != nullptr; vs = NextOf(&local->vsList, vs)) {
        if (vs->vsId == vsId) {
            return vs;
        }
    }
    TAV_FAIL(nullptr, "VS %d not found", vsId);
}

TAV_ExtCfgVsNode *TAV_ExtCfgVsNodeGetInstance(CfgLocal *local, uint32_t vsId) {
    TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeFind(local, vsId);
    if (vs != nullptr || !extcfg::IsValid(local)) {
        return vs;
    }
    vs = TAV_ExtCfgVsNodeCreate(vsId);
    TAV_NONE_IF_NULL(vs);
    extcfg::AppendTo(&local->vsList, &vs->link);
    return vs;
}

uint32_t TAV_ExtCfgVsNodeCalcSize(TAV_ExtCfgVsNode *vs) {
    TAV_RETURN_IF_NULL(vs, 0);
    uint32_t size = kVsIdTlvSize;
    for (auto *classNode = FirstOf<TAV_ExtCfgClassNode>(&vs->classes); classNode != nullptr;
         classNode = NextOf(&vs->classes, classNode)) {
        size = AddSizes(size, ClassSize(classNode));
    }
    vs->dataLength = size;
    return size;
}
