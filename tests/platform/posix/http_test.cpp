#include "platform/http.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <cstdlib>

#include "platform/threads.h"
#include "support/watchdog.h"

namespace {

constexpr std::string_view kStalledName = "stalled.invalid";
vex::CAMEvent lookUpEntered(true);
vex::CAMEvent lookUpReleased(true);
vex::CAMEvent lookUpLeft(true);

}  // namespace

// libcurl's name look-up comes here first: one name stalls until the test lets it go.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** found)
{
    if (name && name == kStalledName) {
        lookUpEntered.Set();
        lookUpReleased.Wait();
        lookUpLeft.Set();
        return EAI_FAIL;
    }
    static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    return real(name, service, hints, found);
}

namespace vex::test {
namespace {

using enum GHttpResult::Outcome;

class GNoBody final : public GHttpSink {
public:
    bool Begin(std::optional<std::uint64_t>) override { return true; }
    bool Take(std::span<const std::uint8_t>) override { return true; }
};

class Http : public testing::Test {
protected:
    Http()
    {
        for (const char* variable : {"http_proxy", "https_proxy", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
            ::unsetenv(variable);
    }

    GWatchdog watchdog{"an HTTP transfer"};
    GNoBody body;
};

// What servers answer is in tests/download.
TEST_F(Http, AUrlThatLeadsToNoServerFails)
{
    for (const char* url : {"file:///etc/passwd", "http://127.0.0.1:1/", "http:///", ""})
        EXPECT_EQ(GHttpClient().Get(url, "agent", body).outcome, Failed) << url;
}

TEST_F(Http, AbortDoesNotWaitForANameLookUp)
{
    GHttpClient client;
    GNativeThread aborting([&client] {
        lookUpEntered.Wait();
        client.Abort();
    });
    EXPECT_EQ(client.Get("http://" + std::string(kStalledName) + "/", "agent", body).outcome, Aborted);
    EXPECT_FALSE(lookUpLeft.Check()) << "it has not been waited for";
    aborting.join();
    lookUpReleased.Set();
    lookUpLeft.Wait();
    EXPECT_EQ(client.Get("http://127.0.0.1:1/", "agent", body).outcome, Aborted) << "before it began";
}

}  // namespace
}  // namespace vex::test
