#include "support/scripted_filter.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vex::test {

namespace {

constexpr GFilterInfo kScriptedInfo{
    .shortName = "scripted",
    .displayName = VEX_W("Scripted"),
    .clsid = {0x4F0D2A10, 0x5A5A, 0x4B4B, {0x91, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98}},
    .container = "",
    .formats = "",
    .extensions = "",
    .recognises = nullptr,
};

int liveRigs = 0;  // tests run one after the other, on one thread

class GScriptedHandler final : public GReadHandler {
public:
    GScriptedHandler(GScript played, std::shared_ptr<GScriptLog> shared)
        : GReadHandler(played.source ? played.source() : nullptr), script(std::move(played)), log(std::move(shared))
    {
    }

    REFERENCE_TIME Duration() const override { return std::max(script.duration, log->grownTo.load()); }
    std::span<const GStreamInfo> Streams() const override { return script.streams; }

    void StartRun(std::span<const std::uint32_t> wanted) override { log->RunStarted({wanted.begin(), wanted.end()}); }
    GReadStatus ReadPacket(GNextPacket& next) override
    {
        if (cursor >= script.packets.size())
            return GReadStatus::End;
        if (cursor >= log->Available())
            return GReadStatus::Wait;
        if (script.onRead)
            script.onRead(cursor);
        announced = cursor++;
        next = script.packets[announced];
        return script.ends.contains(announced) ? GReadStatus::StreamEnd : GReadStatus::Packet;
    }
    bool ReadPayload(GPacket2& packet) override
    {
        packet.data.Resize(script.packets[announced].size);
        std::ranges::fill(packet.data.Span(), static_cast<std::uint8_t>(announced));
        if (script.finishPacket)
            script.finishPacket(packet, announced);
        log->PayloadRead();
        return true;
    }
    GPacketPtr NewPacket(std::uint32_t stream) const override
    {
        return script.newPacket ? script.newPacket() : GReadHandler::NewPacket(stream);
    }
    std::vector<GPacketPtr> HeaderPackets(std::uint32_t stream, const CMediaType&) override
    {
        return script.headers ? script.headers(stream) : std::vector<GPacketPtr>();
    }
    bool AcceptsSeek(REFERENCE_TIME time) const override { return !script.accepts || script.accepts(time); }
    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) override
    {
        log->Sought({time, mode});
        if (script.onSeek)
            script.onSeek(Interrupted());
        if (script.refuses && script.refuses(time))
            return std::nullopt;
        const REFERENCE_TIME landed = script.seekLands ? script.seekLands(time, mode) : time;
        const auto there =
            std::ranges::find_if(script.packets, [&](const auto& packet) { return packet.start >= landed; });
        cursor = static_cast<std::size_t>(there - script.packets.begin());
        return landed;
    }

protected:
    GStatus OpenContainer() override
    {
        ++log->opened;
        if (Path() == script.brokenPath || (script.onOpen && !script.onOpen(Interrupted())))
            return GError{GErrorKind::Malformed, "the script does not open", 42};
        return {};
    }
    void CloseContainer() override { ++log->closed; }
    bool LeaveAnnounced(GPacket2& packet) override
    {
        packet.unread = script.packets[announced].size;
        packet.position = static_cast<std::int64_t>(announced * packet.unread);
        return true;
    }

private:
    const GScript script;
    const std::shared_ptr<GScriptLog> log;
    std::size_t cursor = 0;
    std::size_t announced = 0;
};

template <class Header>
GStreamInfo StreamOf(std::uint32_t number, REFGUID major, REFGUID format, const Header& header, ULONG sampleSize)
{
    GStreamInfo stream;
    stream.number = number;
    stream.pinName = VEX_W("Same name");
    CMediaType& type = stream.mediaTypes.emplace_back(major, GUID_NULL);
    type.SetFormat(format, {reinterpret_cast<const BYTE*>(&header), sizeof header});
    type.SetSampleSize(sampleSize);
    return stream;
}

}  // namespace

void GScriptLog::PayloadRead()
{
    const std::lock_guard held(lock);
    ++payloads;
    changed.notify_all();
}

void GScriptLog::WaitForPayloads(std::size_t count)
{
    const GWatchdog watchdog("reading ahead");
    std::unique_lock held(lock);
    changed.wait(held, [&] { return payloads >= count; });
}

void GScriptLog::RunStarted(std::vector<std::uint32_t> wanted)
{
    const std::lock_guard held(lock);
    runs.push_back(std::move(wanted));
}

std::vector<std::vector<std::uint32_t>> GScriptLog::Runs()
{
    const std::lock_guard held(lock);
    return runs;
}

void GScriptLog::Sought(GSeek seek)
{
    const std::lock_guard held(lock);
    seeks.push_back(seek);
}

std::vector<GScriptLog::GSeek> GScriptLog::Seeks()
{
    const std::lock_guard held(lock);
    return seeks;
}

CScriptedFilter::CScriptedFilter(GScript script, const GFilterRules& filterRules, IUnknown* outer,
                                 std::shared_ptr<GScriptLog> scriptLog)
    : CVexFilter(kScriptedInfo, filterRules, outer, std::make_unique<GScriptedHandler>(script, scriptLog)),
      prepare(std::move(script.prepare)),
      onTaken(std::move(script.onTaken))
{
}

GResult<std::unique_ptr<GPreparation>> CScriptedFilter::Prepare(const WString& path)
{
    return prepare ? prepare(path) : nullptr;
}

void CScriptedFilter::TakePacket(GPacketPtr packet) { onTaken ? onTaken(std::move(packet)) : void(); }

void CScriptedFilter::SetOptions(bool keyFrames, bool preroll)
{
    keyFrameSeek = keyFrames;
    prerollMark = preroll;
}

std::unique_ptr<CVexOutputPin> CScriptedFilter::MakePin(const GStreamInfo& stream)
{
    return makePin ? makePin(this, stream) : CVexFilter::MakePin(stream);
}

GRig::GRig(GScript script, const GFilterRules& filterRules, CScriptedFilter::GMakePin makePin)
    : scripted(new CScriptedFilter(std::move(script), filterRules, nullptr, log)), filter(scripted)
{
    ++liveRigs;
    scripted->makePin = std::move(makePin);
    EXPECT_EQ(scripted->JoinFilterGraph(graph.Get(), nullptr), S_OK);
    EXPECT_EQ(scripted->Load(VEX_W("script"), nullptr), S_OK);
    for (int pin = 0; pin < scripted->GetPinCount(); ++pin) {
        pins.emplace_back(scripted->GetPin(pin));
        sinks.push_back(GComPtr<CRecordingSink>::Adopt(new CRecordingSink));
    }
}

GRig::~GRig()
{
    if (filter) {
        StopGraph();
        for (auto& pin : pins)
            pin->Disconnect();
    }
    DropFilter();
    for (auto& sink : sinks) {
        sink->GiveSamplesBack();
        sink->offered.Reset();
    }
    if (--liveRigs > 0)
        return;
    const GWatchdog watchdog("the end of the last object");
    while (CUnknown::ObjectsActive() != objectsBefore)
        std::this_thread::yield();
}

void GRig::Connect(std::size_t pin) { ASSERT_EQ(pins[pin]->Connect(sinks[pin].Get(), nullptr), S_OK); }

void GRig::ConnectAll()
{
    for (std::size_t pin = 0; pin < pins.size(); ++pin)
        Connect(pin);
}

void GRig::Disconnect(std::size_t pin)
{
    EXPECT_EQ(pins[pin]->Disconnect(), S_OK);
    sinks[pin]->Disconnect();
}

void GRig::Start()
{
    ConnectAll();
    ASSERT_EQ(filter->Run(0), S_OK);
}

void GRig::RunUntilBlocked()
{
    for (auto& sink : sinks)
        sink->Play(GSinkTrick::BlockReceive);
    Start();
    for (auto& sink : sinks)
        sink->WaitUntilBlocked();
}

void GRig::PlayToEnd()
{
    Start();
    LetGoAndWaitForEnds();
}

void GRig::LetGoAndWaitForEnds()
{
    for (auto& sink : sinks)
        sink->Play(GSinkTrick::None);
    for (auto& sink : sinks)
        sink->WaitForEnd();
}

void GRig::ForgetEvents()
{
    for (auto& sink : sinks)
        sink->ForgetEvents();
}

HRESULT GRig::Seek(std::size_t pin, REFERENCE_TIME position)
{
    return Seeking(pin)->SetPositions(&position, AM_SEEKING_AbsolutePositioning, nullptr, AM_SEEKING_NoPositioning);
}

LONGLONG GRig::Reached(std::size_t pin, LONGLONG position, DWORD flags)
{
    EXPECT_EQ(Seeking(pin)->SetPositions(&position, flags, nullptr, AM_SEEKING_NoPositioning), S_OK);
    return position;
}

void GRig::PlayFrom(std::size_t pin, REFERENCE_TIME position)
{
    ForgetEvents();
    ASSERT_EQ(Seek(pin, position), S_OK);
    LetGoAndWaitForEnds();
}

FILTER_STATE GRig::State()
{
    FILTER_STATE state = State_Stopped;
    EXPECT_EQ(filter->GetState(INFINITE, &state), S_OK);
    return state;
}

void GRig::StopGraph()
{
    const GWatchdog watchdog("stopping a graph");
    for (auto& sink : sinks)
        sink->SetStopped(true);
    EXPECT_EQ(filter->Stop(), S_OK);
    for (auto& sink : sinks)
        sink->SetStopped(false);
}

void GRig::DropFilter()
{
    // The sinks hold pins, and a pin its filter: they have to let go first.
    for (auto& sink : sinks)
        sink->Disconnect();
    pins.clear();
    filter.Reset();
}

GStreamInfo VideoStream(std::uint32_t number, LONG width, LONG height, ULONG sampleSize)
{
    VIDEOINFOHEADER header{};
    header.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    header.bmiHeader.biWidth = width;
    header.bmiHeader.biHeight = height;
    return StreamOf(number, MEDIATYPE_Video, FORMAT_VideoInfo, header, sampleSize);
}

GStreamInfo AudioStream(std::uint32_t number)
{
    return StreamOf(number, MEDIATYPE_Audio, FORMAT_WaveFormatEx, WAVEFORMATEX{}, 0);
}

GScript Movie(std::size_t frames, bool audio, std::uint32_t size)
{
    GScript script;
    script.streams.push_back(VideoStream(0));
    if (audio)
        script.streams.push_back(AudioStream(1));
    for (std::size_t i = 0; i < frames; ++i) {
        for (const GStreamInfo& stream : script.streams) {
            GNextPacket& packet = script.packets.emplace_back();
            packet.stream = stream.number;
            packet.size = size;
            packet.keyFrame = i % 10 == 0;
            packet.start = static_cast<REFERENCE_TIME>(i) * kFrame;
            packet.stop = packet.start + kFrame;
        }
    }
    script.duration = static_cast<REFERENCE_TIME>(frames) * kFrame;
    return script;
}

}  // namespace vex::test
