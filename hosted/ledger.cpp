#include "ledger.h"

#include <pthread.h>
#include <cstdlib>
#include <cstring>

#include <mutex>
#include <new>

#include "heap.h"

namespace hosted {

constinit bool blocksAreTracked = false;
constinit thread_local Ledger *ownLedger = nullptr;

namespace {

std::mutex ledgerMutex;  // guards the lists and the start-up of the ledgers
Ledger *allLedgers = nullptr;
Ledger *idleLedgers = nullptr;
pthread_key_t ledgerKey;  // its destructor runs when a thread ends
bool ledgersStarted = false;

std::mutex sharedMutex;         // guards the shared ledger
constinit Ledger sharedLedger;  // for threads that get no ledger of their own because memory is short

/** Puts a ledger at the disposal of the next thread. Called under ledgerMutex. */
void PutAside(Ledger *ledger) {
    ledger->nextIdle = idleLedgers;
    idleLedgers = ledger;
}

/**
 * Leaves the ledger of an ending thread to others. A block returned later, by another destructor of the same thread,
 * takes a ledger again, which comes back here in the next round of destructors.
 */
void LeaveLedger(void *ledger) {
    const std::lock_guard lock(ledgerMutex);
    ownLedger = nullptr;
    PutAside(static_cast<Ledger *>(ledger));
}

/**
 * Prepares the ledgers, and the heap, on first use. Called under ledgerMutex. Returns false when the system
 * is out of thread keys.
 */
bool StartLedgers() {
    if (!ledgersStarted && pthread_key_create(&ledgerKey, LeaveLedger) == 0) {
        ledgersStarted = true;
        SetUpHeap();
    }
    return ledgersStarted;
}

/** Decides once, before the first block is taken, whether blocks are tracked. Called under ledgerMutex. */
void ReadTrackingSwitch() {
    static bool known = false;
    if (!known) {
        const char *const value = getenv("TAV_MEM_TRACK");
        blocksAreTracked = value != nullptr && strcmp(value, "1") == 0;
        known = true;
    }
}

/** Takes an idle ledger or makes one. Called under ledgerMutex. Returns null when memory is short. */
Ledger *ObtainLedger() {
    if (idleLedgers != nullptr) {
        Ledger *const ledger = idleLedgers;
        idleLedgers = ledger->nextIdle;
        return ledger;
    }
    void *const memory = calloc(1, sizeof(Ledger));
    if (memory == nullptr) {
        return nullptr;
    }
    Ledger *const ledger = new (memory) Ledger();
    ledger->next = allLedgers;
    allLedgers = ledger;
    return ledger;
}

/** Gives the calling thread a ledger. Returns null when that cannot be done. */
[[gnu::noinline]] Ledger *JoinLedgers() {
    const std::lock_guard lock(ledgerMutex);
    ReadTrackingSwitch();
    if (!StartLedgers()) {
        return nullptr;
    }
    Ledger *const ledger = ObtainLedger();
    if (ledger == nullptr) {
        return nullptr;
    }
    if (pthread_setspecific(ledgerKey, ledger) != 0) {
        PutAside(ledger);
        return nullptr;
    }
    ownLedger = ledger;
    return ledger;
}

/** Calls `visit` with the entry of the module in every ledger. Called under ledgerMutex. */
template <typename Visit>
void ForEachEntry(uint16_t module, Visit visit) {
    visit(sharedLedger.entries[module]);
    for (Ledger *ledger = allLedgers; ledger != nullptr; ledger = ledger->next) {
        visit(ledger->entries[module]);
    }
}

}  // namespace

LedgerAccess::LedgerAccess() : ledger_(ownLedger) {
    if (ledger_ == nullptr && (ledger_ = JoinLedgers()) == nullptr) {
        sharedMutex.lock();
        ledger_ = &sharedLedger;
    }
}

LedgerAccess::~LedgerAccess() {
    if (ledger_ == &sharedLedger) {
        sharedMutex.unlock();
    }
}

bool AreBlocksTracked() {
    const std::lock_guard lock(ledgerMutex);
    ReadTrackingSwitch();
    return blocksAreTracked;
}

TAV_Posix_MemAccount SumModule(uint16_t module) {
    const std::lock_guard lock(ledgerMutex);
    size_t blocks = 0;
    size_t bytes = 0;
    // What was returned is read first and with acquire order, so whatever is seen as returned is then seen as taken too
    // and no account falls below what is alive.
    ForEachEntry(module, [&](const Entry &entry) {
        blocks -= entry.returned.blocks.load(std::memory_order_acquire);
        bytes -= entry.returned.bytes.load(std::memory_order_acquire);
    });
    ForEachEntry(module, [&](const Entry &entry) {
        blocks += entry.taken.blocks.load(std::memory_order_relaxed);
        bytes += entry.taken.bytes.load(std::memory_order_relaxed);
    });
    return {blocks, bytes};
}

}  // namespace hosted
