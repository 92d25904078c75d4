/*
 * schema: what classes and fields there are.
 */
#ifndef TAVCFG_SCHEMA_H
#define TAVCFG_SCHEMA_H

#include "tav/names.h"

namespace tavcfg {

struct SchemaOptions {
    tav::Names names;
    bool asJson;
};

/** Prints the classes with their key fields, and the fields with their types, limits and names. */
int RunSchema(const SchemaOptions &options);

}  // namespace tavcfg

#endif
