#include "formats/mkv/mkv_values.h"

#include <algorithm>
#include <bit>
#include <cstddef>

#include "formats/mkv/mkv_element.h"
#include "io/limits.h"
#include "platform/text.h"
#include "platform/trace.h"

namespace vex {
namespace {

// Where bytes are missing a value has not been read, whatever the reason.
HRESULT Complete(HRESULT result) { return result == S_OK ? S_OK : E_FAIL; }

std::optional<GMkvCodedNumber> ReadCoded(GMkvReader& reader)
{
    return ReadMkvCodedNumber([&](std::uint8_t& byte) { return reader.ReadByte(byte) == S_OK; });
}

constexpr std::uint64_t AllOnes(unsigned codedLength) { return (std::uint64_t{1} << 7 * codedLength) - 1; }

// The last eight bytes at most; nothing is read when the element claims more than there is.
HRESULT ReadUnsigned(const GMkvElement& element, std::uint64_t& value)
{
    GMkvReader& reader = *element.reader;
    std::uint64_t count = element.size.value;
    if (count > reader.Left())
        return E_FAIL;
    if (count > sizeof value) {
        reader.Seek(reader.Tell() + static_cast<std::int64_t>(count - sizeof value));
        count = sizeof value;
    }
    std::uint64_t read = 0;
    for (; count > 0; --count) {
        std::uint8_t byte = 0;
        if (reader.ReadByte(byte) != S_OK)
            return E_FAIL;
        read = read << 8 | byte;
    }
    value = read;
    return S_OK;
}

template <class Container>
HRESULT ReadData(const GMkvElement& element, std::uint64_t limit, Container& bytes)
{
    const std::uint64_t available = element.Available();
    const auto count = static_cast<std::size_t>(std::min(available, limit));
    Container read;
    read.resize(count);
    element.reader->Seek(element.dataPos);
    if (count > 0 && element.reader->Read(read.data(), count) != S_OK)
        return E_FAIL;
    bytes.swap(read);
    return available < element.size.value ? S_FALSE : S_OK;
}

}  // namespace

HRESULT CByte::Read(const GMkvElement& element)
{
    std::uint8_t byte = 0;
    if (element.reader->ReadByte(byte) != S_OK)
        return E_FAIL;
    value = byte;
    valid = 1;
    return S_OK;
}

HRESULT CShort::Read(const GMkvElement& element)
{
    std::uint8_t high = 0;
    std::uint8_t low = 0;
    if (element.reader->ReadByte(high) != S_OK || element.reader->ReadByte(low) != S_OK)
        return E_FAIL;
    value = static_cast<std::int16_t>(static_cast<std::uint16_t>(high << 8 | low));
    valid = 1;
    return S_OK;
}

HRESULT CID::Read(const GMkvElement& element)
{
    std::uint8_t first = 0;
    if (element.reader->ReadByte(first) != S_OK || first < 0x10)
        return E_FAIL;
    std::uint32_t read = first;
    for (int more = std::countl_zero(first); more > 0; --more) {
        std::uint8_t byte = 0;
        if (element.reader->ReadByte(byte) != S_OK)
            return E_FAIL;
        read = read << 8 | byte;
    }
    value = read;
    valid = 1;
    return S_OK;
}

HRESULT CLength::Read(const GMkvElement& element)
{
    const auto coded = ReadCoded(*element.reader);
    if (!coded)
        return E_FAIL;
    value = coded->value;
    unknown = coded->value == AllOnes(coded->length);
    if (unknown) {
        value = element.reader->Left();
        Trace("CLength: Unspecified chunk size at %lld (corrected to %lld)\n",
              static_cast<long long>(element.reader->Tell()), static_cast<long long>(value));
    }
    valid = 1;
    return S_OK;
}

HRESULT CSignedLength::Read(const GMkvElement& element)
{
    const auto coded = ReadCoded(*element.reader);
    if (!coded)
        return E_FAIL;
    value = static_cast<std::int64_t>(coded->value) - static_cast<std::int64_t>(AllOnes(coded->length) / 2);
    valid = 1;
    return S_OK;
}

HRESULT CUInt::Read(const GMkvElement& element)
{
    if (ReadUnsigned(element, value) != S_OK)
        return E_FAIL;
    valid = 1;
    return S_OK;
}

HRESULT CInt::Read(const GMkvElement& element)
{
    std::uint64_t bits = 0;
    if (element.size.value > sizeof bits || ReadUnsigned(element, bits) != S_OK)
        return E_FAIL;
    // Up to the top, and back with the sign.
    if (const auto unused = static_cast<unsigned>(sizeof bits - element.size.value) * 8; unused < 64)
        value = static_cast<std::int64_t>(bits << unused) >> unused;
    else
        value = 0;
    valid = 1;
    return S_OK;
}

HRESULT CFloat::Read(const GMkvElement& element)
{
    HRESULT result = E_FAIL;
    if (element.size.value == 4) {
        std::uint32_t bits = 0;
        result = Complete(element.reader->ReadBigEndian(&bits, sizeof bits));
        if (result == S_OK)
            value = static_cast<double>(std::bit_cast<float>(bits));
    } else if (element.size.value == 8) {
        std::uint64_t bits = 0;
        result = Complete(element.reader->ReadBigEndian(&bits, sizeof bits));
        if (result == S_OK)
            value = std::bit_cast<double>(bits);
    }
    if (result == S_OK)
        valid = 1;
    return result;
}

HRESULT ReadUtf8Text(const GMkvElement& element, WString& text)
{
    std::string bytes;
    const HRESULT result = ReadData(element, kMaxMkvTextSize, bytes);
    if (result < 0)
        return result;
    if (const std::size_t end = bytes.find('\0'); end != std::string::npos)
        bytes.resize(end);
    text = WideFromUtf8(bytes);
    return result;
}

HRESULT ReadAsciiText(const GMkvElement& element, std::string& text)
{
    std::string bytes;
    const HRESULT result = ReadData(element, kMaxMkvTextSize, bytes);
    if (result < 0)
        return result;
    bytes.resize(bytes.find_last_not_of('\0') + 1);
    text.swap(bytes);
    return result;
}

HRESULT ReadBinary(const GMkvElement& element, GMkvBytes& bytes)
{
    if (element.Available() > kMaxCodecDataSize)
        return E_FAIL;
    return ReadData(element, kMaxCodecDataSize, bytes);
}

}  // namespace vex
