// A read handler that plays a script from memory, the filter around it, and a rig that runs it against recording sinks.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "framework/source_filter.h"
#include "host/graph_site.h"
#include "platform/threads.h"
#include "support/recording_sink.h"

namespace vex::test {

struct GScript {
    std::vector<GStreamInfo> streams;
    std::vector<GNextPacket> packets;  // in delivery order
    REFERENCE_TIME duration = 0;       // 100 ns
    std::string brokenPath;            // does not open, although others do
    // In the middle of opening; `interrupted` is the handler's. False: the file does not open.
    std::function<bool(const std::atomic<bool>& interrupted)> onOpen;
    // In the middle of a seek; `interrupted` is the handler's.
    std::function<void(const std::atomic<bool>& interrupted)> onSeek;
    // Where a seek lands; absent: where it was asked for.
    std::function<REFERENCE_TIME(REFERENCE_TIME, GSeekMode)> seekLands;
    std::function<void(std::size_t packet)> onRead;  // before a packet is announced; may throw
    std::function<std::vector<GPacketPtr>(std::uint32_t stream)> headers;
    std::function<GPacketPtr()> newPacket;
    std::function<bool(REFERENCE_TIME)> accepts;  // absent: every seek
    std::function<bool(REFERENCE_TIME)> refuses;  // a seek that has begun; absent: none
    std::set<std::size_t> ends;                   // packets that are the end of their stream instead
    std::function<GResult<std::unique_ptr<GPreparation>>(const WString& path)> prepare;
    std::function<void(GPacket2&, std::size_t packet)> finishPacket;  // after the payload is in
    std::function<void(GPacketPtr)> onTaken;                          // a packet for the filter itself
    // Where the payloads lie one behind the other, all of the same size, and can be left to the pins.
    std::function<std::unique_ptr<GFileBase>()> source;
};

// What the handler did, and how far it may go. Any thread.
class GScriptLog {
public:
    struct GSeek {
        REFERENCE_TIME time;
        GSeekMode mode;
    };

    // Packets from this one on are "not yet" there. All are, at first.
    void SetAvailable(std::size_t count) { available = count; }
    std::size_t Available() const { return available; }
    void PayloadRead();
    std::size_t Payloads() const { return payloads; }
    void WaitForPayloads(std::size_t count);  // a hang ends the program
    void Sought(GSeek seek);
    std::vector<GSeek> Seeks();
    void RunStarted(std::vector<std::uint32_t> wanted);
    std::vector<std::vector<std::uint32_t>> Runs();  // the wanted streams of each

    std::atomic<REFERENCE_TIME> grownTo{0};  // the duration, where it is more than the script's
    std::atomic<int> opened{0};
    std::atomic<int> closed{0};

private:
    std::atomic<std::size_t> available{SIZE_MAX};
    std::atomic<std::size_t> payloads{0};
    GNativeMutex lock;
    GCondition changed;
    std::vector<GSeek> seeks;
    std::vector<std::vector<std::uint32_t>> runs;
};

// Rows that differ in whatever a rule can say.
inline constexpr GFilterRules kPlainRules{.firstVideoOnly = true};
inline constexpr GFilterRules kRelayRules{
    .mediaTimes = GMediaTimeRule::None,
    .sync = GSyncRule::KeyFrame,
    .seekRelay = GSeekRelay::OncePerTarget,
    .segmentEnd = GSegmentEnd::Duration,
    .resize = GResizeRule::DropOnFailure,
    .prerollAtFirst = false,
};

inline constexpr GFilterRules kOpenRules{
    .resize = GResizeRule::Abort,
    .emptyPayloads = GEmptyPayloads::Deliver,
    .minimumRange = 40'000'000,  // 4 s, 100 frames
};

class CScriptedFilter : public CVexFilter {
public:
    using GMakePin = std::function<std::unique_ptr<CVexOutputPin>(CVexFilter*, const GStreamInfo& stream)>;

    explicit CScriptedFilter(GScript script, const GFilterRules& filterRules = kPlainRules, IUnknown* outer = nullptr,
                             std::shared_ptr<GScriptLog> scriptLog = std::make_shared<GScriptLog>());

    void SetOptions(bool keyFrames, bool preroll);
    // Instead of the frame's own pin.
    GMakePin makePin;

protected:
    std::unique_ptr<CVexOutputPin> MakePin(const GStreamInfo& stream) override;
    GResult<std::unique_ptr<GPreparation>> Prepare(const WString& path) override;
    void TakePacket(GPacketPtr packet) override;

private:
    const std::function<GResult<std::unique_ptr<GPreparation>>(const WString& path)> prepare;
    const std::function<void(GPacketPtr)> onTaken;
};

// Makes pins of a class derived from CVexOutputPin, whose constructor gets `arguments` besides.
template <class Pin, class... Arguments>
CScriptedFilter::GMakePin PinsOf(Arguments... arguments)
{
    return [=](CVexFilter* owner, const GStreamInfo& stream) {
        return std::make_unique<Pin>(owner, stream, arguments...);
    };
}

// Calls out in the middle of a pause, before it gets its streaming thread.
class CCallingPin final : public CVexOutputPin {
public:
    CCallingPin(CVexFilter* holder, const GStreamInfo& info, std::function<void(CVexOutputPin&)> call)
        : CVexOutputPin(holder, info), onActive(std::move(call))
    {
    }
    HRESULT Active() override
    {
        onActive(*this);
        return CVexOutputPin::Active();
    }

private:
    const std::function<void(CVexOutputPin&)> onActive;
};

// One filter that plays `script`, loaded, in a graph, with a sink for every pin. When the last rig ends, no object
// may be left.
class GRig {
public:
    explicit GRig(GScript script, const GFilterRules& filterRules = kPlainRules,
                  CScriptedFilter::GMakePin makePin = {});
    ~GRig();
    GRig(const GRig&) = delete;
    GRig& operator=(const GRig&) = delete;

    void ConnectAll();
    void Connect(std::size_t pin);
    // Takes a connection apart at both ends.
    void Disconnect(std::size_t pin);
    // Connects every pin and runs: no further, as far as the first sample of each, which stays inside its sink, or to
    // the end.
    void Start();
    void RunUntilBlocked();
    void PlayToEnd();
    // Every sink plays fair from now on; each pin comes to its end.
    void LetGoAndWaitForEnds();
    void ForgetEvents();
    HRESULT Seek(std::size_t pin, REFERENCE_TIME position);
    // The position that a seek through `pin` hands back.
    LONGLONG Reached(std::size_t pin, LONGLONG position, DWORD flags = AM_SEEKING_AbsolutePositioning);
    // Forgets the events, seeks and plays to the end.
    void PlayFrom(std::size_t pin, REFERENCE_TIME position);
    FILTER_STATE State();
    // Ends the graph as a host does: sinks first.
    void StopGraph();
    // Gives the filter up as it is.
    void DropFilter();

    IBaseFilter* Filter() const { return filter.Get(); }
    CScriptedFilter& Scripted() const { return *scripted; }
    IPin* Pin(std::size_t pin) const { return pins[pin].Get(); }
    CRecordingSink& Sink(std::size_t pin) const { return *sinks[pin]; }
    GComPtr<IMediaSeeking> Seeking(std::size_t pin) const
    {
        return QueryFor<IMediaSeeking>(Pin(pin), IID_IMediaSeeking);
    }
    GScriptLog& Log() const { return *log; }
    HRESULT FirstError() const { return graph->FirstError(); }  // that the graph was told of

private:
    const LONG objectsBefore = CUnknown::ObjectsActive();
    std::shared_ptr<GScriptLog> log = std::make_shared<GScriptLog>();
    const GComPtr<CGraphSite> graph = GComPtr<CGraphSite>::Adopt(new CGraphSite(std::make_shared<GProgress>()));
    CScriptedFilter* scripted = nullptr;
    GComPtr<IBaseFilter> filter;
    std::vector<GComPtr<IPin>> pins;
    std::vector<GComPtr<CRecordingSink>> sinks;
};

// 40 ms, as long as each packet of a Movie.
inline constexpr REFERENCE_TIME kFrame = 400'000;

GStreamInfo VideoStream(std::uint32_t number, LONG width = 640, LONG height = 480, ULONG sampleSize = 0);
GStreamInfo AudioStream(std::uint32_t number);
// A video of so many frames, and with `audio` an audio stream beside it: streams 0 and 1, interleaved by time. Every
// tenth packet is a key frame.
GScript Movie(std::size_t frames, bool audio = true, std::uint32_t size = 100);

}  // namespace vex::test
