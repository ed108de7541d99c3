// A filter graph of the system's own with one of our source filters in it and a sink on every output pin.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <control.h>
#include <strmif.h>

#include "dshow/media_type.h"
#include "windows/module_access.h"
#include "windows/sink_filter.h"

namespace vex::wintest {

enum class GSinkKind {
    Own,      // CSinkFilter on every pin
    Grabber,  // the system's sample grabber and null renderer where they take the type, else CSinkFilter
};

enum class GPace {
    Free,   // no clock: as fast as it goes
    Clock,  // the graph's own default clock
};

// A decoder of the system's between our pin and a sink that keeps what it decodes.
enum class GDecoder {
    AviVideo,   // the AVI decompressor, which asks the installed codecs
    Mp3Audio,   // the MP3 decoder object in its wrapper
    Automatic,  // whatever the graph finds for a sample grabber that asks for RGB24
};

// What Load said.
struct GLoadResult {
    HRESULT result = E_FAIL;
    std::string errorText;  // of COM's error information; empty when there was none
};

// Throws GTestFailure when a step of the graph fails. Used from one thread.
class GTestGraph {
public:
    GTestGraph(const GModuleAccess& access, REFCLSID clsid, GKept ofPayloads = GKept::Digest);
    // Stops, takes every filter out of the graph and releases it.
    ~GTestGraph();
    GTestGraph(const GTestGraph&) = delete;
    GTestGraph& operator=(const GTestGraph&) = delete;

    GLoadResult Load(const std::wstring& path);
    void MustLoad(const std::wstring& path);
    // Every pin, to play without a clock.
    void ConnectAll(GSinkKind kind, GSinkAllocator allocator = GSinkAllocator::Systems);
    // Connects the first pin that the decoder is for, to play without a clock; returns the type of what is decoded.
    CMediaType ConnectDecoded(GDecoder decoder);

    void SetPace(GPace pace);  // while stopped

    void Run();
    void Pause();
    void Stop();  // throws when a sink of our own saw a rule of delivery broken
    // Waits for EC_COMPLETE; throws on an abort event, and when nothing arrives any more.
    void WaitForEnd();

    // Through the graph's IMediaSeeking; times in 100 ns.
    void SeekTo(LONGLONG position);
    LONGLONG Duration();

    const std::vector<std::shared_ptr<GPinLog>>& Logs() const { return logs; }
    void ClearLogs();
    void HoldSinksAt(std::size_t samples);  // see IGSinkControl; a grabber's pin is not held
    std::size_t GrabbedPins() const { return grabbed; }

private:
    void WaitForState(OAFilterState wanted);
    std::string ArrivedText() const;
    void ConnectPin(IPin& pin, GSinkKind kind, GSinkAllocator allocator);
    bool ConnectGrabber(IPin& pin, const std::shared_ptr<GPinLog>& log);
    // Makes what ends a chain: a sink of our own for `log`, and gives its input pin.
    GComPtr<IPin> AddSink(const std::shared_ptr<GPinLog>& log, GSinkAllocator allocator = GSinkAllocator::Systems);
    GComPtr<IBaseFilter> AddSystemFilter(REFCLSID clsid, const wchar_t* name);
    GComPtr<IBaseFilter> AddMp3Decoder();
    GComPtr<IBaseFilter> AddRgbGrabber();
    GComPtr<IPin> FirstPinOf(REFGUID majorType);

    const GKept kept;
    GComPtr<IGraphBuilder> graph;
    GComPtr<IMediaControl> control;
    GComPtr<IMediaEvent> events;
    GComPtr<IMediaSeeking> seeking;
    GComPtr<IBaseFilter> source;
    std::vector<std::shared_ptr<GPinLog>> logs;
    std::vector<IGSinkControl*> sinks;  // owned by the graph
    std::size_t grabbed = 0;
};

// The system's classes that uuids.h has no names for in every version of the SDK.
inline constexpr CLSID kSampleGrabber{0xC1F400A0, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}};
inline constexpr CLSID kNullRenderer{0xC1F400A4, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}};

std::vector<GComPtr<IPin>> PinsOf(IBaseFilter& filter, PIN_DIRECTION wanted);
GComPtr<IPin> OnlyPin(IBaseFilter& filter, PIN_DIRECTION direction);
std::string PinName(IPin& pin);

}  // namespace vex::wintest
