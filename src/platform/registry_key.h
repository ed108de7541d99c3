// Which keys of the class registry may be named.
#pragma once

#include "platform/types.h"

namespace vex {

// Neither empty nor with an empty part: such a key would be the root itself, and deleting it everything.
constexpr bool IsKeyBelowRoot(WStringView key)
{
    WCHAR previous = '\\';
    for (const WCHAR character : key) {
        if (character == 0 || (character == '\\' && previous == '\\'))
            return false;
        previous = character;
    }
    return previous != '\\';
}

}  // namespace vex
