#include "platform/console.h"

#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <utility>

#include "platform/threads.h"

namespace vex {
namespace {

// What people and systems end a program with. A write into a closed pipe fails as well when its signal is handled.
constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

std::atomic<int> noted{0};
static_assert(std::atomic<int>::is_always_lock_free, "written by a signal handler");

// Of the one watch. Never destroyed: a handler may still be on its way out.
sem_t wake;
std::atomic<bool> ended{false};
struct sigaction before[std::size(kSignals)];
GNativeThread watcher;

extern "C" void OnSignal(int number)
{
    const int error = errno;
    int none = 0;
    if (noted.compare_exchange_strong(none, number))
        ::sem_post(&wake);
    errno = error;
}

}  // namespace

GInterruptWatch::GInterruptWatch(std::function<void()> onInterrupt)
{
    ended = false;
    ::sem_init(&wake, 0, 0);
    watcher = GNativeThread([act = std::move(onInterrupt)] {
        SetCurrentThreadName("vex interrupt");
        while (::sem_wait(&wake) != 0) {}
        if (!ended)
            act();
    });
    for (std::size_t i = 0; i < std::size(kSignals); ++i) {
        struct sigaction action {};
        action.sa_handler = OnSignal;
        // Not restarted: output that nobody takes must not keep the program.
        action.sa_flags = kSignals[i] == SIGPIPE ? 0 : static_cast<int>(SA_RESETHAND);
        ::sigaction(kSignals[i], nullptr, &before[i]);
        // What whoever started the program has switched off stays off.
        if (before[i].sa_handler != SIG_IGN)
            ::sigaction(kSignals[i], &action, nullptr);
    }
}

GInterruptWatch::~GInterruptWatch()
{
    for (std::size_t i = 0; i < std::size(kSignals); ++i)
        ::sigaction(kSignals[i], &before[i], nullptr);
    ended = true;
    ::sem_post(&wake);
    watcher.join();
}

bool WasInterrupted() { return noted != 0; }

void EndIfInterrupted()
{
    const int number = noted;
    if (number == 0)
        return;
    ::signal(number, SIG_DFL);
    ::raise(number);
}

std::vector<std::string> CommandLineArguments(int argc, const char* const* argv) { return {argv, argv + argc}; }

void PrepareStandardOutput() {}

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

}  // namespace vex
