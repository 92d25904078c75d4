/*
 * Platform memory: the module-tagged allocator.
 *
 * Every block is taken and returned with the name of the source module and the line that does so, so that the platform
 * can account each block to its place.
 */
#ifndef PLATFORM_MEL_MEMORY_H
#define PLATFORM_MEL_MEMORY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The memory module handle to which the library's own blocks are accounted. Set by the platform before first use. */
extern uintptr_t g_pTavCommHandle;

/** The memory module handle for blocks that are no single module's own. Set by the platform before first use. */
extern uint32_t g_uiMelHandleCommon;

/** The memory partition of the process; its first byte is the partition id that allocations pass on. */
extern uint8_t g_aucMelMemPt[1];

/**
 * Takes a block. The content is undefined.
 *
 * @param handle  memory module handle to account the block to
 * @param memPt   memory partition id (g_aucMelMemPt[0])
 * @param size    bytes wanted; 0 gives a block of no usable bytes
 * @param source  name of the source module, a string that stays as it is while the process runs
 * @param line    source line of the call
 * @return the block, aligned to 8 bytes, owned by the caller until MEL_Free_F; null when memory is short
 */
void *MEL_Malloc_F(uintptr_t handle, uint8_t memPt, uint32_t size, const char *source, uint32_t line);

/**
 * Gives a block another size. What it holds is kept up to the smaller of the two sizes; the rest is undefined.
 *
 * @param handle  memory module handle for a block that is taken anew
 * @param memPt   memory partition id (g_aucMelMemPt[0])
 * @param block   a block of MEL_Malloc_F or of this function, not yet returned; null takes a new one, which belongs to
 *                no module
 * @param size    bytes wanted; 0 gives a block of no usable bytes
 * @return the block, aligned to 8 bytes and still accounted to the module that took it; it may stand elsewhere, so the
 *         address given must not be used any more. Null when memory is short: then the block given is as it was, and
 *         still the caller's
 */
void *MEL_MemReAlloc(uintptr_t handle, uint8_t memPt, void *block, uint32_t size);

/**
 * Returns a block. A null block is ignored.
 *
 * @param block   a block of MEL_Malloc_F or MEL_MemReAlloc, not yet returned
 * @param source  name of the source module that returns it
 * @param line    source line of the call
 */
void MEL_Free_F(void *block, const char *source, uint32_t line);

#ifdef __cplusplus
}
#endif

#endif
