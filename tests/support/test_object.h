// What every COM object made for a test needs and no test is about.
#pragma once

#include <atomic>

#include "platform/com.h"

namespace vex::test {

// Born with one reference, gone with the last. Answers no interface; a derived class that is asked says its own.
template <class... Interfaces>
class GTestObject : public Interfaces... {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override
    {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --references;
        if (left == 0)
            delete this;
        return left;
    }
    ULONG References() const { return references; }

protected:
    virtual ~GTestObject() = default;

private:
    std::atomic<ULONG> references{1};
};

}  // namespace vex::test
