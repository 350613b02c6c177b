#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "CoDeferral.h"

namespace Vantrel {
namespace {

using testing::ElementsAre;

class DeferralTest : public testing::Test {
  protected:
    void note(const std::string& text) {
        CoDeferral::callOut([this, text] { notes.push_back(text); });
    }

    std::vector<std::string> notes;
};

TEST_F(DeferralTest, KeepsCallsInOrderUntilTheOutermostEnds) {
    note("at once");
    EXPECT_THAT(notes, ElementsAre("at once"));
    {
        const CoDeferral outer;
        note("first");
        {
            const CoDeferral inner;
            note("second");
        }
        note("third");
        EXPECT_THAT(notes, ElementsAre("at once"));
        std::thread([this] { note("another thread's"); }).join();
        EXPECT_THAT(notes, ElementsAre("at once", "another thread's"));
    }
    EXPECT_THAT(notes, ElementsAre("at once", "another thread's", "first", "second", "third"));
}

TEST_F(DeferralTest, ACallMayDeferAndThrow) {
    {
        const CoDeferral outer;
        CoDeferral::callOut([this] {
            {
                const CoDeferral inner;
                note("from within");
                EXPECT_THAT(notes, ElementsAre());
            }
            EXPECT_THAT(notes, ElementsAre("from within"));
            throw std::runtime_error("the application's");
        });
        note("after it");
    }
    EXPECT_THAT(notes, ElementsAre("from within", "after it"));
}

}  // namespace
}  // namespace Vantrel
