/*
 * The state machine runner: outcomes and repeats as a table, and the ring of steps against a plain list of them.
 */
#include <gtest/gtest.h>

#include "bytes.h"
#include "tav_common.h"

static uint32_t g_clock;  // tells how often it was asked
extern "C" void MEL_Local_SystimeGet(MEL_Date *date, MEL_DayTime *time) {
    *date = {2000, 1, 1};
    *time = {0, 0, 0, 0, ++g_clock};
}

TEST(StateMachine, OutcomesAndRepeats) {
    const auto act = [](auto s, auto event, auto arg, auto data) { return uint32_t(s + event + data == 9 ? arg : 7); };
    const TAV_FSM_Transition table[] = {{0, 1, act, {1, 1}, {0, 2}}, {0, 1, nullptr, {}, {}},
                                        {1, 1, nullptr, {1, 3}, {}}, {3, 1, nullptr, {2, 4}, {}},
                                        {2, 1, nullptr, {1, 9}, {}}, {9, 2, nullptr, {0, 5}, {}}};
    constexpr uint16_t kNoStep = 8;  // what the flag was before, and stays when there is no step
    const uint16_t cases[][6] = {{0, 1, 1, 0, 4, 1},        {0, 1, 0, 0, 2, 0},       {0, 1, 2, 0, 2, 0},
                                 {2, 1, 0, 1, 9, 1},        {9, 1, 0, 1, 9, kNoStep}, {9, 2, 0, 1, 9, kNoStep},
                                 {0, 257, 1, 1, 0, kNoStep}};
    for (const auto &[state, event, argument, result, last, repeat] : cases) {
        const bool steps = repeat != kNoStep;
        uint16_t flag = kNoStep;
        TAV_FSM machine;
        TAV_FSM_Ring ring = {};
        memset(&machine, 0xA5, sizeof(machine));
        TAV_FSM_Init(&machine, uint8_t(state), table, 5, 8);  // without the last transition
        --g_clock;
        TAV_FSM_SaveDiagnoseInfo(&ring, state, 0xFFFF);
        EXPECT_EQ(memcmp(&machine.ring, &ring, sizeof(ring)), 0);
        TAV_FSM once = machine;
        EXPECT_EQ(TAV_FSM_Run(&machine, event, argument), result) << state << event;
        EXPECT_EQ(machine.state, last) << state << event;
        EXPECT_EQ(TAV_FSM_Run_Base(&once, event, argument, &flag), steps ? 0u : 1u);
        EXPECT_EQ(flag, repeat);
        EXPECT_EQ(once.ring.next, steps ? 2 : 1);
        EXPECT_EQ(once.ring.records[1].event, steps ? event : 0);
    }
}

TEST(StateMachine, RingShowsNineRecords) {
    const auto copy = [](auto from, auto to, auto size) { return size < 20 ? 0u : (memcpy(to, from, 20), 20u); };
    Random random(1);
    for (int run = 0; run < 50; ++run) {
        TAV_FSM machine{};  // a ring of zeros has its last step in state 0, and does not show it
        std::vector<TAV_FSM_Record> steps(1);
        for (int step = 0; step < 40; ++step) {
            const uint16_t state = random() % 2, event = (run + step) % 9 == 0 ? 0xFFFF : random() % 2;
            step == 0 && event == 0xFFFF ? TAV_FSM_Init(&machine, uint8_t(state), nullptr, 0, 0)
                                         : TAV_FSM_SaveDiagnoseInfo(&machine.ring, state, event);
            if (steps.back().state != state || steps.back().event != event) {
                steps.push_back({state, event, {2000, 1, 1}, {0, 0, 0, 0, g_clock}, 0});
            }
            ++steps.back().repeatCount;
            const size_t first = steps.size() > 10 ? steps.size() - 9 : 1, room = step % 2 * 100 + 100;
            const size_t length = std::min(20 * (steps.size() - first), room);
            char text[200];
            ASSERT_EQ(TAV_FSM_DumpDiagnoseInfo(&machine, copy, text, uint32_t(room)), length);
            EXPECT_EQ(memcmp(text, steps.data() + first, length), 0) << step;
        }
    }
}

TEST(StateMachine, ARingThatNobodyHasSetUpStaysAsItIs) {
    const auto fill = [](auto, auto, uint32_t size) { return size; };
    const std::pair<uint16_t, uint16_t> cases[] = {{0, 10}, {10, 0}, {0xFFFF, 0xFFFF}, {60000, 5}};
    for (const auto &[oldest, next] : cases) {
        TAV_FSM machine{};
        machine.ring.oldest = oldest;
        machine.ring.next = next;
        const TAV_FSM before = machine;
        char text[8];
        TAV_FSM_SaveDiagnoseInfo(&machine.ring, 1, 1);
        EXPECT_EQ(memcmp(&machine, &before, sizeof(machine)), 0) << oldest << ' ' << next;
        EXPECT_EQ(TAV_FSM_DumpDiagnoseInfo(&machine, fill, text, sizeof(text)), 0u) << oldest << ' ' << next;
    }
}

TEST(StateMachine, ActionMayRunTheSameMachine) {
    TAV_FSM machine;
    const auto runsIt = [](auto, auto, auto arg, auto) {
        return TAV_FSM_Run(reinterpret_cast<TAV_FSM *>(arg), 2, 0) == 0 ? TAV_FSM_FIRST : 0u;
    };
    const TAV_FSM_Transition table[] = {{0, 1, runsIt, {0, 5}, {}}, {0, 2, nullptr, {0, 3}, {}}};
    TAV_FSM_Init(&machine, 0, table, 2, 0);
    EXPECT_EQ(TAV_FSM_Run(&machine, 1, reinterpret_cast<uintptr_t>(&machine)), 0u);
    EXPECT_EQ(machine.state, 5);
    std::vector<std::pair<int, int>> steps;
    for (int index = 1; index < machine.ring.next; ++index) {
        steps.emplace_back(machine.ring.records[index].state, machine.ring.records[index].event);
    }
    EXPECT_EQ(steps, (std::vector<std::pair<int, int>>{{0, 2}, {0, 1}}));
}

TEST(StateMachine, FormattersCannotLeadOutOfTheBuffer) {
    TAV_FSM machine;
    TAV_FSM_Init(&machine, 0, nullptr, 0, 0);
    TAV_FSM_SaveDiagnoseInfo(&machine.ring, 1, 1);
    const struct {
        TAV_FSM_Formatter formatter;
        uint32_t room, written;
    } cases[] = {{[](auto, char *, uint32_t) { return uint32_t{100}; }, 7, 7},
                 {[](auto, char *, uint32_t size) { return size + 1; }, 7, 7},
                 {[](auto, char *, uint32_t size) { return size; }, 7, 7},
                 {[](auto, char *, uint32_t) { return UINT32_MAX; }, 7, 0},
                 {[](auto, char *, uint32_t) { return uint32_t{1} << 31; }, 7, 0},
                 {[](auto, char *, uint32_t) { return uint32_t{3}; }, 7, 6}};
    for (const auto &each : cases) {
        char text[8] = {};
        EXPECT_EQ(TAV_FSM_DumpDiagnoseInfo(&machine, each.formatter, text, each.room), each.written) << &each - cases;
    }
}
