/*
 * FID=VALUE arguments.
 */
#ifndef TAVCFG_ASSIGNMENTS_H
#define TAVCFG_ASSIGNMENTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "model.h"

namespace tavcfg {

/** Parses a 32-bit number of the command line; `what` names it in the message. Throws UsageError. */
uint32_t ParseId(const std::string &text, const char *what);

/**
 * Makes a record of FID=VALUE arguments.
 *
 * @param cid          class of the record
 * @param assignments  the arguments
 * @return the record, with every key field of its class. Throws UsageError
 */
Record ParseRecord(uint32_t cid, const std::vector<std::string> &assignments);

/** ParseRecord for arguments that may name key fields alone, each once. Throws UsageError. */
Record ParseKey(uint32_t cid, const std::vector<std::string> &assignments);

/** ParseRecord for arguments that may name no field twice. Throws UsageError. */
Record ParseChange(uint32_t cid, const std::vector<std::string> &assignments);

}  // namespace tavcfg

#endif
