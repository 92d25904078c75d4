/*
 * Ledgers of blocks: counts by thread and module.
 *
 * Only the owning thread writes to its ledger, so counting needs neither lock nor atomic read-modify-write. A report
 * adds up all ledgers. A thread that ends leaves its ledger, with the counts in it, to the next thread that begins.
 */
#ifndef HOSTED_LEDGER_H
#define HOSTED_LEDGER_H

#include <cstddef>
#include <cstdint>

#include <atomic>

#include "interfaces.h"
#include "modules.h"

namespace hosted {

/** Whether every live block is tracked: the environment decides before a thread gets its first ledger. */
extern constinit bool blocksAreTracked;

/**
 * A running sum of blocks and bytes. It has the width of a pointer: sums wrap, but the difference of two of them is
 * exact, because what is alive fits the address space.
 */
struct Tally {
    std::atomic<size_t> blocks{0};
    std::atomic<size_t> bytes{0};

    /** Adds a block. Only one thread at a time may do so; any thread may read meanwhile. */
    void Add(uint32_t size, std::memory_order order) {
        blocks.store(blocks.load(std::memory_order_relaxed) + 1, order);
        bytes.store(bytes.load(std::memory_order_relaxed) + size, order);
    }
};

/** What one thread has taken and returned on the account of one module. */
struct Entry {
    Tally taken;
    Tally returned;
};

/** What one thread has taken and returned. Only that thread writes to it. */
struct Ledger {
    const char *lastSource = nullptr;     // the name given for the last block; stays null when blocks are tracked
    uint16_t lastModule = kOtherModules;  // its module
    Ledger *next = nullptr;               // next in the list of all ledgers
    Ledger *nextIdle = nullptr;           // next in the list of those without a thread
    Entry entries[kMaxModules];           // by module index

    /** Returns whether a block for this name needs nothing special: it is for lastModule, and blocks are not tracked.
     */
    bool IsOrdinary(const char *source) const { return source == lastSource && source != nullptr; }

    /** Returns the index of the module named by the caller, and remembers it; registers a new one. */
    uint16_t ModuleIndex(const char *source) {
        if (source == nullptr) {
            return kOtherModules;
        }
        lastModule = FindModule(source);
        lastSource = blocksAreTracked ? nullptr : source;
        return lastModule;
    }
};

/**
 * The calling thread's ledger; null until it needs one. The model makes it one plain read through the thread pointer,
 * which is what makes taking and returning fast in a shared library.
 */
[[gnu::tls_model("initial-exec")]] extern constinit thread_local Ledger *ownLedger;

/** The ledger to write to, for as long as the object lives: the thread's own, else the shared one under its lock. */
class LedgerAccess {
  public:
    LedgerAccess();
    ~LedgerAccess();
    LedgerAccess(const LedgerAccess &) = delete;
    LedgerAccess &operator=(const LedgerAccess &) = delete;

    Ledger *Get() const { return ledger_; }

  private:
    Ledger *ledger_;
};

/** Returns whether blocks are tracked, also before the first block is taken. */
bool AreBlocksTracked();

/** Adds up a module's account. */
TAV_Posix_MemAccount SumModule(uint16_t module);

}  // namespace hosted

#endif
