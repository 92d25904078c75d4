/*
 * Instances, and the handle that holds one for each virtual system.
 */
#include "detect/memory.h"
#include "detect/model.h"
#include "platform/mel_environment.h"

using namespace detect;

namespace {

constexpr uint32_t kSubscriberComponent = 180;  // the platform's number of the component that subscribes
constexpr uint32_t kVrSetting = 5;              // the platform's setting that names the virtual router

/** Makes a handle with an empty list; null when memory is short. */
Handle *NewHandle(uintptr_t memModule) {
    Handle *const handle = DETECT_NEW(memModule, Handle);
    if (handle == nullptr) {
        return nullptr;
    }
    handle->vsList = ARU_Detect_VS_LIST_Alloc(memModule);
    if (handle->vsList == nullptr) {
        DETECT_GIVE_BACK(handle);
        return nullptr;
    }
    return handle;
}

/** Unlinks and frees a VS node; its instance is left alone. */
void FreeNode(VsNode *node) {
    Unlink(&node->link);
    DETECT_GIVE_BACK(node);
}

}  // namespace

uint32_t detect::FindInstance(uint32_t vsId, const Handle *handle, Instance **instance) {
    if (handle == nullptr || handle->vsList == nullptr) {
        return ARU_DETECT_BAD_ARG;
    }
    const VsNode *const node = ARU_Detect_VS_LIST_NodeSeek(handle->vsList, vsId);
    if (node == nullptr) {
        return ARU_DETECT_UNKNOWN_VS;
    }
    *instance = node->instance;
    return ARU_DETECT_OK;
}

ARU_Detect_Handle *ARU_Detect_Init(uintptr_t memModule, uint32_t ownId, uint32_t vsId, ARU_Detect_Handle *handle,
                                   ARU_Detect_FillFunc fill, uintptr_t userData) {
    if (handle == nullptr) {
        handle = NewHandle(memModule);
    }
    if (handle == nullptr || handle->vsList == nullptr) {
        return nullptr;
    }
    VsNode *const node = ARU_Detect_VS_LIST_NodeAdd(memModule, handle->vsList);
    if (node == nullptr) {
        // On purpose also when the handle is the caller's: it learns from the null that all is lost.
        DETECT_GIVE_BACK(handle->vsList);
        DETECT_GIVE_BACK(handle);
        return nullptr;
    }
    node->vsId = vsId;
    node->instance = ARU_Detect_Init_Ex(memModule, ownId, ARU_Detect_GetAruId(vsId), fill, userData);
    return handle;
}

void ARU_Detect_UnInit(ARU_Detect_Handle *handle) {
    if (handle == nullptr || handle->vsList == nullptr) {
        return;
    }
    ARU_Detect_VS_LIST_Free(handle->vsList);
    DETECT_GIVE_BACK(handle);
}

void ARU_Detect_DeleteVs(uint32_t vsId, ARU_Detect_Handle *handle) {
    VsNode *const node =
        handle != nullptr && handle->vsList != nullptr ? ARU_Detect_VS_LIST_NodeSeek(handle->vsList, vsId) : nullptr;
    if (node != nullptr) {
        ARU_Detect_UnInit_Ex(node->instance);
        FreeNode(node);
    }
}

ARU_Detect_Instance *ARU_Detect_Init_Ex(uintptr_t memModule, uint32_t ownId, uint32_t subscriberId,
                                        ARU_Detect_FillFunc fill, uintptr_t userData) {
    auto *const instance = DETECT_NEW(memModule, Instance);
    if (instance == nullptr) {
        return nullptr;
    }
    instance->ownId = ownId;
    instance->subscriberId = subscriberId;
    instance->memModule = memModule;
    instance->userData = userData;
    instance->fill = fill;
    Clear(&instance->condTypes);
    Clear(&instance->bookInfos);
    Clear(&instance->groups);
    Clear(&instance->unparsed);
    return instance;
}

void ARU_Detect_UnInit_Ex(ARU_Detect_Instance *instance) {
    if (instance == nullptr) {
        return;
    }
    ARU_Detect_DestroyAllBookInfos(instance);  // first: freeing a condition takes its type's free function
    ARU_Detect_UnRegAllCondTypes(instance);
    DETECT_GIVE_BACK(instance);
}

uint32_t ARU_Detect_GetAruId(uint32_t vsId) {
    uint32_t vr = 0;
    uint32_t componentId = 0;
    MEL_GetEnvValue(kVrSetting, &vr);
    CMF_GetPIDByVR(kSubscriberComponent, 0, vr, vsId, &componentId);
    return componentId;
}

void ARU_Detect_EnableDebug(ARU_Detect_Instance *instance) {
    if (instance != nullptr) {
        instance->debugSwitch = 1;
    }
}

void ARU_Detect_DisableDebug(ARU_Detect_Instance *instance) {
    if (instance != nullptr) {
        instance->debugSwitch = 0;
    }
}

ARU_Detect_List *ARU_Detect_VS_LIST_Alloc(uintptr_t memModule) {
    auto *const list = static_cast<List *>(DETECT_TAKE(memModule, sizeof(List)));
    if (list != nullptr) {
        Clear(list);
    }
    return list;
}

void ARU_Detect_VS_LIST_Free(ARU_Detect_List *list) {
    if (list == nullptr) {
        return;
    }
    for (VsNode &node : DETECT_ELEMENTS(VsNode, link, *list)) {
        ARU_Detect_UnInit_Ex(node.instance);
        FreeNode(&node);
    }
    DETECT_GIVE_BACK(list);
}

ARU_Detect_VsNode *ARU_Detect_VS_LIST_NodeAdd(uintptr_t memModule, ARU_Detect_List *list) {
    auto *const node = DETECT_NEW(memModule, VsNode);
    if (node != nullptr) {
        InsertBehind(list, &node->link);
    }
    return node;
}

ARU_Detect_VsNode *ARU_Detect_VS_LIST_NodeSeek(ARU_Detect_List *list, uint32_t vsId) {
    for (VsNode &node : DETECT_ELEMENTS(VsNode, link, *list)) {
        if (node.vsId == vsId) {
            return &node;
        }
    }
    return nullptr;
}

void ARU_Detect_VS_LIST_NodeDel(ARU_Detect_List *list, uint32_t vsId) {
    VsNode *const node = ARU_Detect_VS_LIST_NodeSeek(list, vsId);
    if (node != nullptr) {
        FreeNode(node);
    }
}
