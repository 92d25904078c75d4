/*
 * Instances: their making, their end, and their debug switch.
 */
#include "detect/condition.h"
#include "detect/list.h"
#include "detect/model.h"

using detect::Clear;
using detect::Instance;
using detect::kHeap;

ARU_Detect_Instance *ARU_Detect_Init_Ex(uintptr_t memModule, uint32_t ownId, uint32_t subscriberId,
                                        ARU_Detect_FillFunc fill, uintptr_t userData) {
    auto *const instance = kHeap.New<Instance>(memModule);
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
    TAV_RBT_Init(&instance->condTypesById, nullptr, TAV_KEY_RBT_Compare_UINT32);
    TAV_RBT_Init(&instance->bookInfosByKey, nullptr, TAV_KEY_RBT_Compare_UINT32);
    TAV_RBT_Init(&instance->groupsByCond, nullptr, detect::CompareCondKeys);
    return instance;
}

void ARU_Detect_UnInit_Ex(ARU_Detect_Instance *instance) {
    if (instance == nullptr) {
        return;
    }
    ARU_Detect_DestroyAllBookInfos(instance);  // first: freeing a condition takes its type's free function
    ARU_Detect_UnRegAllCondTypes(instance);
    kHeap.Return(instance);
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
