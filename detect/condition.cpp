/*
 * Condition types, conditions, and the groups in which conditions that are the same share one test.
 */
#include "detect/condition.h"

#include "detect/list.h"
#include "detect/message.h"
#include "platform/bex_string.h"

using detect::BookInfo;
using detect::Built;
using detect::Clear;
using detect::Cond;
using detect::CondGroup;
using detect::CondKey;
using detect::CondType;
using detect::Elements;
using detect::IndexLink;
using detect::InsertAtTail;
using detect::Instance;
using detect::IsEmpty;
using detect::kHeap;
using detect::List;
using detect::OwnerOf;
using detect::TlvHeader;
using detect::Unlink;

namespace {

/** Clears the debug switch of the instance that a condition belongs to, if it is known. */
void ClearDebugSwitch(const Cond *cond) {
    if (cond->type != nullptr && cond->type->instance != nullptr) {
        cond->type->instance->debugSwitch = 0;
    }
}

/** Returns the condition that stands for a group, which must not be empty. */
const Cond *FirstCond(const CondGroup &group) {
    return Elements<&Cond::groupLink>(group.conds).First();
}

/** Has the groups of a type's instance, if it has one, looked for in the list from now on. */
void NoteStray(const CondType *type) {
    if (type != nullptr && type->instance != nullptr) {
        type->instance->hasStrays = 1;
    }
}

/** Enters a group, whose only condition is new, where those of its type are looked for. */
void EnterGroup(Instance *instance, CondGroup *group, const Cond *cond) {
    CondType *const type = cond->type;
    if (type->compare != nullptr) {
        InsertAtTail(&type->groups, &group->typeLink);
    } else {
        group->byCond.key = {type->typeId, cond->length, cond->data};
        if (TAV_RBT_AddNode(&instance->groupsByCond, &group->byCond) != TAV_OK) {
            instance->hasStrays = 1;  // the private form of another condition has changed since it was parsed
            return;
        }
    }
    group->type = type;
}

/** Takes an empty group off everything and frees it. */
void FreeGroup(CondGroup *group) {
    Unlink(&group->link);
    Unlink(&group->typeLink);
    if (group->type != nullptr && group->type->compare == nullptr) {
        BEX_RBT_RemoveNode(&group->type->instance->groupsByCond, &group->byCond.node);
    }
    kHeap.Return(group);
}

/** Takes a condition off its group, and frees a group that is empty then. */
void LeaveGroup(Cond *cond) {
    Unlink(&cond->groupLink);
    CondGroup *const group = cond->group;
    cond->group = nullptr;
    if (group == nullptr) {
        return;
    }
    if (IsEmpty(group->conds)) {
        FreeGroup(group);
    } else if (group->type != nullptr) {
        group->byCond.key.data = FirstCond(*group)->data;  // the same bytes, of a condition that stays
    }
}

/** Finds, in a list of groups, the first whose first condition is the same as the given one; null when none is. */
template <auto kLink>
CondGroup *WalkGroups(const List &groups, const Cond *cond, ARU_Detect_CompareFunc compare) {
    for (CondGroup &group : Elements<kLink>(groups)) {
        if (!IsEmpty(group.conds) && ARU_Detect_CondTheSame(FirstCond(group), cond, compare) != 0) {
            return &group;
        }
    }
    return nullptr;
}

/**
 * Finds the first group whose first condition is the same as the given one; null when there is none. All groups are
 * walked when the caller has filled some itself, and when it compares otherwise than the groups of the type were made.
 */
CondGroup *FindCondGroup(Instance *instance, const Cond *cond, ARU_Detect_CompareFunc compare) {
    if (cond->type == nullptr) {
        return nullptr;
    }
    const CondType *const type = ARU_Detect_FindCondType(instance, cond->type->typeId);
    if (instance->hasStrays != 0 || type == nullptr || type->compare != compare) {
        return WalkGroups<&CondGroup::link>(instance->groups, cond, compare);
    }
    if (compare != nullptr) {
        return WalkGroups<&CondGroup::typeLink>(type->groups, cond, compare);
    }
    const CondKey key = {type->typeId, cond->length, cond->data};
    auto *const found = static_cast<IndexLink<CondKey> *>(TAV_RBT_GetNode(&instance->groupsByCond, &key));
    return found != nullptr ? OwnerOf<&CondGroup::byCond>(found) : nullptr;
}

/** Makes a new group, the last of an instance's; null when memory is short. */
CondGroup *AddCondGroup(Instance *instance) {
    CondGroup *const group = ARU_Detect_NewCondGroup(instance->memModule);
    if (group != nullptr) {
        InsertAtTail(&instance->groups, &group->link);
    }
    return group;
}

/** Puts a condition on subscription and group, unless it is on one already. */
void Join(BookInfo *bookInfo, CondGroup *group, Cond *cond) {
    if (cond->bookInfo == nullptr) {
        InsertAtTail(&bookInfo->conds, &cond->bookLink);
        cond->bookInfo = bookInfo;
    }
    if (cond->group == nullptr) {
        InsertAtTail(&group->conds, &cond->groupLink);
        cond->group = group;
    }
}

/** Has the type's parse function build the private form of a condition. */
Built ParseData(Cond *cond, const void *tlv) {
    const CondType *const type = cond->type;
    type->parse(tlv, &cond->data, &cond->length, type->instance->userData);
    if (cond->data == nullptr) {
        return Built::kUnparsed;
    }
    cond->ownsData = 1;
    return Built::kDone;
}

/** Copies a TLV of `length` bytes, header included, behind the condition. */
Built CopyData(Cond *cond, const void *tlv, uint32_t length) {
    cond->data = cond + 1;
    cond->length = length;
    return memcpy_s(cond->data, length, tlv, length) == 0 ? Built::kDone : Built::kCopyFailed;
}

/** Gives a new condition its data and puts it on subscription and group. A condition that fails is the caller's. */
Built CompleteCond(Instance *instance, BookInfo *bookInfo, Cond *cond, const void *tlv, uint32_t tlvLength) {
    const CondType *const type = cond->type;
    const Built result = type->parse != nullptr ? ParseData(cond, tlv) : CopyData(cond, tlv, tlvLength);
    if (result != Built::kDone) {
        return result;
    }
    CondGroup *const found = FindCondGroup(instance, cond, type->compare);
    CondGroup *const group = found != nullptr ? found : AddCondGroup(instance);
    instance->debugSwitch = 0;
    if (group == nullptr) {
        return Built::kNoMemory;
    }
    Join(bookInfo, group, cond);
    if (found == nullptr && instance->hasStrays == 0) {
        EnterGroup(instance, group, cond);
    }
    return Built::kDone;
}

}  // namespace

int32_t detect::CompareCondKeys(const void *keyA, const void *keyB) {
    const auto *const a = static_cast<const CondKey *>(keyA);
    const auto *const b = static_cast<const CondKey *>(keyB);
    if (a->typeId != b->typeId) {
        return a->typeId < b->typeId ? -1 : 1;
    }
    if (a->length != b->length) {
        return a->length < b->length ? -1 : 1;
    }
    return BEX_MemCmp(a->data, b->data, a->length);
}

Built detect::BuildCond(Instance *instance, BookInfo *bookInfo, const void *tlv) {
    const auto header = common::LoadWord<TlvHeader>(tlv);
    CondType *const type = ARU_Detect_FindCondType(instance, header.type);
    if (type == nullptr) {
        return Built::kNoType;
    }
    const uint32_t tlvLength = static_cast<uint32_t>(sizeof(TlvHeader)) + header.length;
    Cond *const cond = ARU_Detect_NewCond(instance->memModule, type, type->parse != nullptr ? 0 : tlvLength);
    if (cond == nullptr) {
        ++instance->errors;
        return Built::kNoMemory;
    }
    const Built result = CompleteCond(instance, bookInfo, cond, tlv, tlvLength);
    if (result != Built::kDone) {
        ARU_Detect_FreeCond(cond);
        instance->errors += result != Built::kCopyFailed ? 1 : 0;
    }
    return result;
}

uint32_t ARU_Detect_RegisterCond_Ex(ARU_Detect_Instance *instance, uint32_t typeId, ARU_Detect_ParseFunc parse,
                                    ARU_Detect_MatchFunc match, ARU_Detect_FreeFunc free,
                                    ARU_Detect_CompareFunc compare, ARU_Detect_NotifyFunc notify) {
    if (instance == nullptr || (parse == nullptr) != (free == nullptr)) {
        return ARU_DETECT_BAD_ARG;
    }
    if (ARU_Detect_FindCondType(instance, typeId) != nullptr) {
        return ARU_DETECT_REFUSED;
    }
    auto *const type = static_cast<CondType *>(kHeap.Take(sizeof(CondType), instance->memModule));
    if (type == nullptr) {
        ++instance->errors;
        return ARU_DETECT_NO_MEMORY;
    }
    *type = {typeId, {}, parse, match, free, compare, notify, instance, {{}, typeId}, {}};
    Clear(&type->groups);
    InsertAtTail(&instance->condTypes, &type->link);
    TAV_RBT_AddNode(&instance->condTypesById, &type->byId);
    return ARU_DETECT_OK;
}

ARU_Detect_CondType *ARU_Detect_FindCondType(ARU_Detect_Instance *instance, uint32_t typeId) {
    auto *const found =
        static_cast<IndexLink<uint32_t> *>(TAV_KEY_RBT_GetNode_UINT32(&instance->condTypesById, typeId));
    return found != nullptr ? OwnerOf<&CondType::byId>(found) : nullptr;
}

void ARU_Detect_UnRegAllCondTypes(ARU_Detect_Instance *instance) {
    for (CondType &type : Elements<&CondType::link>(instance->condTypes)) {
        Unlink(&type.link);
        BEX_RBT_RemoveNode(&instance->condTypesById, &type.byId.node);
        kHeap.Return(&type);
    }
}

ARU_Detect_Cond *ARU_Detect_NewCond(uintptr_t memModule, ARU_Detect_CondType *type, uint32_t extraLength) {
    if (extraLength > UINT32_MAX - sizeof(Cond)) {
        return nullptr;
    }
    const uint32_t size = static_cast<uint32_t>(sizeof(Cond)) + extraLength;
    auto *const cond = static_cast<Cond *>(kHeap.TakeZeroed(size, memModule));
    if (cond != nullptr) {
        cond->type = type;
        Clear(&cond->bookLink);
        Clear(&cond->groupLink);
    }
    return cond;
}

void ARU_Detect_FreeCond(ARU_Detect_Cond *cond) {
    ClearDebugSwitch(cond);
    const CondType *const type = cond->type;
    if (type != nullptr && cond->ownsData != 0 && type->free != nullptr && cond->data != nullptr) {
        type->free(cond->data, type->instance != nullptr ? type->instance->userData : 0);
    }
    kHeap.Return(cond);
}

ARU_Detect_Cond *ARU_Detect_RemoveCond(ARU_Detect_Cond *cond) {
    ClearDebugSwitch(cond);
    Unlink(&cond->bookLink);
    cond->bookInfo = nullptr;
    LeaveGroup(cond);
    return cond;
}

void ARU_Detect_DestroyCond(ARU_Detect_Cond *cond) {
    ARU_Detect_FreeCond(ARU_Detect_RemoveCond(cond));
}

void ARU_Detect_DestroyAllConds(ARU_Detect_BookInfo *bookInfo) {
    for (Cond &cond : Elements<&Cond::bookLink>(bookInfo->conds)) {
        ARU_Detect_DestroyCond(&cond);
    }
}

uint32_t ARU_Detect_CondTheSame(const ARU_Detect_Cond *condA, const ARU_Detect_Cond *condB,
                                ARU_Detect_CompareFunc compare) {
    if (condA->type == nullptr || condB->type == nullptr || condA->type->typeId != condB->type->typeId ||
        condA->length != condB->length) {
        return 0;
    }
    if (compare != nullptr) {
        return compare(condA->data, condB->data, condA->length);
    }
    return BEX_MemCmp(condA->data, condB->data, condA->length) == 0 ? 1 : 0;
}

ARU_Detect_CondGroup *ARU_Detect_NewCondGroup(uintptr_t memModule) {
    auto *const group = static_cast<CondGroup *>(kHeap.Take(sizeof(CondGroup), memModule));
    if (group != nullptr) {
        Clear(&group->link);
        Clear(&group->conds);
        Clear(&group->typeLink);
        group->type = nullptr;
    }
    return group;
}

ARU_Detect_CondGroup *ARU_Detect_FindOrCreateCondGroup(ARU_Detect_Instance *instance, const ARU_Detect_Cond *cond,
                                                       ARU_Detect_CompareFunc compare) {
    CondGroup *const found = FindCondGroup(instance, cond, compare);
    instance->debugSwitch = 0;
    if (found != nullptr) {
        return found;
    }
    instance->hasStrays = 1;  // the caller is going to fill it, with what can be found by a walk alone
    return AddCondGroup(instance);
}

void ARU_Detect_AddCond(ARU_Detect_BookInfo *bookInfo, ARU_Detect_CondGroup *group, ARU_Detect_Cond *cond) {
    Join(bookInfo, group, cond);
    // The data are the caller's to change, the group may be any, and a condition without type may come to stand for it.
    NoteStray(cond->type);
    NoteStray(group->type);
}
