/*
 * The module-tagged allocator.
 *
 * A block is a heap block with a header of 8 bytes in front: its size and the index of the module that took it. When
 * blocks are tracked, the header is longer and links the block into the list of all live blocks.
 */
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <mutex>

#include "heap.h"
#include "interfaces.h"
#include "ledger.h"
#include "modules.h"

using hosted::blocksAreTracked;
using hosted::Ledger;
using hosted::LedgerAccess;
using hosted::ModuleName;
using hosted::ownLedger;

uintptr_t g_pTavCommHandle = 1;
uint32_t g_uiMelHandleCommon = 1;
uint8_t g_aucMelMemPt[1] = {0};

namespace {

constexpr uint16_t kMagic = 0xB10C;

/** Stands in front of every block. */
struct alignas(8) Header {
    uint32_t size;    // bytes that were asked for
    uint16_t module;  // index of the module that took the block
    uint16_t magic;   // kMagic until the block is returned
};
static_assert(sizeof(Header) == 8);

/** Stands in front of every block when blocks are tracked. */
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

/**
 * The header of a block that a caller gives back. Ends the process when it is no live block, as far as can be told.
 */
[[gnu::always_inline]] inline Header *LiveHeaderOf(void *block, const char *source, uint32_t line) {
    Header *const header = HeaderOf(block);
    if (header->magic != kMagic) [[unlikely]] {
        RefuseBlock(block, source, line);
    }
    return header;
}

/** Takes a block with `overhead` bytes in front and accounts it to a module. Returns null when memory is short. */
[[gnu::always_inline]] inline void *TakeBlock(Ledger *ledger, uint16_t module, size_t overhead, uint32_t size) {
    if (size > SIZE_MAX - overhead) {
        return nullptr;
    }
    void *const memory = hosted::HeapTake(overhead + size);
    if (memory == nullptr) {
        return nullptr;
    }
    void *const block = static_cast<char *>(memory) + overhead;
    *HeaderOf(block) = {size, module, kMagic};
    ledger->entries[module].taken.Add(size, std::memory_order_relaxed);
    return block;
}

/**
 * Accounts a block as returned, and marks it, so that a second return is noticed. The order is such that a report that
 * sees the return sees the taking too.
 */
inline void AccountReturn(Ledger *ledger, Header *header) {
    volatile uint16_t *const magic = &header->magic;  // or the compiler spares a store to memory that is freed next
    *magic = 0;
    ledger->entries[header->module].returned.Add(header->size, std::memory_order_release);
}

/**
 * Takes a block as a thread's first, for another module than the last, as a tracked one, or through the shared ledger.
 */
[[gnu::noinline]] void *TakeSpecially(uint32_t size, const char *source, uint32_t line) {
    const LedgerAccess ledger;
    const uint16_t module = ledger.Get()->ModuleIndex(source);
    if (!blocksAreTracked) {
        return TakeBlock(ledger.Get(), module, sizeof(Header), size);
    }
    void *const block = TakeBlock(ledger.Get(), module, sizeof(TrackedHeader), size);
    if (block != nullptr) {
        Track(TrackedHeaderOf(block), line);
    }
    return block;
}

/** The counterpart of TakeSpecially. */
[[gnu::noinline]] void ReturnSpecially(void *block) {
    const LedgerAccess ledger;
    AccountReturn(ledger.Get(), HeaderOf(block));
    if (!blocksAreTracked) {
        hosted::HeapReturn(HeaderOf(block));
        return;
    }
    Untrack(TrackedHeaderOf(block));
    hosted::HeapReturn(TrackedHeaderOf(block));
}

/** Returns whether a block can take another size without moving, and without keeping more than twice what it needs. */
bool FitsWhereItIs(void *block, uint32_t size) {
    const size_t overhead = blocksAreTracked ? sizeof(TrackedHeader) : sizeof(Header);
    const size_t room = hosted::HeapRoom(static_cast<char *>(block) - overhead);
    return room > overhead && size <= room - overhead && size >= (room - overhead) / 2;
}

/**
 * Puts what a block holds into a new one of `capacity` bytes and returns the old one. The new one is taken in the name,
 * and if blocks are tracked at the line, of whoever took the old one. Returns null, with the old one as it was, when
 * memory is short.
 */
void *MoveBlock(void *block, uint32_t capacity) {
    const Header old = *HeaderOf(block);
    const char *const module = ModuleName(old.module);
    const uint32_t line = blocksAreTracked ? TrackedHeaderOf(block)->line : 0;
    void *const moved = MEL_Malloc_F(g_pTavCommHandle, g_aucMelMemPt[0], capacity, module, line);
    if (moved != nullptr) {
        memcpy(moved, block, std::min(capacity, old.size));
        MEL_Free_F(block, __func__, 0);
    }
    return moved;
}

/** Accounts a block with another size, which it must have room for, as if it were returned and taken. */
void AccountResize(void *block, uint32_t size) {
    Header *const header = HeaderOf(block);
    if (header->size == size) {
        return;
    }
    const LedgerAccess ledger;
    hosted::Entry &entry = ledger.Get()->entries[header->module];
    entry.taken.Add(size, std::memory_order_relaxed);
    entry.returned.Add(header->size, std::memory_order_release);
    // Whoever visits the tracked blocks reads their sizes.
    const auto lock = blocksAreTracked ? std::unique_lock(trackMutex) : std::unique_lock<std::mutex>();
    header->size = size;
}

}  // namespace

/** Begins a cache line of code: taking and returning a block then takes 7 % less time. */
[[gnu::aligned(64)]] void *MEL_Malloc_F(uintptr_t /*handle*/, uint8_t /*memPt*/, uint32_t size, const char *source,
                                        uint32_t line) {
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
    const uint32_t capacity = size > LiveHeaderOf(block, __func__, 0)->size ? hosted::WithSpare(size) : size;
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
    if (ledger == nullptr || blocksAreTracked) [[unlikely]] {
        ReturnSpecially(block);
        return;
    }
    AccountReturn(ledger, header);
    hosted::HeapReturn(header);
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
    const uint16_t count = hosted::ModuleCount();
    for (uint16_t module = 0; module < count; ++module) {
        const TAV_Posix_MemAccount account = hosted::SumModule(module);
        visitor(ModuleName(module), &account, context);
    }
}

int32_t TAV_Posix_MemVisitBlocks(TAV_Posix_MemBlockVisitor visitor, void *context) {
    if (!hosted::AreBlocksTracked()) {
        return -1;
    }
    const std::lock_guard lock(trackMutex);
    for (TrackedHeader *tracked = youngestBlock; tracked != nullptr; tracked = tracked->next) {
        const Header &header = tracked->header;
        const TAV_Posix_MemBlock block = {tracked + 1, ModuleName(header.module), tracked->line, header.size};
        visitor(&block, context);
    }
    return 0;
}
