/*
 * What can be read of a damaged file.
 */
#ifndef TAVCFG_SALVAGE_H
#define TAVCFG_SALVAGE_H

#include <string>
#include <vector>

#include "file.h"
#include "tav/store.h"

namespace tavcfg {

/** What was read of a file, and what was not. */
struct Salvaged {
    tav::Store store;
    size_t recordCount = 0;
    std::vector<std::string> losses;  // a line each
};

/**
 * Reads every record of a file that is whole in itself, whatever the file's head, checksum and other records are.
 * Throws Failure when there is none, and when the file, or its archive, cannot be read at all.
 */
Salvaged SalvageFrom(const File &file);

}  // namespace tavcfg

#endif
