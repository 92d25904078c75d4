// The allocator: accounts a module, over threads; live blocks by place.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "faults.h"
#include "platform/mel_memory.h"
#include "tav_posix.h"

namespace {

using Accounts = std::map<std::string, std::pair<uint64_t, uint64_t>>;  // module: blocks and bytes

Accounts ReadAccounts() {
    Accounts accounts;
    const auto note = [](const char *module, const TAV_Posix_MemAccount *account, void *context) {
        (*static_cast<Accounts *>(context))[module] = {account->blocks, account->bytes};
    };
    TAV_Posix_MemVisitModules(note, &accounts);
    return accounts;
}

std::pair<uint64_t, uint64_t> ReadTotal() {
    TAV_Posix_MemAccount total;
    TAV_Posix_MemTotal(&total);
    return {total.blocks, total.bytes};
}

void *Take(uint32_t size, const char *module, uint32_t line) {
    return MEL_Malloc_F(g_pTavCommHandle, g_aucMelMemPt[0], size, module, line);
}

TEST(Memory, BlocksStandOnTheAccountOfTheirTaker) {
    const auto before = ReadTotal();
    std::vector<uint8_t *> blocks;
    uint64_t bytes = 0;
    for (uint32_t size = 0; size < 200; ++size) {
        // Names in storage that is used again: the content counts, not the address.
        char module[8];
        std::strcpy(module, size % 2 == 0 ? "even" : "odd");
        auto *const block = static_cast<uint8_t *>(Take(size, module, 1));
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 8, 0u);
        std::memset(block, static_cast<int>(size), size);
        blocks.push_back(block);
        bytes += size;
    }
    EXPECT_EQ(ReadAccounts()["even"], std::make_pair(uint64_t{100}, uint64_t{9900}));
    EXPECT_EQ(ReadAccounts()["odd"], std::make_pair(uint64_t{100}, uint64_t{10000}));
    EXPECT_EQ(ReadTotal(), std::make_pair(before.first + 200, before.second + bytes));
    for (uint32_t size = 0; size < blocks.size(); ++size) {
        EXPECT_TRUE(size == 0 || (blocks[size][0] == size && blocks[size][size - 1] == size));
        MEL_Free_F(blocks[size], "another", 2);
    }
    MEL_Free_F(nullptr, "another", 3);
    EXPECT_EQ(ReadAccounts()["even"], std::make_pair(uint64_t{0}, uint64_t{0}));
    EXPECT_EQ(ReadAccounts().count("another"), 0u);
    EXPECT_EQ(ReadTotal(), before);
}

// Where threads leave blocks and pick up each other's.
std::array<std::atomic<void *>, 16> shelf;

// Takes blocks, exchanges them for others, and returns these.
void Trade(void *seed) {
    const char *const modules[] = {"red", "green", "blue"};
    std::mt19937 random(static_cast<unsigned>(reinterpret_cast<uintptr_t>(seed)));
    for (int round = 0; round < 30000; ++round) {
        void *const block = Take(static_cast<uint32_t>(random() % 100), modules[random() % 3], 2);
        MEL_Free_F(shelf[random() % shelf.size()].exchange(block), "anyone", 3);
    }
}

// Threads trade blocks, some through the shared ledger, and once more while they end, when later threads already use
// the ledgers that they left. A reporter looks on: one block is never returned, so its account may at no time be seen
// empty, nor absurdly full.
TEST(Memory, AccountsAreExactOverThreads) {
    const auto before = ReadTotal();
    void *const floor = Take(7, "red", 1);
    pthread_key_t endKey;  // younger than the allocator's own, so its destructor runs after that one's
    ASSERT_EQ(pthread_key_create(&endKey, Trade), 0);
    std::atomic<bool> done{false};
    std::thread reporter([&] {
        while (!done) {
            const auto red = ReadAccounts()["red"];
            EXPECT_GE(red.first, 1u);
            EXPECT_GE(red.second, 7u);
            EXPECT_LT(red.second, uint64_t{1} << 40);
        }
    });
    std::vector<std::thread> threads;
    for (uintptr_t seed = 1; seed <= 20; ++seed) {
        threads.emplace_back([=] {
            void *const context = reinterpret_cast<void *>(seed);
            pthread_setspecific(endKey, context);
            failThreadKeys = seed % 4 < 2;
            Trade(context);
            failThreadKeys = false;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    done = true;
    reporter.join();
    pthread_key_delete(endKey);
    EXPECT_EQ(ReadTotal().first, before.first + shelf.size() + 1);
    for (std::atomic<void *> &block : shelf) {
        MEL_Free_F(block.exchange(nullptr), "anyone", 4);
    }
    EXPECT_EQ(ReadAccounts()["red"], std::make_pair(uint64_t{1}, uint64_t{7}));
    EXPECT_EQ(ReadAccounts()["blue"], std::make_pair(uint64_t{0}, uint64_t{0}));
    MEL_Free_F(floor, "red", 5);
    EXPECT_EQ(ReadTotal(), before);
}

TEST(Memory, ListsLiveBlocksWhenTracked) {
    using Places = std::map<const void *, std::tuple<std::string, uint32_t, uint32_t>>;
    const auto read = [](Places *places) {
        const auto note = [](const TAV_Posix_MemBlock *block, void *context) {
            (*static_cast<Places *>(context))[block->block] = {block->module, block->line, block->size};
        };
        return TAV_Posix_MemVisitBlocks(note, places);
    };
    const char *const asked = std::getenv("TAV_MEM_TRACK");
    Places expected;
    Places found;
    if (asked == nullptr || std::strcmp(asked, "1") != 0) {
        EXPECT_EQ(read(&found), -1);
        EXPECT_TRUE(found.empty());
        return;
    }
    ASSERT_EQ(read(&expected), 0);
    std::mt19937 random(1);
    std::vector<void *> blocks;
    for (uint32_t line = 1; line < 300; ++line) {
        const auto size = static_cast<uint32_t>(random() % 50);
        blocks.push_back(Take(size, "lister", line));
        expected[blocks.back()] = {"lister", line, size};
        if (line % 3 == 0) {
            std::swap(blocks[random() % blocks.size()], blocks.back());
            expected.erase(blocks.back());
            MEL_Free_F(blocks.back(), "lister", line);
            blocks.pop_back();
        }
    }
    ASSERT_EQ(read(&found), 0);
    EXPECT_EQ(found, expected);
    for (void *block : blocks) {
        MEL_Free_F(block, "lister", 0);
    }
}

TEST(Memory, WhatIsNoBlockIsRefused) {
    alignas(8) char memory[64] = {};
    EXPECT_DEATH(MEL_Free_F(memory + 32, "careless", 77), "careless line 77, is not a live block");
}

TEST(Memory, MoreModulesThanTheTableHoldsShareAnAccount) {
    const auto run = [] {
        std::vector<void *> blocks;
        for (int i = 0; i < 300; ++i) {
            blocks.push_back(Take(3, ("module" + std::to_string(i)).c_str(), 1));
        }
        const Accounts accounts = ReadAccounts();
        const uint64_t shared = accounts.at("(others)").first;
        const bool apart = accounts.at("module7").first == 1 && shared >= 300 - 256 && shared < 300;
        const bool exact = ReadTotal() == std::make_pair(uint64_t{300}, uint64_t{900});
        for (void *block : blocks) {
            MEL_Free_F(block, nullptr, 2);
        }
        std::exit(apart && exact && ReadTotal().first == 0 ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // their heaps end the process instead
TEST(Memory, FailsWithoutATraceWhenMemoryIsShort) {
    const auto run = [] {
        const rlimit limit = {uint64_t{1} << 31, uint64_t{1} << 31};
        MEL_Free_F(Take(1, "hungry", 1), "hungry", 1);
        setrlimit(RLIMIT_AS, &limit);
        const auto before = ReadTotal();
        const bool refused = Take(UINT32_MAX, "hungry", 2) == nullptr;
        std::exit(refused && ReadTotal() == before ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}
#endif

}  // namespace
