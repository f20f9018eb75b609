// One call of the machine fails, on every road, for every call in turn until a send makes no more:
// the result is a documented one, nothing is left behind, and what counts as sent is whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/fault.hpp"
#include "support/roads.hpp"

namespace {

using namespace support;
using fault::Mode;

struct FaultLoop : testing::TestWithParam<Road> {
    // Runs until no call is left to be hit. `judge` sees the outcome of each run.
    template <class Judge>
    void each_call(Mode mode, Judge judge) {
        Journey reference(GetParam());
        fault::clear();
        ASSERT_GE(reference.run().result, 0);
        for (int n = 1;; ++n) {
            Journey journey(GetParam());
            fault::fail_nth(n, mode);
            const Outcome outcome = journey.run();
            if (!fault::was_hit()) {
                EXPECT_GT(n, 10);
                return;
            }
            SCOPED_TRACE("call " + std::to_string(n) + ", " + fault::last_hit());
            judge(outcome);
            expect_nothing_left(outcome);
            if (outcome.result >= 0) {
                EXPECT_EQ(journey.message(), reference.message());
            }
        }
    }

    static void expect_nothing_left(const Outcome& outcome) {
        EXPECT_EQ(outcome.heap_blocks, 0);
        EXPECT_EQ(outcome.descriptors, 0);
        if (fault::last_hit() != "unlink") {
            EXPECT_TRUE(outcome.is_clean());
        }
        for (const auto& name : outcome.trash) {
            std::filesystem::remove(std::string(kWorkDir) + "/" + name);
        }
    }

    static bool is_hit(std::initializer_list<const char*> functions) {
        return std::ranges::find(functions, fault::last_hit()) != functions.end();
    }

    void SetUp() override { set_logs(20, 1); }
};

TEST_P(FaultLoop, FailedCallGivesADocumentedResult) {
    constexpr std::int32_t kDocumented[] = {
        MAIL_SENT,         MAIL_SENT_UNAUTHENTICATED, MAIL_E_MEMORY,  MAIL_E_WORK_FILE,
        MAIL_E_SYSTEM,     MAIL_E_ATTACHMENT,         MAIL_E_CONNECT, MAIL_E_POP_SYSTEM,
        MAIL_E_POP_CONNECT};
    each_call(Mode::kFail, [&](const Outcome& outcome) {
        // A lost reply to RSET decides nothing, but the next command gets it.
        const bool out_of_step = GetParam() == kPartial && outcome.result == MAIL_E_REJECTED;
        EXPECT_TRUE(out_of_step ||
                    std::ranges::find(kDocumented, outcome.result) != std::end(kDocumented))
            << outcome.result;
    });
}

TEST_P(FaultLoop, InterruptedCallIsRepeated) {
    each_call(Mode::kInterrupt, [&](const Outcome& outcome) {
        const bool is_repeated =
            is_hit({"read", "write", "open", "close", "unlink", "send", "recv", "poll", "select"});
        EXPECT_TRUE(outcome.result >= 0 || !is_repeated) << outcome.result;
    });
}

TEST_P(FaultLoop, HalfDoneCallIsCompletedOrAFullDisk) {
    each_call(Mode::kHalf, [&](const Outcome& outcome) {
        const bool disk_full = outcome.result == MAIL_E_WORK_FILE && is_hit({"write"});
        EXPECT_TRUE(outcome.result >= 0 || disk_full) << outcome.result;
    });
}

INSTANTIATE_TEST_SUITE_P(Roads, FaultLoop, testing::ValuesIn(kAllRoads), [](const auto& road) {
    std::string name = name_of(road.param);
    std::erase(name, ' ');
    return name;
});

}  // namespace
