// A thread of a read handler that builds an index beside the reader, through a byte source of its own, and may keep
// pace with a file that is still being written.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "io/file_base.h"
#include "platform/threads.h"

namespace vex {

// A derived class calls Stop in its destructor: the thread runs its Build.
class GIndexThread : private CAMThread {
public:
    ~GIndexThread() override = default;

    // Opens `closedSource` on `path` on the new thread. False when there is no source or the system gives no thread;
    // the index is then finished, and empty.
    bool Start(std::unique_ptr<GFileBase> closedSource, const std::string& path);
    // Returns when the thread has ended. Harmless when it already has, or never began.
    void Stop();

    // More entries may turn up without the file growing. What is indexed when this says no is all there is for now. Any
    // thread.
    bool IsScanning() const { return state.load(std::memory_order_acquire) == GState::Scanning; }

    // Counts what the thread has done, changes of IsScanning included. Any thread.
    std::uint64_t Progress() const G_EXCLUDES(lock);
    // Returns once Progress is no longer `seen`, at the latest after `longest`. Any thread.
    void WaitForProgress(std::uint64_t seen, std::chrono::milliseconds longest = std::chrono::milliseconds(1)) const
        G_EXCLUDES(lock);

protected:
    // `threadName`: at most 15 characters, static.
    explicit GIndexThread(const char* threadName) : name(threadName) {}

    // The index thread's work, with the open source: until all is indexed or StopRequested. May throw std::bad_alloc.
    virtual void Build(GFileBase& source) = 0;
    // Index thread: Build ran out of memory.
    virtual void OutOfMemory() {}

    // For Build.
    bool StopRequested() const { return stopping.load(std::memory_order_acquire); }
    // The same, for a GScanWindow.
    const std::atomic<bool>& StopFlag() const { return stopping; }
    // Waits for `pause`; false when the thread has to stop, which it learns at once.
    bool Pause(std::chrono::milliseconds pause) { return !WaitRequest(static_cast<DWORD>(pause.count())); }
    // Something was added to the index.
    void Advanced() G_EXCLUDES(lock);
    // All of the file as it is now is indexed: only growth can add to it. And: there is more again.
    void SetCaughtUp(bool caughtUp) { SetState(caughtUp ? GState::CaughtUp : GState::Scanning); }

private:
    enum class GState : std::uint8_t { Scanning, CaughtUp, Finished };

    DWORD ThreadProc() override;
    void SetState(GState next) G_EXCLUDES(lock);

    const char* const name;
    std::unique_ptr<GFileBase> file;  // index thread, from Start to its end
    std::string filePath;             // set before the thread starts
    std::atomic<bool> stopping{false};
    std::atomic<GState> state{GState::Finished};
    mutable GMutex lock;
    mutable GCondition advanced;
    std::uint64_t progress G_GUARDED_BY(lock) = 0;
};

}  // namespace vex
