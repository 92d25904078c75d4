/*
 * The module-tagged allocator.
 *
 * A block is a heap block with a header of 8 bytes in front: its size and the index of the module that took it. Counts
 * are kept in ledgers, one a thread, and only the owning thread writes to its ledger, so taking and returning a block
 * needs neither lock nor atomic read-modify-write. A report adds up all ledgers. A thread that ends leaves its ledger,
 * with the counts in it, to the next thread that begins.
 *
 * When blocks are tracked, a block has a longer header that links it into the list of all live blocks.
 */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>

#include "interfaces.h"

#ifdef TAV_HEAP_MIMALLOC
#include <mimalloc.h>
#include <sys/mman.h>
#endif

uintptr_t g_pTavCommHandle = 1;
uint32_t g_uiMelHandleCommon = 1;
uint8_t g_aucMelMemPt[1] = {0};

namespace {

// The heap below. mimalloc is called by its own names: being among a library's dependencies does not put its malloc in
// front of the C library's, and a platform library should not exchange the heap of the process that loads it anyway.
#ifdef TAV_HEAP_MIMALLOC
constexpr size_t kLargePage = size_t{1} << 21;
constexpr size_t kOwnPages = size_t{1} << 23;  // blocks of this size and more get pages to themselves

// Takes a block in pages of its own. The heap asks for large pages by whole pages only, so here it is done by hand.
[[gnu::noinline]] void *TakeOwnPages(size_t size) {
    void *const memory = mi_malloc_aligned(size, kLargePage);
    if (memory != nullptr && mi_option_is_enabled(mi_option_large_os_pages)) {
        madvise(memory, size, MADV_HUGEPAGE);  // a wish: small pages serve as well
    }
    return memory;
}

void *HeapTake(size_t size) {
    return size < kOwnPages ? mi_malloc(size) : TakeOwnPages(size);
}
void HeapReturn(void *memory) {
    mi_free(memory);
}
// How many bytes may be used where a block of the heap begins: those that were asked for, and often more.
size_t HeapRoom(const void *memory) {
    return mi_usable_size(memory);
}
// A large block that grows is likely to grow on: half as much again is taken for it. What is never touched of that is
// address space alone.
constexpr uint32_t kGrowsOnFrom = 1 << 18;
uint32_t WithSpare(uint32_t size) {
    return size < kGrowsOnFrom ? size : size + std::min(size / 2, UINT32_MAX - size);
}
// A store is many small blocks, looked at in no order: in large pages they cost fewer faults and fewer misses of the
// translation buffer. MIMALLOC_LARGE_OS_PAGES=0 in the environment keeps to small ones.
void SetUpHeap() {
    mi_option_set_enabled_default(mi_option_large_os_pages, true);
}
#else
void *HeapTake(size_t size) {
    return malloc(size);
}
void HeapReturn(void *memory) {
    free(memory);
}
// A block that changes its size always moves: this is the heap of the sanitizers, which then see any use of its old
// place, and of bytes beyond its size.
size_t HeapRoom(const void * /*memory*/) {
    return 0;
}
uint32_t WithSpare(uint32_t size) {
    return size;
}
void SetUpHeap() {}
#endif

// ---- Modules

constexpr uint16_t kMaxModules = 256;
constexpr uint16_t kOtherModules = 0;

std::mutex moduleMutex;  // guards registration
// Index to name; an entry never changes once it is set.
constinit std::atomic<const char *> moduleNames[kMaxModules]{"(others)"};
constinit std::atomic<uint16_t> moduleCount{1};

// Finds a module among the first `count`. Returns its index, or `count`.
uint16_t SearchModule(const char *name, uint16_t count) {
    uint16_t index = 0;
    while (index < count && strcmp(name, moduleNames[index].load(std::memory_order_relaxed)) != 0) {
        ++index;
    }
    return index;
}

// Enters a module under the next free index. Returns that; kOtherModules when the table is full or memory is short.
uint16_t RegisterModule(const char *name) {
    const std::lock_guard lock(moduleMutex);
    const uint16_t count = moduleCount.load(std::memory_order_relaxed);
    const uint16_t index = SearchModule(name, count);  // another thread may have been faster
    if (index < count) {
        return index;
    }
    char *const copy = count < kMaxModules ? strdup(name) : nullptr;
    if (copy == nullptr) {
        return kOtherModules;
    }
    moduleNames[count].store(copy, std::memory_order_relaxed);
    moduleCount.store(static_cast<uint16_t>(count + 1), std::memory_order_release);
    return count;
}

uint16_t FindModule(const char *name) {
    const uint16_t count = moduleCount.load(std::memory_order_acquire);
    const uint16_t index = SearchModule(name, count);
    return index < count ? index : RegisterModule(name);
}

// ---- Ledgers

// A running sum of blocks and bytes. It has the width of a pointer: sums wrap, but the difference of two of them is
// exact, because what is alive fits the address space.
struct Tally {
    std::atomic<size_t> blocks{0};
    std::atomic<size_t> bytes{0};

    // Adds a block. Only one thread at a time may do so; any thread may read meanwhile.
    void Add(uint32_t size, std::memory_order order) {
        blocks.store(blocks.load(std::memory_order_relaxed) + 1, order);
        bytes.store(bytes.load(std::memory_order_relaxed) + size, order);
    }
};

// What one thread has taken and returned on the account of one module.
struct Entry {
    Tally taken;
    Tally returned;
};

struct Ledger {
    const char *lastSource = nullptr;     // the name given for the last block; stays null when blocks are tracked
    uint16_t lastModule = kOtherModules;  // its module
    bool tracking = false;                // blocks are tracked; the same in all ledgers
    Ledger *next = nullptr;               // next in the list of all ledgers
    Ledger *nextIdle = nullptr;           // next in the list of those without a thread
    Entry entries[kMaxModules];           // by module index

    // Tells whether a block for this name needs nothing special: it is for lastModule, and blocks are not tracked.
    bool IsOrdinary(const char *source) const { return source == lastSource && source != nullptr; }

    // Returns the index of the module named by the caller, and remembers it; registers a new one.
    uint16_t ModuleIndex(const char *source) {
        if (source == nullptr) {
            return kOtherModules;
        }
        lastModule = FindModule(source);
        lastSource = tracking ? nullptr : source;
        return lastModule;
    }
};

std::mutex ledgerMutex;  // guards the lists and the start-up of the ledgers
Ledger *allLedgers = nullptr;
Ledger *idleLedgers = nullptr;
pthread_key_t ledgerKey;  // its destructor runs when a thread ends
bool ledgersStarted = false;
bool tracking = false;

std::mutex sharedMutex;         // guards the shared ledger
constinit Ledger sharedLedger;  // for threads that get no ledger of their own because memory is short

// One plain read through the thread pointer: the model is what makes taking and returning fast in a shared library.
[[gnu::tls_model("initial-exec")]] constinit thread_local Ledger *ownLedger = nullptr;

// Puts a ledger at the disposal of the next thread. Called under ledgerMutex.
void PutAside(Ledger *ledger) {
    ledger->nextIdle = idleLedgers;
    idleLedgers = ledger;
}

// Leaves the ledger of an ending thread to others. A block returned later, by another destructor of the same thread,
// takes a ledger again, which comes back here in the next round of destructors.
void LeaveLedger(void *ledger) {
    const std::lock_guard lock(ledgerMutex);
    ownLedger = nullptr;
    PutAside(static_cast<Ledger *>(ledger));
}

// Prepares the ledgers, and the heap, on first use. Called under ledgerMutex. Returns false when the system
// is out of thread keys.
bool StartLedgers() {
    if (!ledgersStarted && pthread_key_create(&ledgerKey, LeaveLedger) == 0) {
        ledgersStarted = true;
        SetUpHeap();
    }
    return ledgersStarted;
}

// Decides once, before the first block is taken, whether blocks are tracked. Called under ledgerMutex.
void ReadTrackingSwitch() {
    static bool known = false;
    if (!known) {
        const char *const value = getenv("TAV_MEM_TRACK");
        tracking = value != nullptr && strcmp(value, "1") == 0;
        known = true;
    }
}

// Takes an idle ledger or makes one. Called under ledgerMutex. Returns null when memory is short.
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
    ledger->tracking = tracking;
    ledger->next = allLedgers;
    allLedgers = ledger;
    return ledger;
}

// Gives the calling thread a ledger. Returns null when that cannot be done.
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

// The ledger to write to, for as long as the object lives: the thread's own, else the shared one under its lock.
class LedgerAccess {
  public:
    LedgerAccess() : ledger_(ownLedger) {
        if (ledger_ == nullptr && (ledger_ = JoinLedgers()) == nullptr) {
            sharedMutex.lock();
            ledger_ = &sharedLedger;
        }
    }
    ~LedgerAccess() {
        if (ledger_ == &sharedLedger) {
            sharedMutex.unlock();
        }
    }
    LedgerAccess(const LedgerAccess &) = delete;
    LedgerAccess &operator=(const LedgerAccess &) = delete;

    Ledger *Get() const { return ledger_; }

  private:
    Ledger *ledger_;
};

// Calls `visit` with the entry of the module in every ledger. Called under ledgerMutex.
template <typename Visit>
void ForEachEntry(uint16_t module, Visit visit) {
    visit(sharedLedger.entries[module]);
    for (Ledger *ledger = allLedgers; ledger != nullptr; ledger = ledger->next) {
        visit(ledger->entries[module]);
    }
}

// Adds up a module's account. What was returned is read first and with acquire order, so whatever is seen as returned
// is then seen as taken too and no account falls below what is alive.
TAV_Posix_MemAccount SumModule(uint16_t module) {
    const std::lock_guard lock(ledgerMutex);
    size_t blocks = 0;
    size_t bytes = 0;
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

// ---- Blocks

constexpr uint16_t kMagic = 0xB10C;

// Stands in front of every block.
struct alignas(8) Header {
    uint32_t size;    // bytes that were asked for
    uint16_t module;  // index of the module that took the block
    uint16_t magic;   // kMagic until the block is returned
};
static_assert(sizeof(Header) == 8);

// Stands in front of every block when blocks are tracked.
struct TrackedHeader {
    TrackedHeader *previous;  // younger neighbour in the list of live blocks
    TrackedHeader *next;      // older neighbour
    uint32_t line;            // source line that took the block
    Header header;            // always last, right in front of the block
};
static_assert(sizeof(TrackedHeader) == offsetof(TrackedHeader, header) + sizeof(Header));

std::mutex trackMutex;
TrackedHeader *youngestBlock = nullptr;

Header *HeaderOf(void *block) {
    return static_cast<Header *>(block) - 1;
}

TrackedHeader *TrackedHeaderOf(void *block) {
    return static_cast<TrackedHeader *>(block) - 1;
}

void Track(TrackedHeader *tracked, uint32_t line) {
    const std::lock_guard lock(trackMutex);
    tracked->line = line;
    tracked->previous = nullptr;
    tracked->next = youngestBlock;
    if (youngestBlock != nullptr) {
        youngestBlock->previous = tracked;
    }
    youngestBlock = tracked;
}

void Untrack(const TrackedHeader *tracked) {
    const std::lock_guard lock(trackMutex);
    (tracked->previous != nullptr ? tracked->previous->next : youngestBlock) = tracked->next;
    if (tracked->next != nullptr) {
        tracked->next->previous = tracked->previous;
    }
}

[[noreturn, gnu::cold]] void RefuseBlock(const void *block, const char *source, uint32_t line) {
    fprintf(stderr, "MEL_Free_F: %p, returned by %s line %u, is not a live block\n", block,
            source != nullptr ? source : "(unknown)", line);
    abort();
}

// The header of a block that a caller gives back. Ends the process when it is no live block, as far as can be told.
[[gnu::always_inline]] inline Header *LiveHeaderOf(void *block, const char *source, uint32_t line) {
    Header *const header = HeaderOf(block);
    if (header->magic != kMagic) [[unlikely]] {
        RefuseBlock(block, source, line);
    }
    return header;
}

// Takes a block with `overhead` bytes in front and accounts it to a module. Returns null when memory is short.
[[gnu::always_inline]] inline void *TakeBlock(Ledger *ledger, uint16_t module, size_t overhead, uint32_t size) {
    if (size > SIZE_MAX - overhead) {
        return nullptr;
    }
    void *const memory = HeapTake(overhead + size);
    if (memory == nullptr) {
        return nullptr;
    }
    void *const block = static_cast<char *>(memory) + overhead;
    *HeaderOf(block) = {size, module, kMagic};
    ledger->entries[module].taken.Add(size, std::memory_order_relaxed);
    return block;
}

// Accounts a block as returned, and marks it, so that a second return is noticed. The order is such that a report that
// sees the return sees the taking too.
inline void AccountReturn(Ledger *ledger, Header *header) {
    volatile uint16_t *const magic = &header->magic;  // or the compiler spares a store to memory that is freed next
    *magic = 0;
    ledger->entries[header->module].returned.Add(header->size, std::memory_order_release);
}

// Takes a block as a thread's first, for another module than the last, as a tracked one, or through the shared ledger.
[[gnu::noinline]] void *TakeSpecially(uint32_t size, const char *source, uint32_t line) {
    const LedgerAccess ledger;
    const uint16_t module = ledger.Get()->ModuleIndex(source);
    if (!tracking) {
        return TakeBlock(ledger.Get(), module, sizeof(Header), size);
    }
    void *const block = TakeBlock(ledger.Get(), module, sizeof(TrackedHeader), size);
    if (block != nullptr) {
        Track(TrackedHeaderOf(block), line);
    }
    return block;
}

// The counterpart of TakeSpecially.
[[gnu::noinline]] void ReturnSpecially(void *block) {
    const LedgerAccess ledger;
    AccountReturn(ledger.Get(), HeaderOf(block));
    if (!tracking) {
        HeapReturn(HeaderOf(block));
        return;
    }
    Untrack(TrackedHeaderOf(block));
    HeapReturn(TrackedHeaderOf(block));
}

// Tells whether a block can take another size without moving, and without keeping more than twice what it needs.
bool FitsWhereItIs(void *block, uint32_t size) {
    const size_t overhead = tracking ? sizeof(TrackedHeader) : sizeof(Header);
    const size_t room = HeapRoom(static_cast<char *>(block) - overhead);
    return room > overhead && size <= room - overhead && size >= (room - overhead) / 2;
}

// Puts what a block holds into a new one of `capacity` bytes and returns the old one. The new one is taken in the name,
// and if blocks are tracked at the line, of whoever took the old one. Returns null, with the old one as it was, when
// memory is short.
void *MoveBlock(void *block, uint32_t capacity) {
    const Header old = *HeaderOf(block);
    const char *const module = moduleNames[old.module].load(std::memory_order_relaxed);
    const uint32_t line = tracking ? TrackedHeaderOf(block)->line : 0;
    void *const moved = MEL_Malloc_F(g_pTavCommHandle, g_aucMelMemPt[0], capacity, module, line);
    if (moved != nullptr) {
        memcpy(moved, block, std::min(capacity, old.size));
        MEL_Free_F(block, __func__, 0);
    }
    return moved;
}

// Accounts a block with another size, which it must have room for, as if it were returned and taken.
void AccountResize(void *block, uint32_t size) {
    Header *const header = HeaderOf(block);
    if (header->size == size) {
        return;
    }
    const LedgerAccess ledger;
    Entry &entry = ledger.Get()->entries[header->module];
    entry.taken.Add(size, std::memory_order_relaxed);
    entry.returned.Add(header->size, std::memory_order_release);
    // Whoever visits the tracked blocks reads their sizes.
    const auto lock = tracking ? std::unique_lock(trackMutex) : std::unique_lock<std::mutex>();
    header->size = size;
}

}  // namespace

void *MEL_Malloc_F(uintptr_t /*handle*/, uint8_t /*memPt*/, uint32_t size, const char *source, uint32_t line) {
    Ledger *const ledger = ownLedger;
    if (ledger == nullptr || !ledger->IsOrdinary(source)) [[unlikely]] {
        return TakeSpecially(size, source, line);
    }
    return TakeBlock(ledger, ledger->lastModule, sizeof(Header), size);
}

void *MEL_MemReAlloc(uintptr_t handle, uint8_t memPt, void *block, uint32_t size) {
    if (block == nullptr) {
        return MEL_Malloc_F(handle, memPt, size, nullptr, 0);
    }
    const uint32_t capacity = size > LiveHeaderOf(block, __func__, 0)->size ? WithSpare(size) : size;
    void *resized = FitsWhereItIs(block, size) ? block : MoveBlock(block, capacity);
    if (resized == nullptr && capacity != size) {
        resized = MoveBlock(block, size);  // without room to spare
    }
    if (resized != nullptr) {
        AccountResize(resized, size);
    }
    return resized;
}

void MEL_Free_F(void *block, const char *source, uint32_t line) {
    if (block == nullptr) {
        return;
    }
    Header *const header = LiveHeaderOf(block, source, line);
    Ledger *const ledger = ownLedger;
    if (ledger == nullptr || ledger->tracking) [[unlikely]] {
        ReturnSpecially(block);
        return;
    }
    AccountReturn(ledger, header);
    HeapReturn(header);
}

void TAV_Posix_MemTotal(TAV_Posix_MemAccount *total) {
    *total = {0, 0};
    const auto add = [](const char *, const TAV_Posix_MemAccount *account, void *context) {
        auto *const sum = static_cast<TAV_Posix_MemAccount *>(context);
        sum->blocks += account->blocks;
        sum->bytes += account->bytes;
    };
    TAV_Posix_MemVisitModules(add, total);
}

void TAV_Posix_MemVisitModules(TAV_Posix_MemModuleVisitor visitor, void *context) {
    const uint16_t count = moduleCount.load(std::memory_order_acquire);
    for (uint16_t module = 0; module < count; ++module) {
        const TAV_Posix_MemAccount account = SumModule(module);
        visitor(moduleNames[module].load(std::memory_order_relaxed), &account, context);
    }
}

int32_t TAV_Posix_MemVisitBlocks(TAV_Posix_MemBlockVisitor visitor, void *context) {
    {
        const std::lock_guard lock(ledgerMutex);
        ReadTrackingSwitch();
        if (!tracking) {
            return -1;
        }
    }
    const std::lock_guard lock(trackMutex);
    for (TrackedHeader *tracked = youngestBlock; tracked != nullptr; tracked = tracked->next) {
        const Header &header = tracked->header;
        const TAV_Posix_MemBlock block = {tracked + 1, moduleNames[header.module].load(std::memory_order_relaxed),
                                          tracked->line, header.size};
        visitor(&block, context);
    }
    return 0;
}
