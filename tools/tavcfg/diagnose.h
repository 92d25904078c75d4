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
 * Says what keeps an image from loading.
 *
 * @param image   the image, which the library has refused
 * @param refer   the refer file that was given, if any
 * @param code    what the library answered; the last resort
 */
std::string Diagnose(const Image &image, const std::optional<File> &refer, uint32_t code);

/** Says why a file cannot serve as a refer file; empty when it can. */
std::string ReferProblem(const File &refer);

/** Throws Failure when a target's refer file cannot serve, or is the target itself. */
void RequireRefer(const Target &target);

}  // namespace tavcfg

#endif
