// The host against the module's own filters.
#include <gtest/gtest.h>

#include "formats/avi/avi_interface.h"
#include "host/host_graph.h"
#include "platform/exports.h"
#include "platform/text.h"

namespace vex::test {

namespace {

constexpr std::chrono::minutes kBound{2};

const WString kSample = WideFromUtf8(VEX_SAMPLE);

}  // namespace

TEST(HostWithModule, TheLoadableModuleServesTheSameFilters)
{
    std::string error;
    const GModule module = LoadModule(WideFromUtf8(VEX_MODULE_FILE), error);
    ASSERT_TRUE(module.IsUsable()) << error;
    {
        GHostGraph graph(module);
        ASSERT_EQ(graph.Create(CLSID_VexAvi), S_OK);
        EXPECT_TRUE(FAILED(graph.Load(VEX_W("no-such-file.avi"))));
        EXPECT_NE(graph.ErrorText(), "") << "the reason crosses from the module's copy of the platform to ours";
        ASSERT_EQ(graph.Load(kSample), S_OK);
        ASSERT_EQ(graph.ConnectAll(), S_OK);
        ASSERT_EQ(graph.Run(), S_OK);
        EXPECT_EQ(graph.WaitForEnd(kBound), GEnd::Complete);
    }
    EXPECT_EQ(module.canUnloadNow(), S_OK);
}

}  // namespace vex::test
