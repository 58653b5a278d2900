#include "host/progress/progress.h"

#include <gtest/gtest.h>

namespace host {
namespace {

using namespace std::chrono_literals;
using Time = std::chrono::steady_clock::time_point;

TEST(TransferRate, SaysNothingBeforeTheFirstSampleIsFull) {
    TransferRate rate{Time{}};
    rate.update(1000, Time{} + 100ms);
    EXPECT_FALSE(rate.current());
    EXPECT_FALSE(rate.timeLeft(1000));
}

TEST(TransferRate, FollowsTheCurrentSpeedNotTheWholeTransfer) {
    TransferRate rate{Time{}};
    std::uint64_t bytes = 0;
    Time now{};
    for (int second = 0; second < 60; ++second)
        rate.update(bytes += 1000, now += 1s);
    EXPECT_NEAR(*rate.current(), 1000, 1);
    for (int second = 0; second < 30; ++second)
        rate.update(bytes += 100, now += 1s);
    EXPECT_LT(*rate.current(), 105);
    EXPECT_GT(rate.average(now), 600);
}

TEST(TransferRate, AHalfLifeHalvesTheOldRatesWeight) {
    TransferRate rate{Time{}};
    rate.update(1000, Time{} + 1s);
    rate.update(1000, Time{} + 1s + TransferRate::HalfLife);
    EXPECT_NEAR(*rate.current(), 500, 0.5);
}

TEST(TransferRate, AStalledTransferHasNoTimeLeft) {
    TransferRate rate{Time{}};
    rate.update(0, Time{} + 1s);
    EXPECT_FALSE(rate.timeLeft(5));
}

TEST(TransferRate, TimeLeftIsRoundedUp) {
    TransferRate rate{Time{}};
    rate.update(1000, Time{} + 1s);
    EXPECT_EQ(rate.timeLeft(1500), 2s);
}

class ProgressLines : public testing::Test {
protected:
    Progress make(bool terminal) {
        ProgressStyle style;
        style.terminal = terminal;
        style.columns = 60;
        return Progress(
            style, [this](std::string_view text) { written += text; }, [this] { return now; });
    }

    Time now{};
    std::string written;
};

TEST_F(ProgressLines, OffATerminalOneLineComesPerInterval) {
    Progress progress = make(false);
    progress.startTransfer("sending", 10, 10'000);
    for (int i = 1; i <= 25; ++i) {
        now += 1s;
        progress.transferred(static_cast<std::size_t>(i) / 3, static_cast<std::uint64_t>(i) * 100);
    }
    EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 2);
    EXPECT_EQ(written.find('\r'), std::string::npos);
    EXPECT_NE(written.find("of 10 files"), std::string::npos);
    EXPECT_NE(written.find("left"), std::string::npos);
}

TEST_F(ProgressLines, AShortRunOffATerminalSaysNothing) {
    Progress progress = make(false);
    progress.phase("reading");
    progress.startTransfer("sending", 1, 10);
    progress.transferred(1, 10);
    progress.finish();
    EXPECT_EQ(written, "");
}

TEST_F(ProgressLines, OnATerminalRedrawsAreCapped) {
    Progress progress = make(true);
    progress.startTransfer("sending", 1, 1000);
    written.clear();
    for (int i = 0; i < 1000; ++i) {
        now += 1ms;
        progress.transferred(0, static_cast<std::uint64_t>(i));
    }
    EXPECT_LE(std::count(written.begin(), written.end(), '\r'), 11);
}

TEST_F(ProgressLines, WithoutKnownBytesTheFilesTellTheTimeLeft) {
    Progress progress = make(true);
    progress.startTransfer("fetching", 4, 0);
    now += 10s;
    progress.transferred(1, 2048);
    EXPECT_NE(written.find("fetching: 1 of 4 files, 2.0 KiB"), std::string::npos) << written;
    EXPECT_NE(written.find("30 s left"), std::string::npos) << written;
}

TEST_F(ProgressLines, BytesAreCountedAsBytes) {
    Progress progress = make(true);
    progress.phase("fetching changes");
    now += 1s;
    progress.countBytes(2048, 4096);
    EXPECT_NE(written.find("fetching changes: 2.0 KiB of 4.0 KiB"), std::string::npos) << written;
}

TEST_F(ProgressLines, AMessageStandsAboveTheLine) {
    Progress progress = make(true);
    progress.phase("sending");
    written.clear();
    progress.message("hello");
    EXPECT_EQ(written, "\r\x1b[Khello\n");
}

TEST(ProgressText, SizesAndTimesAreReadable) {
    EXPECT_EQ(formatBytes(1023), "1023 B");
    EXPECT_EQ(formatBytes(1536), "1.5 KiB");
    EXPECT_EQ(formatBytes((1 << 20) - 1), "1.0 MiB");
    EXPECT_EQ(formatBytes(std::uint64_t{5} << 30), "5.0 GiB");
    EXPECT_EQ(formatDuration(59s), "59 s");
    EXPECT_EQ(formatDuration(185s), "3 min 05 s");
    EXPECT_EQ(formatDuration(7620s), "2 h 07 min");
}

}  // namespace
}  // namespace host
