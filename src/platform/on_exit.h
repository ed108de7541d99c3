// Runs a function when a scope is left, by whatever way.
#pragma once

#include <utility>

namespace vex {

template <class Function>
class [[nodiscard]] GOnExit {
public:
    explicit GOnExit(Function atExit) : function(std::move(atExit)) {}
    ~GOnExit() { function(); }
    GOnExit(const GOnExit&) = delete;
    GOnExit& operator=(const GOnExit&) = delete;

private:
    Function function;
};

}  // namespace vex
