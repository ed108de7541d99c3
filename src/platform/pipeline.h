// The media pipeline: interfaces of filters, pins, allocators, samples and seeking, and their result codes.
#pragma once

#include "platform/com.h"
#include "platform/guids.h"
#include "platform/media_records.h"

#ifdef _WIN32

#include <evcode.h>
#include <strmif.h>
#include <vfwmsgs.h>

#else

#include "platform/posix/pipeline_interfaces.h"

inline constexpr HRESULT VFW_S_NO_MORE_ITEMS = 0x00040103;
inline constexpr HRESULT VFW_S_STATE_INTERMEDIATE = 0x00040237;
inline constexpr HRESULT VFW_E_INVALIDMEDIATYPE = vex::detail::MakeResult(0x80040200u);
inline constexpr HRESULT VFW_E_ENUM_OUT_OF_SYNC = vex::detail::MakeResult(0x80040203u);
inline constexpr HRESULT VFW_E_ALREADY_CONNECTED = vex::detail::MakeResult(0x80040204u);
inline constexpr HRESULT VFW_E_NO_TYPES = vex::detail::MakeResult(0x80040206u);
inline constexpr HRESULT VFW_E_NO_ACCEPTABLE_TYPES = vex::detail::MakeResult(0x80040207u);
inline constexpr HRESULT VFW_E_INVALID_DIRECTION = vex::detail::MakeResult(0x80040208u);
inline constexpr HRESULT VFW_E_NOT_CONNECTED = vex::detail::MakeResult(0x80040209u);
inline constexpr HRESULT VFW_E_NO_ALLOCATOR = vex::detail::MakeResult(0x8004020Au);
inline constexpr HRESULT VFW_E_RUNTIME_ERROR = vex::detail::MakeResult(0x8004020Bu);
inline constexpr HRESULT VFW_E_BUFFER_OVERFLOW = vex::detail::MakeResult(0x8004020Du);
inline constexpr HRESULT VFW_E_BADALIGN = vex::detail::MakeResult(0x8004020Eu);
inline constexpr HRESULT VFW_E_ALREADY_COMMITTED = vex::detail::MakeResult(0x8004020Fu);
inline constexpr HRESULT VFW_E_BUFFERS_OUTSTANDING = vex::detail::MakeResult(0x80040210u);
inline constexpr HRESULT VFW_E_NOT_COMMITTED = vex::detail::MakeResult(0x80040211u);
inline constexpr HRESULT VFW_E_SIZENOTSET = vex::detail::MakeResult(0x80040212u);
inline constexpr HRESULT VFW_E_NOT_FOUND = vex::detail::MakeResult(0x80040216u);
inline constexpr HRESULT VFW_E_NOT_STOPPED = vex::detail::MakeResult(0x80040224u);
inline constexpr HRESULT VFW_E_NOT_RUNNING = vex::detail::MakeResult(0x80040226u);
inline constexpr HRESULT VFW_E_WRONG_STATE = vex::detail::MakeResult(0x80040227u);
inline constexpr HRESULT VFW_E_START_TIME_AFTER_END = vex::detail::MakeResult(0x80040228u);
inline constexpr HRESULT VFW_E_TYPE_NOT_ACCEPTED = vex::detail::MakeResult(0x8004022Au);
inline constexpr HRESULT VFW_E_TIMEOUT = vex::detail::MakeResult(0x8004022Eu);
inline constexpr HRESULT VFW_E_SAMPLE_TIME_NOT_SET = vex::detail::MakeResult(0x80040249u);
inline constexpr HRESULT VFW_E_MEDIA_TIME_NOT_SET = vex::detail::MakeResult(0x80040251u);
inline constexpr HRESULT VFW_E_NO_TRANSPORT = vex::detail::MakeResult(0x80040266u);
inline constexpr HRESULT VFW_S_NO_STOP_TIME = 0x00040270;

inline constexpr LONG EC_COMPLETE = 0x01;
inline constexpr LONG EC_USERABORT = 0x02;
inline constexpr LONG EC_ERRORABORT = 0x03;

#endif

// Other modules read and write these by offset. Pointers take 4 or 8 bytes.
static_assert(offsetof(AM_MEDIA_TYPE, formattype) == 44);
static_assert(offsetof(AM_MEDIA_TYPE, pUnk) == (sizeof(void*) == 8 ? 64 : 60));
static_assert(offsetof(AM_MEDIA_TYPE, pbFormat) == (sizeof(void*) == 8 ? 80 : 68));
static_assert(sizeof(AM_MEDIA_TYPE) == (sizeof(void*) == 8 ? 88 : 72));
static_assert(offsetof(PIN_INFO, achName) == (sizeof(void*) == 8 ? 12 : 8));
static_assert(offsetof(FILTER_INFO, pGraph) == 256);
static_assert(offsetof(Quality, TimeStamp) == 16);

namespace vex {

// Reference time units (100 ns) in a second.
inline constexpr REFERENCE_TIME kUnitsPerSecond = 10'000'000;

// Marks a packet or a position without a time.
inline constexpr REFERENCE_TIME kNoTime = INT64_MIN;

}  // namespace vex
