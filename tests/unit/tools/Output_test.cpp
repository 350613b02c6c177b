#include "Output.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include "Progress.h"

namespace {

TEST(OutputTest, FloatsPrintAsShortAsTheyRead) {
    const std::pair<float, const char*> rows[] = {
        {29.97F, "29.97"}, {0.1F, "0.1"}, {24.0F, "24.0"}, {1.0F / 3.0F, "0.33333334"}, {1e-7F, "1e-07"}};
    for (const auto& [value, text] : rows) EXPECT_EQ(Json(shortest(value)).dump(), text);
}

// What a terminal shows of a transfer, read from the other end of a pipe.
class ProgressTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(pipe(ends_), 0);
        style_.stream = fdopen(ends_[1], "w");
        style_.terminal = true;
        style_.delay = std::chrono::milliseconds(0);
        style_.interval = std::chrono::milliseconds(1);
    }
    void TearDown() override { close(ends_[0]); }

    std::string shown() {
        fclose(style_.stream);
        std::string text;
        char piece[4096];
        for (ssize_t got; (got = read(ends_[0], piece, sizeof piece)) > 0;)
            text.append(piece, static_cast<std::size_t>(got));
        return text;
    }
    // Returns when something is to be read.
    void waitUntilShown() const {
        pollfd waiting{ends_[0], POLLIN, 0};
        ASSERT_EQ(poll(&waiting, 1, 30000), 1);
    }

    int ends_[2] = {-1, -1};
    ProgressStyle style_;
};

TEST_F(ProgressTest, ALongTransferShowsItsStepsAndWipesThem) {
    {
        Progress progress("importing 'x'", 12, "frames", style_);
        progress.advance(3);
        waitUntilShown();
    }
    const std::string text = shown();
    EXPECT_THAT(text, ::testing::ContainsRegex("importing 'x': [03] of 12 frames"));
    EXPECT_THAT(text, ::testing::EndsWith("\r\x1B[K"));
}

TEST_F(ProgressTest, AShortOneAndOneWithoutATerminalShowNothing) {
    for (const bool terminal : {true, false}) {
        style_.terminal = terminal;
        style_.delay = std::chrono::hours(terminal ? 1 : 0);
        const Progress unseen("unseen", 1, "frames", style_);
    }
    EXPECT_EQ(shown(), "");
}

}  // namespace
