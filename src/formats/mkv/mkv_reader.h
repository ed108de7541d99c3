// A read cursor over a Matroska file with a small read-ahead buffer, so that walking element headers costs one read of
// the source for every 2048 bytes at most.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "framework/contract/damage_log.h"
#include "io/file_base.h"
#include "platform/types.h"

namespace vex {

// One thread at a time, but for Damage(). Positions and sizes are in bytes from the start of the file.
class GMkvReader {
public:
    static constexpr std::uint32_t kDefaultBufferCapacity = 2048;

    // Both outlive the reader. The source is open; its size is asked for once. With a capacity of 0 nothing is read
    // ahead.
    GMkvReader(GFileBase& openSource, GDamageLog& damageLog, std::uint32_t capacity = kDefaultBufferCapacity);

    std::int64_t FileSize() const { return fileSize; }

    // No input or output; any position may be set, but nothing can be read outside the file.
    void Seek(std::int64_t newPosition) { position = newPosition; }
    std::int64_t Tell() const { return position; }
    // Bytes from the position to the end of the file, 0 outside it.
    std::uint64_t Left() const
    {
        return position < 0 || position >= fileSize ? 0 : static_cast<std::uint64_t>(fileSize - position);
    }

    // 0 when all `count` bytes were delivered; 1 when the end of the file came first, with the bytes up to it
    // delivered; E_FAIL when the source failed. The position moves by what was delivered.
    HRESULT Read(void* destination, std::uint64_t count);
    // The same, then the bytes reversed, but only after a complete read.
    HRESULT ReadBigEndian(void* destination, std::uint64_t count);
    HRESULT ReadByte(std::uint8_t& byte)
    {
        if (position < bufferStart || position - bufferStart >= bufferLength)
            return Read(&byte, 1);
        byte = buffer[static_cast<std::size_t>(position++ - bufferStart)];
        return S_OK;
    }

    GDamageLog& Damage() { return damage; }

private:
    std::uint32_t CopyFromBuffer(std::uint8_t* destination, std::uint64_t count);
    bool ReadSource(void* destination, std::uint32_t count);
    bool FillBuffer();

    GFileBase& source;
    std::int64_t fileSize = 0;
    std::int64_t position = 0;
    std::unique_ptr<std::uint8_t[]> buffer;
    std::int64_t bufferStart = 0;  // file position of the first buffered byte
    std::int64_t bufferLength = 0;
    std::uint32_t bufferCapacity = 0;
    GDamageLog& damage;
};

}  // namespace vex
