/*
 * Condition types, conditions, and the groups in which conditions that are the same share one test.
 */
#include "detect/memory.h"
#include "detect/message.h"
#include "detect/model.h"

using namespace detect;

namespace {

/** Clears the debug switch of the instance that a condition belongs to, if it is known. */
void ClearDebugSwitch(const Cond *cond) {
    if (cond->type != nullptr && cond->type->instance != nullptr) {
        cond->type->instance->debugSwitch = 0;
    }
}

/** Takes a condition off its group, and frees a group that is empty then. */
void LeaveGroup(Cond *cond) {
    Unlink(&cond->groupLink);
    CondGroup *const group = cond->group;
    cond->group = nullptr;
    if (group != nullptr && IsEmpty(group->conds)) {
        Unlink(&group->link);
        DETECT_GIVE_BACK(group);
    }
}

/** Finds the group whose first condition is the same as the given one; null when there is none. */
CondGroup *FindCondGroup(const Instance *instance, const Cond *cond, ARU_Detect_CompareFunc compare) {
    for (CondGroup &group : DETECT_ELEMENTS(CondGroup, link, instance->groups)) {
        if (!IsEmpty(group.conds) &&
            ARU_Detect_CondTheSame(DETECT_ELEMENTS(Cond, groupLink, group.conds).First(), cond, compare) != 0) {
            return &group;
        }
    }
    return nullptr;
}

/** Makes a new group, the last of an instance's; null when memory is short. */
CondGroup *AddCondGroup(Instance *instance) {
    CondGroup *const group = ARU_Detect_NewCondGroup(instance->memModule);
    if (group != nullptr) {
        InsertAtTail(&instance->groups, &group->link);
    }
    return group;
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
    CondGroup *const group = ARU_Detect_FindOrCreateCondGroup(instance, cond, type->compare);
    if (group == nullptr) {
        return Built::kNoMemory;
    }
    ARU_Detect_AddCond(bookInfo, group, cond);
    return Built::kDone;
}

}  // namespace

Built detect::BuildCond(Instance *instance, BookInfo *bookInfo, const void *tlv) {
    const auto header = Load<TlvHeader>(tlv);
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
    auto *const type = static_cast<CondType *>(DETECT_TAKE(instance->memModule, sizeof(CondType)));
    if (type == nullptr) {
        ++instance->errors;
        return ARU_DETECT_NO_MEMORY;
    }
    *type = {typeId, {}, parse, match, free, compare, notify, instance};
    InsertAtTail(&instance->condTypes, &type->link);
    return ARU_DETECT_OK;
}

uint32_t ARU_Detect_RegisterCond(uint32_t vsId, ARU_Detect_Handle *handle, uint32_t typeId, ARU_Detect_ParseFunc parse,
                                 ARU_Detect_MatchFunc match, ARU_Detect_FreeFunc free, ARU_Detect_CompareFunc compare,
                                 ARU_Detect_NotifyFunc notify) {
    Instance *instance = nullptr;
    const uint32_t result = FindInstance(vsId, handle, &instance);
    return result != ARU_DETECT_OK ? result
                                   : ARU_Detect_RegisterCond_Ex(instance, typeId, parse, match, free, compare, notify);
}

ARU_Detect_CondType *ARU_Detect_FindCondType(ARU_Detect_Instance *instance, uint32_t typeId) {
    for (CondType &type : DETECT_ELEMENTS(CondType, link, instance->condTypes)) {
        if (type.typeId == typeId) {
            return &type;
        }
    }
    return nullptr;
}

void ARU_Detect_UnRegAllCondTypes(ARU_Detect_Instance *instance) {
    for (CondType &type : DETECT_ELEMENTS(CondType, link, instance->condTypes)) {
        Unlink(&type.link);
        DETECT_GIVE_BACK(&type);
    }
}

ARU_Detect_Cond *ARU_Detect_NewCond(uintptr_t memModule, ARU_Detect_CondType *type, uint32_t extraLength) {
    if (extraLength > UINT32_MAX - sizeof(Cond)) {
        return nullptr;
    }
    const uint32_t size = static_cast<uint32_t>(sizeof(Cond)) + extraLength;
    auto *const cond = static_cast<Cond *>(Zeroed(DETECT_TAKE(memModule, size), size));
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
    DETECT_GIVE_BACK(cond);
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
    for (Cond &cond : DETECT_ELEMENTS(Cond, bookLink, bookInfo->conds)) {
        ARU_Detect_DestroyCond(&cond);
    }
}

uint32_t ARU_Detect_CondTheSame(const ARU_Detect_Cond *condA, const ARU_Detect_Cond *condB,
                                ARU_Detect_CompareFunc compare) {
    if (condA->type->typeId != condB->type->typeId || condA->length != condB->length) {
        return 0;
    }
    if (compare != nullptr) {
        return compare(condA->data, condB->data, condA->length);
    }
    return BEX_MemCmp(condA->data, condB->data, condA->length) == 0 ? 1 : 0;
}

ARU_Detect_CondGroup *ARU_Detect_NewCondGroup(uintptr_t memModule) {
    auto *const group = static_cast<CondGroup *>(DETECT_TAKE(memModule, sizeof(CondGroup)));
    if (group != nullptr) {
        Clear(&group->link);
        Clear(&group->conds);
    }
    return group;
}

ARU_Detect_CondGroup *ARU_Detect_FindOrCreateCondGroup(ARU_Detect_Instance *instance, const ARU_Detect_Cond *cond,
                                                       ARU_Detect_CompareFunc compare) {
    CondGroup *const found = FindCondGroup(instance, cond, compare);
    instance->debugSwitch = 0;
    return found != nullptr ? found : AddCondGroup(instance);
}

void ARU_Detect_AddCond(ARU_Detect_BookInfo *bookInfo, ARU_Detect_CondGroup *group, ARU_Detect_Cond *cond) {
    if (cond->bookInfo == nullptr) {
        InsertAtTail(&bookInfo->conds, &cond->bookLink);
        cond->bookInfo = bookInfo;
    }
    if (cond->group == nullptr) {
        InsertAtTail(&group->conds, &cond->groupLink);
        cond->group = group;
    }
}
