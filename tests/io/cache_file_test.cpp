#include "io/cache_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include "support/temp_file.h"

namespace vex::test {
namespace {

using GBytes = std::vector<std::uint8_t>;
using GOsReads = std::vector<std::pair<std::int64_t, std::int64_t>>;  // position and count, bytes

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

// No stretch of it repeats within a cache, so that a byte from a wrong place shows.
GBytes Pattern(std::size_t size, std::size_t start = 0)
{
    GBytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>((start + i) * 2654435761u >> 13);
    return bytes;
}

// Counts what reaches the system, and lets a test break it.
class GCountedFile : public GCacheFile {
public:
    using GCacheFile::GCacheFile;

    GBytes ReadBytes(std::uint32_t count)
    {
        GBytes bytes(count);
        bytes.resize(Read(bytes.data(), count));
        return bytes;
    }
    void ForgetCalls()
    {
        reads.clear();
        seeks = 0;
    }

    GOsReads reads;
    int seeks = 0;
    std::function<std::int64_t(std::int64_t)> breakSeek = [](std::int64_t reached) { return reached; };
    std::int64_t failReadsFrom = kNever;
    bool takesAhead = true;  // not every system does

protected:
    std::int64_t OsSeek(std::int64_t target) override
    {
        ++seeks;
        pointer = target;
        return breakSeek(GCacheFile::OsSeek(target));
    }
    std::int64_t OsRead(void* buffer, std::uint32_t count, std::span<std::uint8_t> ahead) override
    {
        reads.emplace_back(pointer, count);
        if (pointer < failReadsFrom)
            return GCacheFile::OsRead(buffer, count, takesAhead ? ahead : std::span<std::uint8_t>{});
        std::fill_n(static_cast<std::uint8_t*>(buffer), count / 2, std::uint8_t{0xEE});
        return count / 2;
    }

private:
    std::int64_t pointer = 0;
};

class CacheFile : public testing::Test {
protected:
    const GTempFile disk{Pattern(10'000)};
    GCountedFile file;

    void SetUp() override
    {
        ASSERT_EQ(file.Open(disk.Path()), 1);
        file.ForgetCalls();
    }
};

using CacheFileCalls = CacheFile;

TEST_F(CacheFileCalls, ALargeReadIsTwoDirectPiecesAndATailThatServesTheNextRead)
{
    EXPECT_EQ(file.ReadBytes(5'000), Pattern(5'000));
    EXPECT_EQ(file.reads, (GOsReads{{0, 2048}, {2048, 2048}, {4096, 2048}}));
    EXPECT_EQ(file.seeks, 3);

    file.ForgetCalls();
    EXPECT_EQ(file.ReadBytes(100), Pattern(100, 5'000));
    EXPECT_EQ(file.Seek(4'096), 4'096);
    EXPECT_EQ(file.ReadBytes(2'048), Pattern(2'048, 4'096)) << "a seek within the cached range keeps it";
    EXPECT_TRUE(file.reads.empty());
    EXPECT_EQ(file.seeks, 0);
}

TEST_F(CacheFileCalls, ADirectReadLeavesTheCacheAsItWas)
{
    file.Seek(1'000);
    file.ReadBytes(1'000);  // caches 1000 to 3048
    file.Seek(4'000);
    file.failReadsFrom = 6'048;
    EXPECT_TRUE(file.ReadBytes(6'000).empty()) << "one piece came directly, the next failed";
    file.ForgetCalls();
    file.Seek(1'000);
    EXPECT_EQ(file.ReadBytes(2'048), Pattern(2'048, 1'000));
    EXPECT_TRUE(file.reads.empty());
}

TEST_F(CacheFileCalls, APayloadTakesWhatIsCachedAndTheRestInOneSystemRead)
{
    GBytes bytes(8'000);
    for (const bool ahead : {false, true}) {
        file.takesAhead = ahead;
        file.Seek(0);
        file.ForgetCalls();
        file.ReadBytes(1'000);
        ASSERT_EQ(file.ReadBulk(bytes.data(), 6'500), 6'500u);
        EXPECT_TRUE(std::ranges::equal(std::span(bytes).first(6'500), Pattern(6'500, 1'000)));
        EXPECT_EQ(file.Tell(), 7'500);
        EXPECT_EQ(file.ReadBytes(20), Pattern(20, 7'500)) << "the next header";
        EXPECT_EQ(file.ReadBulk(bytes.data(), 8'000), 2'480u) << "to the end of the file";
        EXPECT_TRUE(std::ranges::equal(std::span(bytes).first(2'480), Pattern(2'480, 7'520)));
        const GOsReads one = {{0, 2048}, {2048, 5452}, {9548, 452}};
        const GOsReads two = {{0, 2048}, {2048, 5452}, {7500, 2048}, {9548, 452}};
        EXPECT_EQ(file.reads, ahead ? one : two);
    }
    file.Seek(2'500);
    file.failReadsFrom = 2'500;
    EXPECT_EQ(file.ReadBulk(bytes.data(), 4'000), 0u);
    EXPECT_EQ(file.ReadBulk(nullptr, 10), 0u);
    EXPECT_EQ(file.Tell(), 2'500);
}

using CacheFileBounds = CacheFile;

TEST_F(CacheFileBounds, TheLargestCountDeliversWhatIsThereAndANullBufferNothing)
{
    file.Seek(4'000);
    GBytes rest(6'000);  // exactly as much as is left: one byte more would be seen by the sanitizer
    EXPECT_EQ(file.Read(rest.data(), 0xFFFFFFFFu), 6'000u);
    EXPECT_EQ(rest, Pattern(6'000, 4'000));
    EXPECT_EQ(file.Read(rest.data(), 0xFFFFFFFFu), 0u);

    file.Seek(9'900);
    EXPECT_EQ(file.Read(nullptr, 5), 0u) << "although the cache holds them";
    EXPECT_EQ(file.Read(nullptr, 0), 0u);
    EXPECT_EQ(file.Tell(), 9'900);
}

TEST_F(CacheFileBounds, PositionsAndSizesBeyondFourGiBKeepTheirHighWords)
{
    constexpr std::int64_t kFarSize = (std::int64_t{5} << 30) + 3;
    disk.Resize(kFarSize - 3);
    disk.Append(Pattern(3));
    EXPECT_EQ(file.GetSize(), kFarSize);
    EXPECT_EQ(file.Seek(kFarSize - 3), kFarSize - 3);
    EXPECT_EQ(file.ReadBytes(100), Pattern(3));
    EXPECT_EQ(file.Tell(), kFarSize);
}

TEST_F(CacheFileBounds, AFileThatShrinksEndsEarlyAndGivesNoBytesThatAreNotThere)
{
    file.Seek(5'000);
    disk.Resize(6'000);
    EXPECT_TRUE(file.ReadBytes(4'000).empty()) << "the second piece is short";
    EXPECT_EQ(file.Seek(8'000), 8'000) << "still inside the size it knows";
    EXPECT_TRUE(file.ReadBytes(2'000).empty()) << "reaches the end, so the size is asked for";
    EXPECT_EQ(file.Tell(), 6'000);
    disk.Resize(0);
    EXPECT_EQ(file.GetSize(), 0);
    EXPECT_TRUE(file.ReadBytes(1).empty());
    EXPECT_EQ(file.Tell(), 0);
}

using CacheFileErrors = CacheFile;

TEST_F(CacheFileErrors, AShortSystemReadIsAFailureThatKeepsWhatCameBefore)
{
    file.failReadsFrom = 2'048;
    GBytes bytes(3'000, 0x55);
    EXPECT_EQ(file.Read(bytes.data(), 3'000), 0u);
    GBytes expected = Pattern(2'048);
    expected.resize(3'000, 0x55);
    EXPECT_EQ(bytes, expected);
    EXPECT_EQ(file.Tell(), 2'048);
}

TEST_F(CacheFileErrors, ACacheThatWasHalfOverwrittenIsNotServed)
{
    file.ReadBytes(100);
    file.failReadsFrom = 4'000;
    file.Seek(4'000);
    EXPECT_TRUE(file.ReadBytes(100).empty());
    file.Seek(0);
    EXPECT_EQ(file.ReadBytes(100), Pattern(100));
    file.failReadsFrom = kNever;
    file.Seek(4'000);
    EXPECT_EQ(file.ReadBytes(100), Pattern(100, 4'000)) << "and the source recovers";
}

TEST_F(CacheFileErrors, ASystemSeekThatLandsElsewhereIsAFailure)
{
    file.breakSeek = [](std::int64_t reached) { return reached + 1; };
    for (const std::uint32_t count : {100u, 5'000u}) {
        EXPECT_TRUE(file.ReadBytes(count).empty());
        EXPECT_TRUE(file.reads.empty());
        EXPECT_EQ(file.Tell(), 0);
    }
}

TEST_F(CacheFileErrors, NothingOfOneFileIsLeftForTheNextOrAfterAFailedOpen)
{
    file.ReadBytes(500);
    const std::string missing = std::string(disk.Path()) + ".missing";
    EXPECT_EQ(file.Open(missing.c_str()), 0);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_NE(file.OpenError().osError, 0u);
    EXPECT_TRUE(file.ReadBytes(10).empty()) << "not from the old file's cache either";
    EXPECT_EQ(file.GetSize(), 0);
    EXPECT_EQ(file.Seek(100), 0);

    const GTempFile other(Pattern(3'000, 77'777));
    ASSERT_EQ(file.Open(disk.Path()), 1);
    file.ReadBytes(500);
    ASSERT_EQ(file.Open(other.Path()), 1);
    EXPECT_EQ(file.Tell(), 0);
    EXPECT_EQ(file.ReadBytes(500), Pattern(500, 77'777));
    ASSERT_EQ(file.Open(file.Path()), 1) << "its own path, again";
    EXPECT_EQ(file.ReadBytes(500), Pattern(500, 77'777));
}

// Any sequence of operations reads what a plain array of the file's bytes would give, also while the file grows.
class CacheFileAgainstModel : public testing::TestWithParam<std::int64_t> {};

TEST_P(CacheFileAgainstModel, EveryReadDeliversTheFilesOwnBytes)
{
    std::mt19937 random(20240607);
    GBytes model = Pattern(5'000);
    const GTempFile disk(model);
    GCacheFile file(GetParam());
    ASSERT_EQ(file.Open(disk.Path()), 1);
    std::size_t position = 0;
    for (int step = 0; step < 2'000; ++step) {
        if (random() % 50 == 0) {
            const GBytes more = Pattern(random() % 700, model.size());
            disk.Append(more);
            model.insert(model.end(), more.begin(), more.end());
        }
        if (random() % 3 == 0) {
            const auto size = static_cast<std::int64_t>(model.size());
            const std::int64_t targets[] = {static_cast<std::int64_t>(random()) % (size + 700) - 200, kNever, -kNever};
            const std::int64_t target = targets[random() % 10 == 0 ? 1 + random() % 2 : 0];
            position = static_cast<std::size_t>(std::clamp<std::int64_t>(target, 0, size));
            ASSERT_EQ(file.Seek(target), static_cast<std::int64_t>(position));
        }
        const auto wanted = static_cast<std::uint32_t>(random() % (random() % 4 == 0 ? 6'000 : 40));
        GBytes got(wanted);
        got.resize(random() % 4 == 0 ? file.ReadBulk(got.data(), wanted) : file.Read(got.data(), wanted));
        const auto expected =
            std::span(model).subspan(position, std::min<std::size_t>(wanted, model.size() - position));
        ASSERT_TRUE(std::ranges::equal(got, expected)) << "step " << step << " at " << position;
        position += got.size();
        ASSERT_EQ(file.Tell(), static_cast<std::int64_t>(position));
    }
}

INSTANTIATE_TEST_SUITE_P(Capacities, CacheFileAgainstModel, testing::Values(-kNever, 0, 1, 7, 512, 2048, 100'000));

}  // namespace
}  // namespace vex::test
