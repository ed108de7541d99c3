// A filter graph of the system's own with one of our source filters in it and a sink on every output pin.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <control.h>
#include <strmif.h>

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

// What Load said.
struct GLoadResult {
    HRESULT result = E_FAIL;
    std::string errorText;  // of COM's error information; empty when there was none
};

// Throws GTestFailure when a step of the graph fails. Used from one thread.
class GTestGraph {
public:
    GTestGraph(const GModuleAccess& access, REFCLSID clsid);
    // Stops, takes every filter out of the graph and releases it.
    ~GTestGraph();
    GTestGraph(const GTestGraph&) = delete;
    GTestGraph& operator=(const GTestGraph&) = delete;

    GLoadResult Load(const std::wstring& path);
    void ConnectAll(GSinkKind kind, GPace pace);

    void SetPace(GPace pace);  // while stopped

    void Run();
    void Pause();
    void Stop();
    // Waits for EC_COMPLETE; throws on an abort event and when patience ends.
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
    void ConnectPin(IPin& pin, GSinkKind kind);
    bool ConnectGrabber(IPin& pin, const std::shared_ptr<GPinLog>& log);
    void ConnectOwn(IPin& pin, const std::shared_ptr<GPinLog>& log);
    GComPtr<IBaseFilter> AddSystemFilter(REFCLSID clsid, const wchar_t* name);

    GComPtr<IGraphBuilder> graph;
    GComPtr<IMediaControl> control;
    GComPtr<IMediaEvent> events;
    GComPtr<IMediaSeeking> seeking;
    GComPtr<IBaseFilter> source;
    std::vector<std::shared_ptr<GPinLog>> logs;
    std::vector<IGSinkControl*> sinks;  // owned by the graph
    std::size_t grabbed = 0;
};

// What Load said, and what every pin got where it opened the file.
struct GPlayed {
    GLoadResult loaded;
    std::vector<std::shared_ptr<GPinLog>> logs;
};

// The plain route: load, connect sinks of our own, run to the end.
GPlayed PlayWhole(const GModuleAccess& access, REFCLSID clsid, const std::wstring& path);

}  // namespace vex::wintest
