// The allocator: accounts a module, over threads; live blocks by place. Runs with blocks tracked and without.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/mel_memory.h"
#include "tav_posix.h"

static thread_local bool failThreadKeys = false;  // the thread gets no ledger of its own

#ifndef __SANITIZE_THREAD__  // its runtime calls this before a thread may run our code
extern "C" int pthread_setspecific(pthread_key_t key, const void *value) {
    const auto next = reinterpret_cast<int (*)(pthread_key_t, const void *)>(dlsym(RTLD_NEXT, "pthread_setspecific"));
    return failThreadKeys ? ENOMEM : next(key, value);
}
#endif

namespace {

using Accounts = std::map<std::string, std::pair<uint64_t, uint64_t>>;         // module: blocks and bytes
using Places = std::map<void *, std::tuple<std::string, uint32_t, uint32_t>>;  // block: module, line and size

Accounts ReadAccounts() {
    Accounts accounts;
    const auto note = [](const char *module, const TAV_Posix_MemAccount *account, void *context) {
        (*static_cast<Accounts *>(context))[module] = {account->blocks, account->bytes};
    };
    TAV_Posix_MemVisitModules(note, &accounts);
    return accounts;
}

/** Expects just these blocks to be live, by the accounts and, where blocks are tracked, by the list of them. */
void ExpectLive(const Places &live) {
    Accounts accounts = ReadAccounts();
    for (const auto &[block, place] : live) {
        const auto &[module, line, size] = place;
        accounts[module].first -= 1;
        accounts[module].second -= size;
    }
    for (const auto &[module, account] : accounts) {
        EXPECT_EQ(account, std::make_pair(uint64_t{0}, uint64_t{0})) << module;
    }
    Places listed;
    const auto note = [](const TAV_Posix_MemBlock *block, void *context) {
        (*static_cast<Places *>(context))[const_cast<void *>(block->block)] = {block->module, block->line, block->size};
    };
    const char *const setting = getenv("TAV_MEM_TRACK");
    const bool tracked = setting != nullptr && setting == std::string("1");
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
    Places live = {{MEL_MemReAlloc(g_uiMelHandleCommon, g_aucMelMemPt[0], nullptr, 0), {"(others)", 0, 0}}};
    for (uint32_t line = 1; line < 1000; ++line) {
        if (line < 700 && random() % 5 < 3) {
            const char *const module = modules[random() % 3];
            const auto size = static_cast<uint32_t>(random() % 200);
            void *const block = Take(size, module, line);
            ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % 8, 0u);
            memset(block, static_cast<int>(size), size);
            live[block] = {module, line, size};
        } else if (!live.empty()) {
            const auto leaver = std::next(live.begin(), static_cast<long>(random() % live.size()));
            auto *const bytes = static_cast<uint8_t *>(leaver->first);
            const auto [module, taken, size] = leaver->second;
            EXPECT_EQ(std::count(bytes, bytes + size, static_cast<uint8_t>(size)), size);
            live.erase(leaver);
            if (line < 700 && random() % 3 == 0) {
                const auto other = static_cast<uint32_t>(random() % 200 * (random() % 8 == 0 ? 4001 : 1));
                auto *const moved = static_cast<uint8_t *>(MEL_MemReAlloc(1, 0, bytes, other));
                const uint32_t kept = std::min(size, other);
                EXPECT_EQ(std::count(moved, moved + kept, static_cast<uint8_t>(size)), kept);
                memset(moved, static_cast<int>(other), other);
                live[moved] = {module, taken, other};
            } else {
                MEL_Free_F(bytes, "another", line);
            }
        }
        ExpectLive(live);
    }
}

std::atomic<void *> shelf[16];  // where threads leave blocks and pick up each other's

/** Takes blocks, exchanges them for others, and returns these. */
void Trade(void *seed) {
    const char *const modules[] = {"red", "green", "blue"};
    std::mt19937 random(static_cast<unsigned>(reinterpret_cast<uintptr_t>(seed)));
    for (int round = 0; round < 30000; ++round) {
        void *const block = Take(static_cast<uint32_t>(random() % 100), modules[random() % 3], 2);
        MEL_Free_F(shelf[random() % std::size(shelf)].exchange(block), "anyone", 3);
    }
}

/**
 * Threads trade blocks, some through the shared ledger, and once more while they end, when later threads already use
 * the ledgers that they left. One block is never returned, so its account is at no time empty, nor absurdly full.
 */
TEST(Memory, AccountsAreExactOverThreads) {
    void *const floor = Take(7, "red", 1);
    pthread_key_t endKey;  // younger than the allocator's own, so its destructor runs after that one's
    ASSERT_EQ(pthread_key_create(&endKey, Trade), 0);
    std::vector<std::jthread> threads;
    for (uintptr_t seed = 1; seed <= 20; ++seed) {
        threads.emplace_back([=] {
            pthread_setspecific(endKey, reinterpret_cast<void *>(seed));
            failThreadKeys = seed % 4 < 2;
            Trade(reinterpret_cast<void *>(seed));
            failThreadKeys = false;
        });
        for (int look = 0; look < 200; ++look) {
            const auto red = ReadAccounts()["red"];
            EXPECT_GE(red.first, 1u);
            EXPECT_GE(red.second, 7u);
            EXPECT_LT(red.second, uint64_t{1} << 40);
        }
    }
    threads.clear();
    pthread_key_delete(endKey);
    for (std::atomic<void *> &block : shelf) {
        MEL_Free_F(block.exchange(nullptr), "anyone", 4);
    }
    ExpectLive({{floor, {"red", 1, 7}}});
    MEL_Free_F(floor, "red", 5);
}

TEST(Memory, ModulesBeyondTheTableShareAnAccount) {
    const auto run = [] {
        std::string names[300];
        for (std::string &name : names) {
            name = "module" + std::to_string(&name - names);
            Take(3, name.c_str(), 1);
        }
        const Accounts accounts = ReadAccounts();
        _Exit(accounts.size() == 256 && accounts.at("(others)").first >= 300 - 255 ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(MemoryDeathTest, ReturningTwiceNamesThePlace) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer reports it first";
#endif
    EXPECT_DEATH(
        {
            void *const block = Take(40, "red", 1);
            MEL_Free_F(block, "blue", 2);
            MEL_Free_F(block, "green", 3);
        },
        "green line 3");
}

}  // namespace
