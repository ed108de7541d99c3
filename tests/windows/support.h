// What the Windows test programs share: failing with a reason, and the system's texts.
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/host_graph.h"  // ResultText, TakeText
#include "platform/com.h"
#include "platform/text.h"

namespace vex::wintest {

// Longest wait for anything that another thread owes, in ms. Far beyond what any of it takes: only a hang reaches it.
inline constexpr DWORD kPatienceMs = 120'000;

// A test did not hold; the text says what and, where there is one, with which result.
struct GTestFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Throws unless `result` is a success code.
void Check(HRESULT result, std::string_view what);
// Throws unless `holds`.
void Require(bool holds, std::string_view what);

// Reads the braced text of a GUID; throws when it is none.
GUID ParseGuid(const std::wstring& text);

// Takes the calling thread's error object: its description, or an empty text.
std::string TakeErrorText();

// Runs a program's body: initialises COM, makes stdout binary, turns a failure into a line on stderr and exit status 1.
// A program that came to its end says "done" on stderr.
int RunProgram(int (*body)(std::span<wchar_t*> arguments), int argc, wchar_t** argv);

}  // namespace vex::wintest
