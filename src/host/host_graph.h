// The smallest graph that exercises a source filter for real: the filter, and a sink behind each connected pin.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "framework/vex_interfaces.h"
#include "host/graph_site.h"
#include "host/module.h"
#include "host/sink_pin.h"

namespace vex {

// Where a seek took one pin. Times are 100 ns.
struct GSeekResult {
    HRESULT result = S_OK;
    REFERENCE_TIME reached = kNoTime;  // the position that SetPositions handed back
};

enum class GEnd : std::uint8_t {
    Complete,  // every connected pin said its end of stream, or stopped delivering because its sink refused a sample
    Failed,    // the filter reported an error; see ErrorCode
    Cancelled,
    Stalled,   // no pin delivered anything for the allowed time
};

// Used from one thread, but for what says otherwise. Destruction stops the filter and takes the graph apart.
class GHostGraph {
public:
    explicit GHostGraph(GModule filterModule);
    ~GHostGraph();
    GHostGraph(const GHostGraph&) = delete;
    GHostGraph& operator=(const GHostGraph&) = delete;

    // Creates the filter and lets it join the graph. Once.
    HRESULT Create(REFCLSID clsid);
    // How many bytes of a file that has to be fetched are there, and how many there will be; 0 when that is not known.
    using GLoadTick = std::function<void(std::uint64_t done, std::uint64_t total)>;

    // IFileSourceFilter::Load, and waits until the filter has the file and its pins. `tick`, when given, is called
    // about ten times a second meanwhile. After a failure ErrorText says why, as far as the filter told; after a
    // success, why the file is not whole. E_ABORT after a Cancel.
    HRESULT Load(const WString& path, const GLoadTick& tick = {});
    // The two halves of it, for a host that does something else while the filter fetches the file.
    HRESULT BeginLoad(const WString& path);
    HRESULT FinishLoad(const GLoadTick& tick = {});
    const std::string& ErrorText() const { return errorText; }

    IBaseFilter* Filter() const { return filter.Get(); }
    // The filter's inspection and control interfaces; empty when it has none of the kind.
    template <class T>
    GComPtr<T> Control(REFIID iid) const
    {
        return QueryFor<T>(filter.Get(), iid);
    }

    // The output pins, as enumerated after a successful Load.
    std::size_t PinCount() const { return pins.size(); }
    IPin* Pin(std::size_t pin) const { return pins[pin].output.Get(); }
    WString PinName(std::size_t pin) const;
    std::vector<CMediaType> PinTypes(std::size_t pin) const;
    // Longest of the pins' durations, 100 ns; nothing when no pin tells one.
    std::optional<REFERENCE_TIME> Duration() const;

    // Puts a sink behind a pin. With `type`, that media type is asked for; otherwise the pins agree on one.
    HRESULT Connect(std::size_t pin, GSinkOptions options = {}, const AM_MEDIA_TYPE* type = nullptr);
    // Connects every pin with the same options; the first failure, or S_OK.
    HRESULT ConnectAll(const GSinkOptions& options = {});
    HRESULT Disconnect(std::size_t pin);
    // The sink behind a pin; null when the pin is not connected. Its methods may be called from any thread.
    CSinkPin* Sink(std::size_t pin) const { return pins[pin].sink.Get(); }
    std::optional<CMediaType> ConnectedType(std::size_t pin) const;

    HRESULT Run();
    HRESULT Pause();
    // Sinks first, as graphs do, so that none of them keeps the filter's threads.
    HRESULT Stop();

    // Relays one absolute seek to every connected pin, as graphs do; one result per pin, in pin order (S_FALSE and
    // kNoTime for a pin that is not connected). `stop`, when given, becomes the new stop position.
    std::vector<GSeekResult> Seek(REFERENCE_TIME position, std::optional<REFERENCE_TIME> stop = {});

    // Waits for the end of the streams, at most until no pin has delivered anything for `stall`. `tick`, when given, is
    // called about twice a second.
    GEnd WaitForEnd(std::chrono::milliseconds stall, const std::function<void()>& tick = {});
    // Waits until `done()` holds; false when `bound` passed first. Woken by ends, errors, holds, announced sample
    // counts.
    template <class Predicate>
    bool WaitUntil(std::chrono::milliseconds bound, Predicate&& done)
    {
        return progress->Until(GSteadyClock::now() + bound, std::forward<Predicate>(done));
    }
    // What this graph waits with: its Cancel ends all waits here, from any thread and also when the graph is gone.
    std::shared_ptr<GProgress> Progress() const { return progress; }
    // The code of the first EC_ERRORABORT, or S_OK. Final once stopped: a filter may end a stream first and then say
    // that it was given up. Any thread.
    HRESULT ErrorCode() const { return site->FirstError(); }
    std::vector<GGraphEvent> Events() const { return site->Events(); }

private:
    struct GPinSlot {
        GComPtr<IPin> output;
        GComPtr<CSinkPin> sink;
    };

    HRESULT WaitUntilLoaded(const GLoadTick& tick);
    HRESULT EnumeratePins();
    bool AllEnded() const;
    std::uint64_t Delivered() const;

    const GModule module;  // outlives everything that came out of it
    const std::shared_ptr<GProgress> progress = std::make_shared<GProgress>();
    GComPtr<CGraphSite> site;
    GComPtr<IBaseFilter> filter;
    std::vector<GPinSlot> pins;
    std::string errorText;
    bool active = false;
};

// The name of a result code ("VFW_E_NOT_CONNECTED") where it is a well-known one, otherwise "error 0x8004....".
std::string ResultText(HRESULT result);

// UTF-8 of a BSTR, which is freed. A null one is an empty text.
std::string TakeText(BSTR text);

}  // namespace vex
