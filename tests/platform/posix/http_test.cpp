#include "platform/http.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <thread>

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

// A server on the loopback interface that hands each request to `answer`, one connection after the other.
class GServer {
public:
    using GAnswer = std::function<void(int connection, const std::string& request)>;

    explicit GServer(GAnswer answering) : answer(std::move(answering)), listener(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(::bind(listener, any, size), 0);
        EXPECT_EQ(::listen(listener, 5), 0);
        EXPECT_EQ(::getsockname(listener, any, &size), 0);
        url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
        thread = std::thread([this] { Serve(); });
    }
    ~GServer()
    {
        ::shutdown(listener, SHUT_RDWR);
        thread.join();
        ::close(listener);
    }

    std::string url;

private:
    void Serve()
    {
        for (int connection = 0; (connection = ::accept(listener, nullptr, nullptr)) >= 0; ::close(connection)) {
            std::string request;
            char byte = 0;
            while (!request.ends_with("\r\n\r\n") && ::recv(connection, &byte, 1, 0) == 1)
                request.push_back(byte);
            answer(connection, request);
        }
    }

    const GAnswer answer;
    const int listener;
    std::thread thread;
};

void Send(int connection, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0)
            return;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

// Sends and then keeps the connection open until the client closes it.
GServer::GAnswer Stalling(std::string bytes)
{
    return [bytes = std::move(bytes)](int connection, const std::string&) {
        Send(connection, bytes);
        char byte = 0;
        EXPECT_LE(::recv(connection, &byte, 1, 0), 0);
    };
}

class GBody : public GHttpSink {
public:
    bool Begin(std::optional<std::uint64_t> contentLength) override
    {
        EXPECT_TRUE(bytes.empty());
        ++begun;
        length = contentLength;
        return true;
    }
    bool Take(std::span<const std::uint8_t> block) override
    {
        EXPECT_EQ(begun, 1);
        EXPECT_GE(block.size(), 1u);
        EXPECT_LE(block.size(), kHttpBlock);
        bytes.append(block.begin(), block.end());
        return bytes.size() < refuseFrom;
    }

    int begun = 0;
    std::optional<std::uint64_t> length;
    std::string bytes;
    std::size_t refuseFrom = SIZE_MAX;
};

class Http : public testing::Test {
protected:
    Http()
    {
        for (const char* variable : {"http_proxy", "https_proxy", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
            ::unsetenv(variable);
    }

    GHttpResult Get(const std::string& url) { return client.Get(url, "an agent/1.0", body); }

    GWatchdog watchdog{"an HTTP transfer"};
    GBody body;
    GHttpClient client;
};

const std::string kLong(25'000, 'x');

// What a download meets besides is in tests/download.
TEST_F(Http, EachAnswerOfAServerHasItsOutcome)
{
    struct GCase {
        std::string answer;
        GHttpResult::Outcome outcome;
        std::string text;  // a part of it
        std::string body = {};
        std::optional<std::uint64_t> length = {};
        int begun = 1;
    };
    const GCase cases[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 25000\r\n\r\n" + kLong, Finished, "", kLong, 25'000},
        {"HTTP/1.0 200 OK\r\nContent-Length: 0\r\n\r\n", Finished, "", "", 0},
        {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n\r\nabc", Finished, "", "abc"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nabc", Failed, "2 bytes", "abc", 5},
        {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nabc", Finished, "", "ab", 2},
        {"HTTP/1.1 200 OK\r\nContent-Length: 6000000000\r\n\r\n", Failed, "6000000000", "", 6'000'000'000},
        {"HTTP/1.1 500\r\n\r\n", BadStatus, "500", "", {}, 0},
        {"HTTP/1.1 302 Found\r\n\r\nwhereto?", BadStatus, "302 Found", "", {}, 0},
        {"HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\n\r\n", Failed, "file", "", {}, 0},
        {"", Failed, "", "", {}, 0},
    };
    for (const GCase& given : cases) {
        SCOPED_TRACE(given.answer.substr(0, 90));
        const GServer server([&](int connection, const std::string&) { Send(connection, given.answer); });
        GBody got;
        const GHttpResult result = GHttpClient().Get(server.url, "agent", got);
        EXPECT_EQ(result.outcome, given.outcome) << result.text;
        EXPECT_THAT(result.text, testing::HasSubstr(given.text));
        EXPECT_EQ(result.text.empty(), given.outcome == Finished);
        EXPECT_EQ(got.bytes, given.body);
        EXPECT_EQ(got.length, given.length);
        EXPECT_EQ(got.begun, given.begun);
    }
    for (const char* url : {"file:///etc/passwd", "http://127.0.0.1:1/", "http:///", ""})
        EXPECT_EQ(GHttpClient().Get(url, "agent", body).outcome, Failed) << url;
}

TEST_F(Http, ARefusalOrAnErrorPageEndsATransferThatWouldGoOn)
{
    const GServer body200(Stalling("HTTP/1.1 200 OK\r\n\r\n" + kLong));
    body.refuseFrom = 20'000;
    EXPECT_EQ(Get(body200.url).outcome, Refused);
    EXPECT_GE(body.bytes.size(), 20'000u);
    EXPECT_LT(body.bytes.size(), 20'000 + kHttpBlock);
    const GServer page404(Stalling("HTTP/1.1 404 Not Found\r\nContent-Length: 10\r\n\r\n"));
    EXPECT_EQ(GHttpClient().Get(page404.url, "agent", body).outcome, BadStatus);
}

TEST_F(Http, AbortDoesNotWaitForANameLookUp)
{
    for (CAMEvent* event : {&lookUpEntered, &lookUpReleased, &lookUpLeft})
        event->Reset();
    std::thread aborting([this] {
        lookUpEntered.Wait();
        client.Abort();
    });
    EXPECT_EQ(Get("http://" + std::string(kStalledName) + "/").outcome, Aborted);
    EXPECT_FALSE(lookUpLeft.Check()) << "it has not been waited for";
    aborting.join();
    lookUpReleased.Set();
    lookUpLeft.Wait();
    EXPECT_EQ(Get("http://127.0.0.1:1/").outcome, Aborted) << "before it began";
}

}  // namespace
}  // namespace vex::test
