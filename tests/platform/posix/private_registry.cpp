#include "platform/private_registry.h"

#include <cstdlib>

#include "support/temp_file.h"

namespace vex::test {

struct GPrivateRegistry::GState {
    GTempDirectory directory;
};

GPrivateRegistry::GPrivateRegistry() : state(std::make_unique<GState>())
{
    ::setenv("VEX_REGISTRY_DIR", state->directory.Path().c_str(), 1);
}

GPrivateRegistry::~GPrivateRegistry() { ::unsetenv("VEX_REGISTRY_DIR"); }

}  // namespace vex::test
