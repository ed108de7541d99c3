#include <gtest/gtest.h>

#include <thread>

#include "dshow/media_sample.h"
#include "support/watchdog.h"

namespace vex::test {

namespace {

GComPtr<CMemAllocator> Allocator(LONG buffers, LONG bytes, LONG align = 1, LONG prefix = 0)
{
    GComPtr<CMemAllocator> allocator(new CMemAllocator);
    ALLOCATOR_PROPERTIES request{buffers, bytes, align, prefix};
    ALLOCATOR_PROPERTIES granted{};
    EXPECT_EQ(allocator->SetProperties(&request, &granted), S_OK);
    EXPECT_EQ(granted.cbBuffer, bytes);
    return allocator;
}

GComPtr<IMediaSample> Take(CMemAllocator& allocator, DWORD flags = 0)
{
    GComPtr<IMediaSample> sample;
    allocator.GetBuffer(sample.Put(), nullptr, nullptr, flags);
    return sample;
}

}  // namespace

TEST(Allocator, HandsOutAlignedBuffersBehindTheirPrefixesAndTakesThemBack)
{
    auto allocator = Allocator(3, 100, 64, 64);
    GComPtr<IMediaSample> sample;
    EXPECT_EQ(allocator->GetBuffer(sample.Put(), nullptr, nullptr, 0), VFW_E_NOT_COMMITTED);
    ASSERT_EQ(allocator->Commit(), S_OK);
    std::vector<GComPtr<IMediaSample>> samples;
    std::vector<BYTE*> buffers(3);
    for (int i = 0; i < 3; ++i) {
        samples.push_back(Take(*allocator));
        samples.back()->GetPointer(&buffers[static_cast<std::size_t>(i)]);
        BYTE* const bytes = buffers[static_cast<std::size_t>(i)];
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % 64, 0u);
        std::memset(bytes - 64, i, 164);
        EXPECT_EQ(samples.back()->GetSize(), 100);
    }
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(buffers[static_cast<std::size_t>(i)][-64] == i && buffers[static_cast<std::size_t>(i)][99] == i)
            << "the buffers overlap";
    EXPECT_EQ(allocator->GetBuffer(sample.Put(), nullptr, nullptr, CMemAllocator::kNoWait), VFW_E_TIMEOUT);
    samples.pop_back();
    EXPECT_TRUE(Take(*allocator, CMemAllocator::kNoWait));
    samples.clear();
    EXPECT_EQ(allocator->Decommit(), S_OK);
}

TEST(Allocator, AWaitForABufferEndsWithDecommitAndWithARelease)
{
    const GWatchdog watchdog("a wait for a buffer");
    auto allocator = Allocator(1, 100);
    ASSERT_EQ(allocator->Commit(), S_OK);
    auto held = Take(*allocator);
    std::thread given([&] { EXPECT_TRUE(Take(*allocator)); });
    held.Reset();
    given.join();

    held = Take(*allocator);
    std::thread refused([&] {
        GComPtr<IMediaSample> sample;
        EXPECT_EQ(allocator->GetBuffer(sample.Put(), nullptr, nullptr, 0), VFW_E_NOT_COMMITTED);
    });
    allocator->Decommit();
    refused.join();
}

TEST(Allocator, PropertiesStayWhileBuffersAreOut)
{
    auto allocator = Allocator(1, 100);
    ALLOCATOR_PROPERTIES request{1, 200, 1, 0};
    ALLOCATOR_PROPERTIES granted{};
    ASSERT_EQ(allocator->Commit(), S_OK);
    EXPECT_EQ(allocator->SetProperties(&request, &granted), VFW_E_ALREADY_COMMITTED);
    auto held = Take(*allocator);
    allocator->Decommit();
    EXPECT_EQ(allocator->SetProperties(&request, &granted), VFW_E_BUFFERS_OUTSTANDING);
    // Committed again with the sample still out: the memory is the old one, and there is no buffer to be had.
    ASSERT_EQ(allocator->Commit(), S_OK);
    EXPECT_FALSE(Take(*allocator, CMemAllocator::kNoWait));
    allocator->Decommit();
    held.Reset();
    EXPECT_EQ(allocator->SetProperties(&request, &granted), S_OK);
}

TEST(Allocator, RefusesAbsurdProperties)
{
    GComPtr<CMemAllocator> allocator(new CMemAllocator);
    ALLOCATOR_PROPERTIES granted{};
    const auto set = [&](ALLOCATOR_PROPERTIES request) { return allocator->SetProperties(&request, &granted); };
    EXPECT_EQ(set({-1, 1, 1, 0}), E_INVALIDARG);
    EXPECT_EQ(set({1, -1, 1, 0}), E_INVALIDARG);
    EXPECT_EQ(set({1, 1, 1, -1}), E_INVALIDARG);
    EXPECT_EQ(set({1, 1, 3, 0}), VFW_E_BADALIGN);
    EXPECT_EQ(allocator->SetProperties(nullptr, &granted), E_POINTER);
    EXPECT_EQ(allocator->Commit(), VFW_E_SIZENOTSET);
    // Sizes whose products leave 32 and 64 bits.
    constexpr LONG kMost = INT32_MAX;
    for (const ALLOCATOR_PROPERTIES& request : {ALLOCATOR_PROPERTIES{kMost, kMost, 1, kMost},
                                                {kMost, 1, 1, 0},
                                                {kMost, kMost, 1 << 30, kMost},
                                                {3, kMost, 1, 0}}) {
        ASSERT_EQ(set(request), S_OK);
        EXPECT_EQ(allocator->Commit(), E_OUTOFMEMORY);
        GComPtr<IMediaSample> sample;
        EXPECT_EQ(allocator->GetBuffer(sample.Put(), nullptr, nullptr, 0), VFW_E_NOT_COMMITTED);
    }
    EXPECT_EQ(set({1, 1, 1, 0}), S_OK) << "the allocator is still of use";
    EXPECT_EQ(allocator->Commit(), S_OK);
    allocator->Decommit();
}

TEST(Sample, ForgetsEverythingBetweenTwoUses)
{
    auto allocator = Allocator(1, 10);
    ASSERT_EQ(allocator->Commit(), S_OK);
    auto sample = Take(*allocator);
    REFERENCE_TIME start = 5;
    REFERENCE_TIME stop = 9;
    AM_MEDIA_TYPE* type = nullptr;
    EXPECT_EQ(sample->GetTime(&start, &stop), VFW_E_SAMPLE_TIME_NOT_SET);
    EXPECT_EQ(sample->SetTime(&start, nullptr), S_OK);
    EXPECT_EQ(sample->GetTime(&start, &stop), VFW_S_NO_STOP_TIME);
    EXPECT_EQ(stop, start + 1);
    start = INT64_MAX;
    sample->SetTime(&start, nullptr);
    EXPECT_EQ(sample->GetTime(&start, &stop), VFW_S_NO_STOP_TIME);
    EXPECT_EQ(stop, INT64_MAX);
    EXPECT_EQ(sample->SetMediaTime(&start, &stop), S_OK);
    EXPECT_EQ(sample->SetActualDataLength(11), VFW_E_BUFFER_OVERFLOW);
    EXPECT_EQ(sample->SetActualDataLength(-1), VFW_E_BUFFER_OVERFLOW);
    EXPECT_EQ(sample->SetActualDataLength(10), S_OK);
    CMediaType changed(MEDIATYPE_Video, MEDIATYPE_Video);
    EXPECT_EQ(sample->SetMediaType(&changed), S_OK);
    ASSERT_EQ(sample->GetMediaType(&type), S_OK);
    DeleteMediaType(type);
    sample->SetSyncPoint(TRUE);
    sample->SetPreroll(TRUE);
    sample->SetDiscontinuity(TRUE);
    sample.Reset();

    sample = Take(*allocator);
    EXPECT_EQ(sample->GetActualDataLength(), 0);
    EXPECT_EQ(sample->GetTime(&start, &stop), VFW_E_SAMPLE_TIME_NOT_SET);
    EXPECT_EQ(sample->GetMediaTime(&start, &stop), VFW_E_MEDIA_TIME_NOT_SET);
    EXPECT_EQ(sample->GetMediaType(&type), S_FALSE);
    EXPECT_EQ(sample->IsSyncPoint(), S_FALSE);
    EXPECT_EQ(sample->IsPreroll(), S_FALSE);
    EXPECT_EQ(sample->IsDiscontinuity(), S_FALSE);
    sample.Reset();
    allocator->Decommit();
}

}  // namespace vex::test
