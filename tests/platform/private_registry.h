// A class registry that one test has for itself.
#pragma once

#include <memory>

namespace vex::test {

class GPrivateRegistry {
public:
    GPrivateRegistry();
    ~GPrivateRegistry();
    GPrivateRegistry(const GPrivateRegistry&) = delete;
    GPrivateRegistry& operator=(const GPrivateRegistry&) = delete;

private:
    struct GState;
    std::unique_ptr<GState> state;
};

}  // namespace vex::test
