// What the fuzz targets share. A target hands one input to the code that reads such bytes, and asserts what must hold
// whatever they were; the sanitizers watch the rest. Accounts of memory are checked after every input.
#ifndef TAV_FUZZ_SUPPORT_H
#define TAV_FUZZ_SUPPORT_H

#undef NDEBUG
#include <fuzzer/FuzzedDataProvider.h>

#include <cassert>

#include "bytes.h"
#include "owned.h"

/** The target: bytes are taken from the front of an input, numbers from its end. */
void Fuzz(FuzzedDataProvider *input);

/** A path below the process's own folder in TMPDIR, which is the system working directory too. */
std::string Scratch(const std::string &name);

/** Takes any bytes as a file image or as the body of one, perhaps with a foreign head field; and a refer file or null.
 */
std::pair<Bytes, const char *> TakeImage(FuzzedDataProvider *input);

/** Parses an image, which stays as it is, into a store, which keeps what was added before a failure. */
Store Parse(Bytes image, const char *refer, uint32_t *code);

/** Asserts that records are found by their keys, and that the store, written, loads as the same. */
void AssertSound(const Store &store, const std::string &path, const char *refer);

#endif
