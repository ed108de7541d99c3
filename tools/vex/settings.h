// What the command line asked for, and the tables that describe what it may ask.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "platform/pipeline.h"

namespace vex {

enum class GCommand : std::uint8_t { Filters, Probe, Play, Dump, Seek, Extract };

struct GSettings {
    GCommand command = GCommand::Filters;
    std::vector<std::string> files;  // UTF-8
    std::vector<std::string> times;  // of `seek`, as written
    std::string filter;
    std::string module;
    std::string seek;  // as written; empty: none
    std::string output;
    std::optional<std::uint32_t> pin;
    std::optional<std::uint32_t> samples;
    bool json = false;
    bool csv = false;
    bool keyFrameSeek = false;
    bool preroll = false;
    bool noPreroll = false;
    bool raw = false;
    bool attachments = false;
    bool verbose = false;
    bool hash = false;
};

constexpr unsigned CommandBit(GCommand command) { return 1u << static_cast<unsigned>(command); }

// What a positional argument or an option's value is, for the shells that complete it.
enum class GValueKind : std::uint8_t { None, File, Filter, Text };

struct GOptionRow {
    const char* letter;  // "o" for -o, or empty
    const char* name;    // without the dashes
    const char* value;   // how the value is called; empty for a flag
    GValueKind kind;
    unsigned commands;  // CommandBit of each that has it
    const char* help;
    std::variant<bool GSettings::*, std::string GSettings::*, std::optional<std::uint32_t> GSettings::*> target;
};

struct GCommandRow {
    GCommand command;
    const char* name;
    const char* arguments;  // as in the usage line
    const char* help;       // one line
    const char* description;
};

std::span<const GCommandRow> CommandTable();
std::span<const GOptionRow> OptionTable();

// What a TIME may look like, for help and manual.
extern const char kTimeHelp[];
// What a FILE may be besides a file.
extern const char kUrlHelp[];
extern const char kSummary[];     // the program in a line
extern const char kExitStatus[];  // what the exit statuses mean

inline constexpr std::uint32_t kMostSamples = 100'000;  // that --samples may ask for

// Exit statuses of the program.
inline constexpr int kSound = 0;
inline constexpr int kDamaged = 1;
inline constexpr int kUnusable = 2;

}  // namespace vex
