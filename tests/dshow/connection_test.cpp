// Two pins agree on a type and an allocator, or do not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/limited_allocator.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

const CMediaType kVideo = VideoStream(0).mediaTypes.front();
const CMediaType kAudio = AudioStream(0).mediaTypes.front();

// A stream that comes as video or, if need be, as audio.
GScript TwoTypes()
{
    GScript script = Movie(3, false);
    script.streams[0].mediaTypes = {kVideo, kAudio};
    return script;
}

GUID ConnectedMajor(IPin* pin)
{
    AM_MEDIA_TYPE type{};
    EXPECT_EQ(pin->ConnectionMediaType(&type), S_OK);
    FreeMediaType(type);
    return type.majortype;
}

}  // namespace

TEST(Connection, IsSeenFromOurEndStaysWhileTheFilterRunsAndEndsOnce)
{
    GRig rig(Movie(3));
    AM_MEDIA_TYPE type{};
    GComPtr<IPin> peer;
    EXPECT_EQ(rig.Pin(0)->ConnectedTo(peer.Put()), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(rig.Pin(0)->ConnectionMediaType(&type), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(type.pbFormat, nullptr);
    EXPECT_EQ(rig.Pin(0)->Disconnect(), S_FALSE);

    rig.Connect(0);
    EXPECT_EQ(rig.Pin(0)->ConnectedTo(peer.Put()), S_OK);
    EXPECT_EQ(peer.Get(), &rig.Sink(0));
    peer.Reset();
    ASSERT_EQ(rig.Pin(0)->ConnectionMediaType(&type), S_OK);
    EXPECT_TRUE(kVideo.Matches(type));
    FreeMediaType(type);
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(1), nullptr), VFW_E_ALREADY_CONNECTED);
    ASSERT_EQ(rig.Filter()->Pause(), S_OK);
    EXPECT_EQ(rig.Pin(0)->Disconnect(), VFW_E_NOT_STOPPED);
    EXPECT_EQ(rig.Pin(1)->Connect(&rig.Sink(1), nullptr), VFW_E_NOT_STOPPED);
    ASSERT_EQ(rig.Filter()->Stop(), S_OK);
    rig.Disconnect(0);
    EXPECT_EQ(rig.Pin(0)->Disconnect(), S_FALSE);
    EXPECT_EQ(rig.Sink(0).References(), 1u) << "the pin still holds its old peer";
    EXPECT_EQ(rig.Pin(0)->ConnectedTo(nullptr), E_POINTER);
    EXPECT_EQ(rig.Pin(0)->ConnectionMediaType(nullptr), E_POINTER);
    EXPECT_EQ(rig.Pin(0)->Connect(nullptr, nullptr), E_POINTER);
}

TEST(Connection, RefusesPeersThatCannotTakeSamplesAndTakesItAllBack)
{
    GRig rig(Movie(3));
    CRecordingSink& sink = rig.Sink(0);
    sink.direction = PINDIR_OUTPUT;
    EXPECT_EQ(rig.Pin(0)->Connect(&sink, nullptr), VFW_E_INVALID_DIRECTION);
    sink.direction = PINDIR_INPUT;
    sink.takesSamples = false;
    EXPECT_EQ(rig.Pin(0)->Connect(&sink, nullptr), VFW_E_NO_TRANSPORT);
    sink.takesSamples = true;
    sink.onAllocator = [](IMemAllocator*, BOOL) { return VFW_E_NO_ALLOCATOR; };
    EXPECT_EQ(rig.Pin(0)->Connect(&sink, nullptr), VFW_E_NO_ALLOCATOR);
    EXPECT_EQ(sink.References(), 1u);
    EXPECT_EQ(rig.Pin(0)->ReceiveConnection(&sink, nullptr), E_UNEXPECTED) << "an output pin connects by itself";
    sink.onAllocator = {};
    rig.Connect(0);
}

TEST(Connection, TriesThePeersTypesAndThenItsOwnInOrder)
{
    GRig rig(TwoTypes());
    GRig likesAudio(Movie(1));
    std::vector<GUID> asked;
    rig.Sink(0).accepts = [&](const AM_MEDIA_TYPE& type) {
        asked.push_back(type.majortype);
        return type.majortype == MEDIATYPE_Audio;
    };
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), nullptr), S_OK);
    EXPECT_THAT(asked, testing::ElementsAre(MEDIATYPE_Video, MEDIATYPE_Audio));
    rig.Disconnect(0);

    rig.Sink(0).likes = likesAudio.Pin(1);
    asked.clear();
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), nullptr), S_OK);
    EXPECT_THAT(asked, testing::ElementsAre(MEDIATYPE_Audio)) << "what the peer asks for comes first";
    rig.Disconnect(0);

    rig.Sink(0).accepts = [](const AM_MEDIA_TYPE&) { return false; };
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), nullptr), VFW_E_NO_ACCEPTABLE_TYPES);
    GComPtr<IPin> peer;
    EXPECT_EQ(rig.Pin(0)->ConnectedTo(peer.Put()), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(rig.Sink(0).References(), 1u);
}

TEST(Connection, ACompleteTypeIsTheOnlyOneAndAPartialOneChooses)
{
    GRig rig(TwoTypes());
    CMediaType foreign = kAudio;
    foreign.pbFormat[0] ^= 1;
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), &foreign), VFW_E_TYPE_NOT_ACCEPTED);
    EXPECT_EQ(rig.Pin(0)->QueryAccept(&foreign), S_FALSE);
    EXPECT_EQ(rig.Pin(0)->QueryAccept(&kAudio), S_OK);

    CMediaType partial;
    partial.majortype = MEDIATYPE_Audio;
    for (const CMediaType* wanted : {&kAudio, &std::as_const(partial)}) {
        ASSERT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), wanted), S_OK);
        EXPECT_EQ(ConnectedMajor(rig.Pin(0)), MEDIATYPE_Audio);
        rig.Disconnect(0);
    }
    partial.majortype = MEDIATYPE_Text;
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), &partial), VFW_E_NO_ACCEPTABLE_TYPES);
}

TEST(Allocators, ThePeersIsTakenWithItsWishes)
{
    GRig rig(Movie(3));
    rig.Sink(0).offered = GComPtr<IMemAllocator>(new CMemAllocator);
    rig.Sink(0).requirements = {5, 10, 16, 8};
    BOOL saidReadOnly = TRUE;
    rig.Sink(0).onAllocator = [&](IMemAllocator*, BOOL readOnly) {
        saidReadOnly = readOnly;
        return S_OK;
    };
    rig.PlayToEnd();
    EXPECT_EQ(rig.Sink(0).Allocator().Get(), rig.Sink(0).offered.Get());
    EXPECT_EQ(saidReadOnly, FALSE) << "the peer may change samples in place";
    ALLOCATOR_PROPERTIES agreed{};
    rig.Sink(0).Allocator()->GetProperties(&agreed);
    EXPECT_EQ(agreed.cBuffers, 1) << "flow control is the queue's";
    EXPECT_EQ(agreed.cbBuffer, 640 * 480);
    EXPECT_EQ(agreed.cbAlign, 16);
    EXPECT_EQ(agreed.cbPrefix, 8);
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 3u);
}

TEST(Allocators, OursIsTakenWhenThePeersGrantsTooLittleOrIsNotWanted)
{
    for (const LONG granted : {640 * 480 - 1, 640 * 480}) {
        GRig rig(Movie(3));
        auto* const unwanted = new CLimitedAllocator(granted);
        rig.Sink(0).offered = GComPtr<IMemAllocator>::Adopt(unwanted);
        rig.Sink(0).onAllocator = [&](IMemAllocator* asked, BOOL) { return asked == unwanted ? E_FAIL : S_OK; };
        rig.PlayToEnd();
        EXPECT_TRUE(rig.Sink(0).Allocator());
        EXPECT_NE(rig.Sink(0).Allocator().Get(), unwanted);
        EXPECT_EQ(unwanted->References(), 1u);
    }
}

// width x height without the bytes of a pixel. The height of a top-down bitmap is negative.
TEST(BufferSizes, FollowFormatSampleSizeAndFloor)
{
    GStreamInfo largeAudio = AudioStream(0);
    largeAudio.mediaTypes.front().SetSampleSize(100'000);
    GStreamInfo strangeVideo = VideoStream(0);
    strangeVideo.mediaTypes.front().formattype = FORMAT_WaveFormatEx;
    const struct {
        GStreamInfo stream;
        LONG bytes;
    } kCases[] = {
        {VideoStream(0, 640, 480), 307'200},
        {VideoStream(0, 640, 480, 1'000'000), 1'000'000},
        {VideoStream(0, 320, -240), 76'800},
        {VideoStream(0, 1, INT32_MIN), 64 << 20},
        {AudioStream(0), 57'344},
        {largeAudio, 100'000},
        {strangeVideo, 524'288},
    };
    for (const auto& one : kCases) {
        GScript script;
        script.streams = {one.stream};
        GRig rig(std::move(script));
        rig.Connect(0);
        ALLOCATOR_PROPERTIES agreed{};
        rig.Sink(0).Allocator()->GetProperties(&agreed);
        EXPECT_EQ(agreed.cbBuffer, one.bytes);
    }
}

}  // namespace vex::test
