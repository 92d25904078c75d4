/*
 * Virtual systems: the handle that holds an instance for each, and what is done with an instance by way of the handle.
 */
#include "detect/list.h"
#include "detect/model.h"

using detect::Clear;
using detect::Elements;
using detect::InsertBehind;
using detect::Instance;
using detect::kHeap;
using detect::List;
using detect::Unlink;
using Handle = ARU_Detect_Handle;
using VsNode = ARU_Detect_VsNode;

namespace {

/** Unlinks and frees a VS node; its instance is left alone. */
void FreeNode(VsNode *node) {
    Unlink(&node->link);
    kHeap.Return(node);
}

/**
 * Finds the instance of a VS.
 *
 * @return ARU_DETECT_OK (the instance may still be null); ARU_DETECT_BAD_ARG for a null or empty handle;
 *         ARU_DETECT_UNKNOWN_VS
 */
uint32_t FindInstance(uint32_t vsId, const Handle *handle, Instance **instance) {
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

}  // namespace

ARU_Detect_Handle *ARU_Detect_Init(uintptr_t memModule, uint32_t ownId, uint32_t vsId, ARU_Detect_Handle *handle,
                                   ARU_Detect_FillFunc fill, uintptr_t userData) {
    if (handle == nullptr) {
        handle = kHeap.New<Handle>(memModule);
    }
    if (handle == nullptr) {
        return nullptr;
    }
    if (handle->vsList == nullptr) {
        handle->vsList = ARU_Detect_VS_LIST_Alloc(memModule);
    }
    VsNode *const node = handle->vsList != nullptr ? ARU_Detect_VS_LIST_NodeAdd(memModule, handle->vsList) : nullptr;
    if (node == nullptr) {
        // Also when the handle is the caller's: callers know by the null that handle and instances are lost.
        kHeap.Return(handle->vsList);
        kHeap.Return(handle);
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
    kHeap.Return(handle);
}

void ARU_Detect_DeleteVs(uint32_t vsId, ARU_Detect_Handle *handle) {
    VsNode *const node =
        handle != nullptr && handle->vsList != nullptr ? ARU_Detect_VS_LIST_NodeSeek(handle->vsList, vsId) : nullptr;
    if (node != nullptr) {
        ARU_Detect_UnInit_Ex(node->instance);
        FreeNode(node);
    }
}

uint32_t ARU_Detect_RegisterCond(uint32_t vsId, ARU_Detect_Handle *handle, uint32_t typeId, ARU_Detect_ParseFunc parse,
                                 ARU_Detect_MatchFunc match, ARU_Detect_FreeFunc free, ARU_Detect_CompareFunc compare,
                                 ARU_Detect_NotifyFunc notify) {
    Instance *instance = nullptr;
    const uint32_t result = FindInstance(vsId, handle, &instance);
    return result != ARU_DETECT_OK ? result
                                   : ARU_Detect_RegisterCond_Ex(instance, typeId, parse, match, free, compare, notify);
}

uint32_t ARU_Detect_ProcMsg(uint32_t vsId, ARU_Detect_Handle *handle, const void *message) {
    Instance *instance = nullptr;
    const uint32_t result = FindInstance(vsId, handle, &instance);
    return result != ARU_DETECT_OK ? result : ARU_Detect_ProcMsg_Ex(vsId, instance, message);
}

uint32_t ARU_Detect_Filter(uint32_t vsId, ARU_Detect_Handle *handle, uintptr_t arg1, uintptr_t arg2) {
    Instance *instance = nullptr;
    const uint32_t result = FindInstance(vsId, handle, &instance);
    return result != ARU_DETECT_OK ? result : ARU_Detect_Filter_Ex(instance, arg1, arg2);
}

ARU_Detect_List *ARU_Detect_VS_LIST_Alloc(uintptr_t memModule) {
    auto *const list = static_cast<List *>(kHeap.Take(sizeof(List), memModule));
    if (list != nullptr) {
        Clear(list);
    }
    return list;
}

void ARU_Detect_VS_LIST_Free(ARU_Detect_List *list) {
    if (list == nullptr) {
        return;
    }
    for (VsNode &node : Elements<&VsNode::link>(*list)) {
        ARU_Detect_UnInit_Ex(node.instance);
        FreeNode(&node);
    }
    kHeap.Return(list);
}

ARU_Detect_VsNode *ARU_Detect_VS_LIST_NodeAdd(uintptr_t memModule, ARU_Detect_List *list) {
    auto *const node = kHeap.New<VsNode>(memModule);
    if (node != nullptr) {
        InsertBehind(list, &node->link);
    }
    return node;
}

ARU_Detect_VsNode *ARU_Detect_VS_LIST_NodeSeek(ARU_Detect_List *list, uint32_t vsId) {
    for (VsNode &node : Elements<&VsNode::link>(*list)) {
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
