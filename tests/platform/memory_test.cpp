// The allocator: accounts a module, over threads; live blocks by place. Runs with blocks tracked and without.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
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

using Account = std::pair<uint64_t, uint64_t>;                                       // blocks and bytes
using Places = std::map<const void *, std::tuple<std::string, uint32_t, uint32_t>>;  // block: module, line and size

// The accounts of the modules, and of all as "total".
std::map<std::string, Account> ReadAccounts() {
    std::map<std::string, Account> accounts;
    const auto note = [](const char *module, const TAV_Posix_MemAccount *account, void *context) {
        (*static_cast<std::map<std::string, Account> *>(context))[module] = {account->blocks, account->bytes};
    };
    TAV_Posix_MemVisitModules(note, &accounts);
    TAV_Posix_MemAccount total;
    TAV_Posix_MemTotal(&total);
    accounts["total"] = {total.blocks, total.bytes};
    return accounts;
}

// Expects just these blocks to be live, by the accounts and, where blocks are tracked, by the list of them.
void ExpectLive(const Places &live) {
    std::map<std::string, Account> expected = {{"red", {}}, {"green", {}}, {"total", {}}};
    for (const auto &[block, place] : live) {
        for (const std::string &name : {std::get<0>(place), std::string("total")}) {
            expected[name].first += 1;
            expected[name].second += std::get<2>(place);
        }
    }
    auto accounts = ReadAccounts();
    for (const auto &[name, account] : expected) {
        EXPECT_EQ(accounts[name], account) << name;
    }
    Places listed;
    const auto note = [](const TAV_Posix_MemBlock *block, void *context) {
        (*static_cast<Places *>(context))[block->block] = {block->module, block->line, block->size};
    };
    const char *const asked = std::getenv("TAV_MEM_TRACK");
    const bool tracked = asked != nullptr && std::strcmp(asked, "1") == 0;
    EXPECT_EQ(TAV_Posix_MemVisitBlocks(note, &listed), tracked ? 0 : -1);
    EXPECT_EQ(listed, tracked ? live : Places());
}

void *Take(uint32_t size, const char *module, uint32_t line) {
    return MEL_Malloc_F(g_pTavCommHandle, g_aucMelMemPt[0], size, module, line);
}

TEST(Memory, ReportsTellWhatIsLive) {
    static const char twin[] = "red";  // the same module by another address
    const char *const modules[] = {"red", "green", twin};
    std::mt19937 random(1);
    std::vector<uint8_t *> blocks;
    Places live;
    for (uint32_t line = 1; line < 3000; ++line) {
        if (line < 2000 && (blocks.empty() || random() % 5 < 3)) {
            const char *const module = modules[random() % 3];
            const auto size = static_cast<uint32_t>(random() % 200);
            blocks.push_back(static_cast<uint8_t *>(Take(size, module, line)));
            ASSERT_EQ(reinterpret_cast<uintptr_t>(blocks.back()) % 8, 0u);
            std::memset(blocks.back(), static_cast<int>(size), size);
            live[blocks.back()] = {module, line, size};
        } else if (!blocks.empty()) {
            std::swap(blocks[random() % blocks.size()], blocks.back());
            uint8_t *const block = blocks.back();
            blocks.pop_back();
            const uint32_t size = std::get<2>(live[block]);
            EXPECT_EQ(std::count(block, block + size, size), size);
            live.erase(block);
            MEL_Free_F(block, "another", line);
        }
        if (line % 50 == 0) {
            ExpectLive(live);
        }
    }
    MEL_Free_F(nullptr, "another", 1);
    ExpectLive({});
    EXPECT_EQ(ReadAccounts().count("another"), 0u);
}

std::array<std::atomic<void *>, 16> shelf;  // where threads leave blocks and pick up each other's

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
    void *const floor = Take(7, "red", 1);
    pthread_key_t endKey;  // younger than the allocator's own, so its destructor runs after that one's
    ASSERT_EQ(pthread_key_create(&endKey, Trade), 0);
    std::atomic<bool> done{false};
    std::thread reporter([&] {
        while (!done) {
            const Account red = ReadAccounts()["red"];
            EXPECT_TRUE(red.first >= 1 && red.second >= 7 && red.second < uint64_t{1} << 40);
        }
    });
    std::vector<std::jthread> threads;
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
    threads.clear();
    done = true;
    reporter.join();
    pthread_key_delete(endKey);
    EXPECT_EQ(ReadAccounts()["total"].first, shelf.size() + 1);
    for (std::atomic<void *> &block : shelf) {
        MEL_Free_F(block.exchange(nullptr), "anyone", 4);
    }
    ExpectLive({{floor, {"red", 1, 7}}});
    MEL_Free_F(floor, "red", 5);
}

TEST(Memory, WhatIsNoBlockIsRefused) {
    alignas(8) char memory[64] = {};
    EXPECT_DEATH(MEL_Free_F(memory + 32, "careless", 77), "careless line 77, is not a live block");
}

TEST(Memory, MoreModulesThanTheTableHoldsShareAnAccount) {
    const auto run = [] {
        std::array<std::string, 300> names;
        for (size_t i = 0; i < names.size(); ++i) {
            names[i] = "module" + std::to_string(i);
            Take(3, names[i].c_str(), 1);
        }
        auto accounts = ReadAccounts();
        const uint64_t shared = accounts["(others)"].first;
        const bool apart = accounts["module7"] == Account(1, 3) && shared >= 300 - 256 && shared < 300;
        std::exit(apart && accounts["total"] == Account(300, 900) ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // their heaps end the process instead
TEST(Memory, FailsWithoutATraceWhenMemoryIsShort) {
    const auto run = [] {
        const rlimit limit = {uint64_t{1} << 31, uint64_t{1} << 31};
        MEL_Free_F(Take(1, "hungry", 1), "hungry", 1);
        setrlimit(RLIMIT_AS, &limit);
        const bool refused = Take(UINT32_MAX, "hungry", 2) == nullptr;
        std::exit(refused && ReadAccounts()["total"] == Account() ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}
#endif

}  // namespace
