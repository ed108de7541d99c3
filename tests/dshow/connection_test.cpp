// Two pins agree on a type and an allocator, or do not.
#include <gtest/gtest.h>

#include "dshow/media_sample.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

// An allocator that grants less than it is asked for.
class CMeanAllocator final : public IMemAllocator {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* request, ALLOCATOR_PROPERTIES* actual) override
    {
        *actual = *request;
        actual->cbBuffer = request->cbBuffer - 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Commit() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Decommit() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample**, REFERENCE_TIME*, REFERENCE_TIME*, DWORD) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample*) override { return E_NOTIMPL; }

    std::atomic<ULONG> references{1};
};

}  // namespace

TEST(Connection, IsSeenFromBothEndsAndEndsOnce)
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
    EXPECT_TRUE(VideoStream(0).mediaTypes.front().Matches(type));
    FreeMediaType(type);
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(1), nullptr), VFW_E_ALREADY_CONNECTED);
    EXPECT_EQ(rig.Pin(0)->Disconnect(), S_OK);
    EXPECT_EQ(rig.Pin(0)->Disconnect(), S_FALSE);
    rig.Sink(0).Disconnect();
    EXPECT_EQ(rig.Sink(0).References(), 1u) << "the pin still holds its old peer";
    EXPECT_EQ(rig.Pin(0)->ConnectedTo(nullptr), E_POINTER);
    EXPECT_EQ(rig.Pin(0)->ConnectionMediaType(nullptr), E_POINTER);
    EXPECT_EQ(rig.Pin(0)->Connect(nullptr, nullptr), E_POINTER);
}

TEST(Connection, StaysAsItIsWhileTheFilterRuns)
{
    GRig rig(Movie(3));
    rig.Connect(0);
    ASSERT_EQ(rig.Filter()->Pause(), S_OK);
    EXPECT_EQ(rig.Pin(0)->Disconnect(), VFW_E_NOT_STOPPED);
    EXPECT_EQ(rig.Pin(1)->Connect(&rig.Sink(1), nullptr), VFW_E_NOT_STOPPED);
    ASSERT_EQ(rig.Filter()->Stop(), S_OK);
    EXPECT_EQ(rig.Pin(0)->Disconnect(), S_OK);
}

TEST(Connection, RefusesPeersThatCannotTakeSamples)
{
    GRig rig(Movie(3));
    rig.Sink(0).direction = PINDIR_OUTPUT;
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), nullptr), VFW_E_INVALID_DIRECTION);
    rig.Sink(0).direction = PINDIR_INPUT;
    rig.Sink(0).takesSamples = false;
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), nullptr), VFW_E_NO_TRANSPORT);
    EXPECT_EQ(rig.Sink(0).References(), 1u);
    EXPECT_EQ(rig.Pin(0)->ReceiveConnection(&rig.Sink(0), nullptr), E_UNEXPECTED) << "an output pin connects by itself";
}

TEST(Connection, AsksForTheTypesInOrderAndThenForThePeersOwn)
{
    GScript script = Movie(3, false);
    const CMediaType first = script.streams[0].mediaTypes.front();
    const CMediaType second = AudioStream(0).mediaTypes.front();
    script.streams[0].mediaTypes.push_back(second);
    GRig rig(std::move(script));
    std::vector<GUID> asked;
    rig.Sink(0).accepts = [&](const AM_MEDIA_TYPE& type) {
        asked.push_back(type.majortype);
        return type.majortype == MEDIATYPE_Audio;
    };
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), nullptr), S_OK);
    EXPECT_EQ(asked, (std::vector<GUID>{MEDIATYPE_Video, MEDIATYPE_Audio}));
    rig.Pin(0)->Disconnect();
    rig.Sink(0).Disconnect();

    rig.Sink(0).accepts = [](const AM_MEDIA_TYPE&) { return false; };
    rig.Sink(0).ownTypes = {first};
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), nullptr), VFW_E_NO_ACCEPTABLE_TYPES);
    GComPtr<IPin> peer;
    EXPECT_EQ(rig.Pin(0)->ConnectedTo(peer.Put()), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(rig.Sink(0).References(), 1u);
}

TEST(Connection, ACompleteTypeIsTheOnlyOneAndAPartialOneChooses)
{
    GScript script = Movie(3, false);
    script.streams[0].mediaTypes.push_back(AudioStream(0).mediaTypes.front());
    GRig rig(std::move(script));
    const CMediaType audio = AudioStream(0).mediaTypes.front();
    CMediaType foreign = audio;
    foreign.pbFormat[0] ^= 1;
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), &foreign), VFW_E_TYPE_NOT_ACCEPTED);

    const auto connectedMajor = [&] {
        AM_MEDIA_TYPE type{};
        rig.Pin(0)->ConnectionMediaType(&type);
        FreeMediaType(type);
        return type.majortype;
    };
    ASSERT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), &audio), S_OK);
    EXPECT_EQ(connectedMajor(), MEDIATYPE_Audio);
    rig.Pin(0)->Disconnect();
    rig.Sink(0).Disconnect();
    CMediaType partial;
    partial.majortype = MEDIATYPE_Audio;
    ASSERT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), &partial), S_OK);
    EXPECT_EQ(connectedMajor(), MEDIATYPE_Audio);
    rig.Pin(0)->Disconnect();
    rig.Sink(0).Disconnect();
    partial.majortype = MEDIATYPE_Text;
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), &partial), VFW_E_NO_ACCEPTABLE_TYPES);
}

TEST(Allocators, ThePeersIsTakenWithItsWishes)
{
    GRig rig(Movie(3));
    const GComPtr<CMemAllocator> theirs(new CMemAllocator);
    rig.Sink(0).offered = GComPtr<IMemAllocator>(theirs.Get());
    rig.Sink(0).requirements = {5, 10, 16, 8};
    BOOL saidReadOnly = TRUE;
    rig.Sink(0).onAllocator = [&](IMemAllocator*, BOOL readOnly) {
        saidReadOnly = readOnly;
        return S_OK;
    };
    rig.Connect(0);
    EXPECT_EQ(rig.Sink(0).Allocator().Get(), theirs.Get());
    EXPECT_EQ(saidReadOnly, FALSE) << "the peer may change samples in place";
    ALLOCATOR_PROPERTIES agreed{};
    theirs->GetProperties(&agreed);
    EXPECT_EQ(agreed.cBuffers, 1) << "flow control is the queue's";
    EXPECT_EQ(agreed.cbBuffer, 640 * 480);
    EXPECT_EQ(agreed.cbAlign, 16);
    EXPECT_EQ(agreed.cbPrefix, 8);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 3u);
}

TEST(Allocators, OursIsTakenWhenThePeersGrantsTooLittleOrIsNotWanted)
{
    CMeanAllocator mean;
    for (const bool refused : {false, true}) {
        GRig rig(Movie(3));
        const GComPtr<CMemAllocator> fine(new CMemAllocator);
        rig.Sink(0).offered = GComPtr<IMemAllocator>(refused ? static_cast<IMemAllocator*>(fine.Get()) : &mean);
        IMemAllocator* const unwanted = rig.Sink(0).offered.Get();
        rig.Sink(0).onAllocator = [&](IMemAllocator* asked, BOOL) { return asked == unwanted ? E_FAIL : S_OK; };
        rig.Connect(0);
        EXPECT_TRUE(rig.Sink(0).Allocator());
        EXPECT_NE(rig.Sink(0).Allocator().Get(), unwanted);
        ASSERT_EQ(rig.Filter()->Run(0), S_OK);
        rig.Sink(0).WaitForEnd();
    }
    EXPECT_EQ(mean.references, 1u);
}

TEST(Allocators, APeerThatWantsNoneIsNotConnected)
{
    GRig rig(Movie(3));
    rig.Sink(0).onAllocator = [](IMemAllocator*, BOOL) { return VFW_E_NO_ALLOCATOR; };
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), nullptr), VFW_E_NO_ALLOCATOR);
    EXPECT_EQ(rig.Sink(0).References(), 1u) << "the failed connection has to be taken back";
    rig.Sink(0).onAllocator = {};
    EXPECT_EQ(rig.Pin(0)->Connect(&rig.Sink(0), nullptr), S_OK);
}

// width x height counts as it stands, without the bytes of a pixel; a negative height is a large number, and no reason for
// a huge allocation.
TEST(BufferSizes, FollowFormatSampleSizeAndFloor)
{
    GStreamInfo audio = AudioStream(0);
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
        {VideoStream(0, 320, -240), 64 << 20},
        {audio, 57'344},
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
