#include "platform/com.h"

extern "C" [[gnu::visibility("default")]] HRESULT RaiseError(OLECHAR* text)
{
    vex::GComPtr<ICreateErrorInfo> error;
    if (FAILED(CreateErrorInfo(error.Put())))
        return E_OUTOFMEMORY;
    error->SetDescription(text);
    SetErrorInfo(0, vex::QueryFor<IErrorInfo>(error.Get(), IID_IErrorInfo).Get());
    return E_FAIL;
}
