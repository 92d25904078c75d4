/*
 * A walk over the nodes of a store, written in C.
 */
#ifndef TAV_TESTS_NODES_WALK_H
#define TAV_TESTS_NODES_WALK_H

#include <stdio.h>

#include "tav_extcfg.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Writes a line for each virtual system, class, record and field; a field's value in hexadecimal, in host order. */
void PrintNodes(FILE *out, const CfgLocal *local);

#ifdef __cplusplus
}
#endif

#endif
