/*
 * Platform environment: numbered settings of the process, and who serves what.
 */
#ifndef PLATFORM_MEL_ENVIRONMENT_H
#define PLATFORM_MEL_ENVIRONMENT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Reads a numbered setting. Returns 0, else a code (and the output is left alone). */
uint32_t MEL_GetEnvValue(uint32_t number, uint32_t *value);

/**
 * Finds the component that serves a virtual system.
 *
 * @param component    number of the kind of component, the same on every device
 * @param reserved     0
 * @param vr           the virtual router
 * @param vsId         the virtual system
 * @param componentId  where the id goes
 * @return 0; else a code, and then the output is left alone: no component serves it
 */
uint32_t CMF_GetPIDByVR(uint32_t component, uint32_t reserved, uint32_t vr, uint32_t vsId, uint32_t *componentId);

#ifdef __cplusplus
}
#endif

#endif
