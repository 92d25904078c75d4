/*
 * Finds out what is wrong with a file that the library refuses.
 */
#ifndef TAVCFG_DIAGNOSE_H
#define TAVCFG_DIAGNOSE_H

#include <string>

#include "file.h"
#include "frame.h"

namespace tavcfg {

/**
 * Says what keeps an image from loading; empty when it loads.
 *
 * @param image   the image
 * @param target  its file, and the refer file that was given, if any
 */
std::string LoadProblem(const Image &image, const Target &target);

/** Throws Damage that says what is wrong with a file that does not load, Failure when it cannot be read. */
void RequireLoads(const Target &target);

/** Returns whether a file refers to another. Throws Failure when it cannot be read. */
bool CarriesReferChecksum(const File &file);

/** Says why a file cannot serve as a refer file; empty when it can. */
std::string ReferProblem(const File &refer);

/** Throws Failure when a target's refer file cannot serve, or is the target itself. */
void RequireRefer(const Target &target);

}  // namespace tavcfg

#endif
