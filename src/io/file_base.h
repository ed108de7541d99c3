// What every container reads its input through: a synchronous byte source with one position.
#pragma once

#include <cstdint>
#include <memory>

#include "io/result.h"

namespace vex {

// Used by one thread at a time; callers that have several serialise them. Positions and sizes are in bytes from the
// first byte of the source. All operations are harmless on a closed source. Only NewInstance may throw
// (std::bad_alloc).
class GFileBase {
public:
    GFileBase() = default;
    GFileBase(const GFileBase&) = delete;
    GFileBase& operator=(const GFileBase&) = delete;
    virtual ~GFileBase() = default;

    // A closed source of the same class, or null when the class cannot make one.
    virtual std::unique_ptr<GFileBase> NewInstance() const { return nullptr; }

    // 1, or 0 with the source left closed. A source that is open is closed first. The path is narrow (see GOsFile).
    virtual int Open(const char* path) = 0;

    // The number of bytes delivered. Fewer than `count` is the end of the data or a failure, which look alike here.
    virtual std::uint32_t Read(void* buffer, std::uint32_t count) = 0;

    // Moves to an absolute position and returns the one reached.
    virtual std::int64_t Seek(std::int64_t offset) = 0;

    // The same for every source on a disk: positions can be chosen freely, and no byte has yet to arrive.
    virtual int IsSeekable() const { return 1; }
    virtual int IsPending(std::int64_t /*offset*/) const { return 0; }

    virtual std::int64_t Tell() = 0;
    // As the source knows it now, so it may grow between two calls.
    virtual std::int64_t GetSize() = 0;
    // Always 1, also when nothing was open.
    virtual int Close() = 0;

    // As Read, for a payload that is used once: what is not cached goes straight into the buffer in one system call,
    // however long it is.
    virtual std::uint32_t ReadBulk(void* buffer, std::uint32_t count) { return Read(buffer, count); }

    // Whether ReadAt works.
    virtual bool ReadsAnywhere() const { return false; }
    // `count` bytes at `offset`, past every cache, from any thread and beside all other reads; the bytes read, as Read.
    // Not beside Open, Create and Close.
    virtual std::uint32_t ReadAt(std::int64_t /*offset*/, void* /*buffer*/, std::uint32_t /*count*/) { return 0; }

    // Why the last Open or Create failed. Says nothing of use after one that did not.
    virtual GError OpenError() const { return {GErrorKind::Io, "the file cannot be opened"}; }

    // Opens for writing, emptying what is there: 1, or 0 with the source left closed.
    virtual int Create(const char* /*path*/) { return 0; }
};

}  // namespace vex
