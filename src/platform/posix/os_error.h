// What the system says went wrong, as callers of the Windows functions know it.
#pragma once

#include <cerrno>

#include "platform/types.h"

namespace vex {

inline constexpr std::uint32_t kErrorFileNotFound = 2;
inline constexpr std::uint32_t kErrorPathNotFound = 3;
inline constexpr std::uint32_t kErrorTooManyOpenFiles = 4;
inline constexpr std::uint32_t kErrorAccessDenied = 5;
inline constexpr std::uint32_t kErrorGenFailure = 31;
inline constexpr std::uint32_t kErrorDiskFull = 112;
inline constexpr std::uint32_t kErrorInsufficientBuffer = 122;
inline constexpr std::uint32_t kErrorModNotFound = 126;
inline constexpr std::uint32_t kErrorFilenameExcedRange = 206;
inline constexpr std::uint32_t kErrorBadDb = 1009;

inline HRESULT HResultFromErrno(int error)
{
    switch (error) {
    case 0:
        return S_OK;
    case ENOENT:
        return HResultFromOsError(kErrorFileNotFound);
    case ENOTDIR:
    case ELOOP:
        return HResultFromOsError(kErrorPathNotFound);
    case EMFILE:
    case ENFILE:
        return HResultFromOsError(kErrorTooManyOpenFiles);
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
        return HResultFromOsError(kErrorAccessDenied);
    case ENOMEM:
        return E_OUTOFMEMORY;
    case ENOSPC:
    case EDQUOT:
        return HResultFromOsError(kErrorDiskFull);
    case ENAMETOOLONG:
        return HResultFromOsError(kErrorFilenameExcedRange);
    default:
        return HResultFromOsError(kErrorGenFailure);
    }
}

}  // namespace vex
