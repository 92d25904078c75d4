/*
 * Handler tables as data: ends, repeated keys, columns, assertions that the platform lets pass; and padded TLVs.
 */
#include <gtest/gtest.h>

#include "store.h"
#include "tav_common.h"

namespace {

const auto kA = TAV_Handler(1), kB = TAV_Handler(2), kC = TAV_Handler(3), k0 = TAV_Handler(nullptr);
std::vector<uint32_t> g_asserted;  // the lines

struct HandlerTables : testing::Test {
    HandlerTables() {
        g_asserted.clear();
        TAV_Posix_SetAssertHandler([](auto, uint32_t line) { g_asserted.push_back(line); });
    }
};

TEST_F(HandlerTables, FirstEntryThatFits) {
    const TAV_SubIfHandler subIfs[] = {{2, 3, kA}, {1, 3, kB}, {3, 1, kC}, {1, 3, kA}, {9, 9, k0}, {9, 9, kA}};
    const TAV_CmdHandler cmds[] = {{5, kA}, {~0u, kB}, {7, kC}, {~0u, kA}, {0, k0}, {0, kA}};
    const TAV_ConstructHandler stages[] = {{5, kA}, {~0u, kB}, {7, kC}, {~0u, kA}, {0, k0}, {0, kA}};
    for (size_t at = 0; at < 6; ++at) {
        const TAV_Handler expected[] = {kA, kB, kC, kB, k0, k0};
        EXPECT_EQ(TAV_GetSubIfHandler(subIfs[at].interfaceNumber, subIfs[at].subInterfaceNumber, subIfs), expected[at]);
        EXPECT_EQ(TAV_GetMsgHandlerByCmd(cmds[at].command, cmds), expected[at]) << at;
        EXPECT_EQ(TAV_GetConstructHandlerByStage(stages[at].stage, stages), expected[at]) << at;
    }
}

TEST_F(HandlerTables, ColumnsOfStates) {
    const TAV_StateHandler columns[] = {{1, kA}, {2, kB}, {3, k0}, {2, kC}, {2, k0}, {2, kA}, {0, k0}};
    const TAV_Handler expected[][4] = {{}, {kA}, {kC, kB, k0, kC}, {}};  // 3 is a state too many
    for (uint32_t at = 0; at < 16; ++at) {
        EXPECT_EQ(TAV_GetMsgHandleByState(at / 4, at % 4, columns, 3), expected[at / 4][at % 4]) << at;
    }
    EXPECT_EQ(TAV_GetMsgHandleByState(1, 0, columns, 0), nullptr) << "no states, no columns";
    EXPECT_EQ(g_asserted, std::vector<uint32_t>(5, 144));
}

TEST_F(HandlerTables, StateStep) {
    const FSM_Handler less5 = [](auto a, auto b, auto c) { return a == 1 && b == 2 ? uint32_t(c) - 5 : 77; };
    const FSM_Transition table[] = {{1, less5}, {7, nullptr}, {0, nullptr}, {9, less5}};
    const uint32_t cases[][4] = {{0, 0, 5, 1}, {0, 0, 7, 0}, {0, 1, 5, 0}, {1, 0, 5, 1},
                                 {1, 1, 5, 9}, {0, 2, 5, 0}, {0, 3, 5, 9}};
    for (const auto &[from, event, arg3, to] : cases) {  // where it goes to the state that it comes from, it fails
        uint32_t state = from;
        EXPECT_EQ(FSM_Process(event, &state, table, 2, 1, 2, arg3), from != to ? 0 : 0xFFFFFFFF) << from << event;
        EXPECT_EQ(state, to) << from << event << arg3;
    }
    EXPECT_EQ(g_asserted, std::vector<uint32_t>(2, 175));
    uint32_t state = 1;  // whose first entry, of a table that begins two entries below it, is nowhere
    auto *const below = reinterpret_cast<const FSM_Transition *>(uintptr_t{0} - 2 * sizeof(FSM_Transition));
    EXPECT_EQ(FSM_Process(0, &state, below, 2, 0, 0, 0), 0xFFFFFFFF);
    EXPECT_EQ(g_asserted.back(), 180u);
}

TEST(Memory, AFreshBlockIsZeroToItsEnd) {
    Bytes block = Filled(9, 0xEE);
    EXPECT_EQ(TAV_MallocInit(block.data(), 8), block.data());
    EXPECT_EQ(block, Join({Filled(8, 0), {0xEE}}));
    EXPECT_EQ(TAV_MallocInit(nullptr, 8), nullptr);
}

TEST(HandlerTablesDeathTest, NothingOutsideIsReadUnlessAHandlerReturns) {
    TAV_Posix_SetAssertHandler(nullptr);
    auto *const states = reinterpret_cast<const TAV_StateHandler *>(64);  // nowhere
    auto *const table = reinterpret_cast<const FSM_Transition *>(64);
    uint32_t state = 0;
    EXPECT_DEATH(TAV_GetMsgHandleByState(1, 3, states, 3), "assertion failed: tav_common line 144");
    EXPECT_DEATH(FSM_Process(2, &state, table, 2, 0, 0, 0), "assertion failed: tav_common line 175");
}

TEST(PaddedTlv, BothByteOrders) {
    const Bytes tlvs = Hex("10050005aaaaaaaaaaeeeeee 10000000 10010001aaeeeeee 10040004aaaaaaaa 10050000");
    for (uint8_t total = 0; total < 46; ++total) {
        const Bytes network = Join({{0xEE, 0, total}, Filled(6, 0xEE), tlvs});  // the message begins at an odd place
        Bytes host = network;
        for (size_t at = 1; Host16(1) != Be16(1) && at < host.size(); at += 2) {
            std::swap(host[at], host[at + 1]);
        }
        for (const auto &[type, at] : std::map<uint16_t, int>{{0x1000, 20}, {0x1001, 24}, {0x1004, 32}, {0x1005, 8}}) {
            const bool seen = at == 8 || at < total;
            const uint16_t length = seen ? type & 7 : 9;
            std::pair lengths(uint16_t{9}, uint16_t{9});
            EXPECT_EQ(TAV_TLV_Find_NTOH(&lengths.first, type, &network[1]), seen ? &network[1] + at + 4 : nullptr)
                << type;
            EXPECT_EQ(TAV_TLV_Find(&lengths.second, type, &host[1]), seen ? &host[1] + at + 4 : nullptr) << type;
            EXPECT_EQ(lengths, std::pair(length, length)) << type;
        }
    }
}

}  // namespace
