// The host against the module's own filters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "formats/avi/avi_interface.h"
#include "host/host_graph.h"
#include "platform/exports.h"
#include "platform/text.h"

namespace vex::test {

namespace {

using testing::IsEmpty;

constexpr std::chrono::minutes kBound{2};

const WString kSample = WideFromUtf8(VEX_SAMPLE);

}  // namespace

TEST(HostWithModule, RandomSeeksWhilePlayingKeepTheRulesOfDelivery)
{
    {
        GHostGraph graph(LinkedModule());
        ASSERT_EQ(graph.Create(CLSID_VexAvi), S_OK);
        ASSERT_EQ(graph.Load(kSample), S_OK) << graph.ErrorText();
        ASSERT_EQ(graph.ConnectAll(), S_OK);
        ASSERT_EQ(graph.Run(), S_OK);
        std::mt19937 random(20240611);
        std::uniform_int_distribution<REFERENCE_TIME> anywhere(0, *graph.Duration());
        for (int i = 0; i < 200; ++i) {
            for (const GSeekResult& seek : graph.Seek(anywhere(random)))
                ASSERT_EQ(seek.result, S_OK);
            if (i % 50 == 49) {
                EXPECT_EQ(graph.WaitForEnd(kBound), GEnd::Complete);
            }
        }
        ASSERT_EQ(graph.Stop(), S_OK);
        for (std::size_t pin = 0; pin < graph.PinCount(); ++pin)
            EXPECT_THAT(graph.Sink(pin)->Report().violations, IsEmpty()) << "pin " << pin;
    }
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

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
