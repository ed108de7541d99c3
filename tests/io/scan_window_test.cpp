#include "io/scan_window.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "support/watched_source.h"

namespace vex::test {
namespace {

constexpr std::size_t kBlock = 16;
constexpr std::int64_t kSize = 1000;

// No two bytes in a row repeat within a block, so that a byte from a wrong place shows.
std::uint8_t ByteAt(std::int64_t position) { return static_cast<std::uint8_t>(position * 7 + position / 256); }

struct GScene {
    explicit GScene(std::size_t block = kBlock, std::int64_t size = kSize)
    {
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = ByteAt(static_cast<std::int64_t>(i));
        source = std::make_unique<GWatchedSource>(OpenInMemory(std::move(bytes)), watch);
        window = std::make_unique<GScanWindow>(*source, &stop, block);
    }
    // Whether `count` bytes come from `position`, and are the right ones.
    bool Gives(std::int64_t position, std::size_t asked, std::size_t count)
    {
        const GBytes bytes = window->At(position, asked);
        bool right = bytes.size() == count;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            right = right && bytes[i] == ByteAt(position + static_cast<std::int64_t>(i));
        return right;
    }
    // All positions that a search looks at. Checks the bytes that it is shown there.
    std::vector<std::int64_t> Visited(bool forward, std::int64_t from, std::int64_t until, std::size_t width)
    {
        std::vector<std::int64_t> positions;
        std::int64_t at = forward ? std::max<std::int64_t>(from, 0) : std::min(until, source->GetSize()) - 1;
        const auto look = [&](GBytes bytes) {
            while (bytes[0] != ByteAt(at) && at >= 0 && at < kSize)  // what cannot be read is passed over
                at += forward ? 1 : -1;
            const auto there = std::min<std::int64_t>(static_cast<std::int64_t>(width), source->GetSize() - at);
            EXPECT_TRUE(bytes.size() == static_cast<std::size_t>(there) || watch.failFrom < kSize) << at;
            for (std::size_t i = 0; i < bytes.size(); ++i)
                EXPECT_EQ(bytes[i], ByteAt(at + static_cast<std::int64_t>(i)));
            positions.push_back(at);
            at += forward ? 1 : -1;
            return false;
        };
        const GScanResult result =
            forward ? window->FindForward(from, until, width, look) : window->FindBackward(from, until, width, look);
        EXPECT_EQ(result.end, GScanEnd::NotFound);
        return positions;
    }

    GSourceWatch watch;
    std::atomic<bool> stop{false};
    std::unique_ptr<GWatchedSource> source;
    std::unique_ptr<GScanWindow> window;
};

std::vector<std::int64_t> Range(std::int64_t from, std::int64_t until, bool forward)
{
    std::vector<std::int64_t> positions(static_cast<std::size_t>(until - from));
    std::iota(positions.begin(), positions.end(), from);
    if (!forward)
        std::ranges::reverse(positions);
    return positions;
}

TEST(ScanWindowBytes, AreThoseOfTheFileInWhateverOrderTheyAreAskedFor)
{
    GScene scene;
    struct {
        std::int64_t position;
        std::size_t asked;
        std::size_t given;
    } const steps[]{
        {0, 8, 8},    {9, 8, 8},    {5, 8, 8},  {500, 3, 3}, {498, 3, 3}, {496, 8, 8}, {996, 8, 4}, {999, 8, 1},
        {1000, 8, 0}, {2000, 8, 0}, {-1, 8, 0}, {990, 8, 8}, {0, 8, 8},   {3, 0, 0},   {7, 100, 8}, {994, 8, 6},
    };
    for (const auto& step : steps)
        EXPECT_TRUE(scene.Gives(step.position, step.asked, step.given)) << step.position << " of " << step.asked;
}

TEST(ScanWindowSearch, SeesEveryPositionOnceAndReadsWhatItPasses)
{
    struct {
        std::int64_t from;
        std::int64_t until;
        std::size_t width;
    } const searches[]{{0, kSize, 1},  {0, kSize, 4},    {0, kSize, 8}, {3, 700, 4},           {-5, 40, 3},
                       {990, 2000, 4}, {kSize, 2000, 4}, {15, 17, 2},   {kSize - 1, kSize, 8}, {16, 16, 4}};
    for (const auto& search : searches) {
        for (const bool forward : {true, false}) {
            GScene scene;
            const std::int64_t from = std::max<std::int64_t>(search.from, 0);
            const std::int64_t until = std::max(from, std::min(search.until, kSize));
            EXPECT_EQ(scene.Visited(forward, search.from, search.until, search.width), Range(from, until, forward))
                << search.from << " to " << search.until << (forward ? " forward" : " backward");
            EXPECT_LE(scene.watch.bytes, static_cast<std::uint64_t>(until - from) + kBlock);
        }
    }
}

TEST(ScanWindowSearch, EndsAtTheNextBlockWhenItIsInterrupted)
{
    for (const bool forward : {true, false}) {
        GScene scene;
        int seen = 0;
        const auto look = [&](GBytes) {
            if (++seen == 20)
                scene.stop = true;
            return false;
        };
        const GScanResult result =
            forward ? scene.window->FindForward(0, kSize, 4, look) : scene.window->FindBackward(0, kSize, 4, look);
        EXPECT_EQ(result.end, GScanEnd::Interrupted);
        EXPECT_LE(scene.watch.bytes, 3 * kBlock);
        scene.stop = false;
        EXPECT_EQ(scene.Visited(forward, 0, kSize, 4).size(), static_cast<std::size_t>(kSize));
    }
}

// A read fails as a whole, however little of it is out of reach.
TEST(ScanWindowFailingReads, CostOnlyWhatCannotBeRead)
{
    constexpr std::size_t kLarge = 64u << 10;
    constexpr std::int64_t kGapStart = 100'000;
    constexpr std::int64_t kGapEnd = 104'096;
    constexpr std::int64_t kLost = kGapEnd - kGapStart + 2 * 2048;  // small pieces, on either side
    for (const bool forward : {true, false}) {
        GScene scene(kLarge, 300'000);
        scene.watch.failFrom = kGapStart;
        scene.watch.failUntil = kGapEnd;
        std::int64_t passed = 0;
        const auto look = [&](GBytes bytes) { return ++passed < 0 || bytes.empty(); };
        const GScanResult result =
            forward ? scene.window->FindForward(0, 300'000, 4, look) : scene.window->FindBackward(0, 300'000, 4, look);
        EXPECT_EQ(result.end, GScanEnd::NotFound);
        EXPECT_GE(passed, 300'000 - kLost) << forward;
        EXPECT_LT(passed, 300'000) << forward;
        EXPECT_LE(scene.watch.bytes, 300'000u + 64 * kLarge)
            << forward << ": a block again for every small piece of one";
    }
}

TEST(ScanWindowFailingReads, ADiskThatGivesNothingEndsTheSearch)
{
    for (const bool forward : {true, false}) {
        GScene scene;
        scene.watch.failFrom = 0;
        EXPECT_TRUE(scene.Visited(forward, 0, kSize, 4).empty());
        EXPECT_TRUE(scene.Gives(10, 4, 0));
        scene.watch.failFrom = kSize;
        EXPECT_TRUE(scene.Gives(10, 4, 4)) << "it works again";
    }
}

}  // namespace
}  // namespace vex::test
