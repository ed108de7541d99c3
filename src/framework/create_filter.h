// The class factory's creation function of a filter.
#pragma once

#include <new>

#include "dshow/unknown.h"
#include "platform/trace.h"

namespace vex {

// `Filter` is constructed from its outer unknown alone.
template <class Filter>
CUnknown* CreateFilter(IUnknown* outer, HRESULT* result)
{
    Trace("CreateInstance\n");
    auto* filter = new (std::nothrow) Filter(outer);
    if (!filter)
        *result = E_OUTOFMEMORY;
    return filter;
}

}  // namespace vex
