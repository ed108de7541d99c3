// Work that has to be done before a file can be opened.
#pragma once

#include <string>

#include "io/result.h"
#include "platform/types.h"

namespace vex {

// A download, for one: it runs on the filter's loading thread while Load has long returned.
class GPreparation {
public:
    virtual ~GPreparation() = default;

    // Blocks until there is a file to open, and returns its path. An error of kind Aborted: Abort was called.
    virtual GResult<WString> Run() = 0;
    // Why the file that Run gave is not whole, UTF-8; empty when it is. Loading thread, after Run.
    virtual std::string Shortfall() const { return {}; }
    // Makes a Run in progress, or one that is yet to come, return at once. Any thread.
    virtual void Abort() = 0;
    // Loading thread, with no lock held: the file that Run gave was opened and has its pins, or why not. Also called
    // with the error of a Run that failed, but not when that was Aborted. Must not wait for another thread's call on
    // the filter.
    virtual void Loaded(const GStatus& status) = 0;
};

}  // namespace vex
