// A renderer that takes any media type, logs what arrives and behaves towards the graph like one that shows it: it
// holds the first sample while paused, lets go of it on flush and stop, and reports its end of stream once it runs.
#pragma once

#include <memory>

#include "windows/sample_log.h"

namespace vex::wintest {

// What the test steers of a sink; safe from any thread.
class IGSinkControl {
public:
    // From so many samples since the log was cleared on, Receive waits until the hold is lifted (0), or a flush or
    // stop.
    virtual void HoldAt(std::size_t samples) = 0;

protected:
    ~IGSinkControl() = default;
};

// Creates the filter; `log` is filled until the last reference is gone. `control` is valid as long as the filter.
GComPtr<IBaseFilter> CreateSinkFilter(std::shared_ptr<GPinLog> log, IGSinkControl** control);

}  // namespace vex::wintest
