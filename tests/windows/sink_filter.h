// A renderer that takes any media type, logs what arrives and behaves towards the graph like one that shows it: while
// paused it takes one sample and holds the next, it lets go on flush and stop, and reports its end of stream once it
// runs.
#pragma once

#include <memory>

#include "windows/sample_log.h"

namespace vex::wintest {

// What the sink offers its peer. The system's, as renderers do; under Wine it costs two calls of the server for each
// sample, more than all else. Without one the peer brings its own.
enum class GSinkAllocator { Systems, None };

// What the test steers of a sink; safe from any thread.
class IGSinkControl {
public:
    // From so many samples since the last start or flush on, Receive waits until the hold is lifted (0), or a flush or
    // stop.
    virtual void HoldAt(std::size_t samples) = 0;
    // The rules of delivery that the peer has broken since the last start.
    virtual std::vector<std::string> Violations() = 0;

protected:
    ~IGSinkControl() = default;
};

// Creates the filter; `log` is filled until the last reference is gone. `control` is valid as long as the filter.
GComPtr<IBaseFilter> CreateSinkFilter(std::shared_ptr<GPinLog> log, GSinkAllocator allocator, IGSinkControl** control);

}  // namespace vex::wintest
