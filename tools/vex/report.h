// Results on standard output, everything else on standard error.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "host/host_graph.h"

namespace vex {

using GJson = nlohmann::ordered_json;

// The version of what --json prints; it changes when a key goes away or changes its meaning.
inline constexpr int kJsonSchema = 1;

// What went wrong with which file.
struct GProblem {
    std::string file;  // as the user named it; empty when no file is to blame
    std::string message;
    HRESULT code = S_OK;                  // S_OK when no result code says more
    std::optional<std::uint64_t> offset;  // bytes from the start of the file, where it is known
};

// "vex: FILE: message" on standard error.
void Complain(const GProblem& problem);
void Complain(std::string_view message);

// {"file":..., "message":..., "code":..., "offset":...}; null where there is none.
GJson ProblemJson(const GProblem& problem);

// Bytes to standard output, as they are.
void Print(std::string_view text);
// A whole JSON document and a line end. Text that is not UTF-8 is repaired.
void PrintDocument(const GJson& document);
// False, after a complaint, when not all of what was printed could be written.
bool FinishOutput();

// A document about files, with its schema version.
GJson FilesDocument(GJson files);
GJson FileDocument(GJson file);  // about one
GJson FailureDocument(const std::string& file, const GProblem& problem);

// A text for people with its control characters escaped: names and titles come from files, and must not steer a
// terminal.
std::string OneLine(std::string_view raw);
// The same of a JSON string; anything else as JSON writes it.
std::string ValueText(const GJson& value);

GJson JsonTime(REFERENCE_TIME time);      // null for kNoTime
GJson JsonText(const std::string& text);  // null for an empty text

}  // namespace vex
