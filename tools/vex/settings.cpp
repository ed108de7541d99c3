#include "tools/vex/settings.h"

namespace vex {

namespace {

constexpr unsigned kFilters = CommandBit(GCommand::Filters);
constexpr unsigned kProbe = CommandBit(GCommand::Probe);
constexpr unsigned kPlay = CommandBit(GCommand::Play);
constexpr unsigned kDump = CommandBit(GCommand::Dump);
constexpr unsigned kSeek = CommandBit(GCommand::Seek);
constexpr unsigned kExtract = CommandBit(GCommand::Extract);
constexpr unsigned kPlaying = kPlay | kDump | kSeek | kExtract;

constexpr GCommandRow kCommands[] = {
    {GCommand::Filters, "filters", "", "List the filters",
     "Lists the filters of the module with their short names, class identifiers and formats, and whether this build "
     "can create them."},
    {GCommand::Probe, "probe", "FILE...", "Show what is in files",
     "Shows what each FILE holds: container, duration, and a line for every output pin with its codec, picture or "
     "sound format, bit rate and language; with --verbose also the media types and their fields. Nothing is played; "
     "of a large file little more than its headers and index is read."},
    {GCommand::Play, "play", "FILE", "Play a file to its end",
     "Runs FILE through its filter to the end, as fast as it can be read, and prints what each pin delivered. Progress "
     "is shown while standard error is a terminal."},
    {GCommand::Dump, "dump", "FILE", "List every sample",
     "Lists every sample of FILE: pin, times in units of 100 ns, size, flags and the MD5 digest of the payload. "
     "Samples are grouped by pin."},
    {GCommand::Seek, "seek", "FILE TIME...", "Show where seeks land",
     "Plays FILE, seeks to each TIME in turn, and shows for every pin which position was reached and the first samples "
     "from there."},
    {GCommand::Extract, "extract", "FILE", "Write out payloads",
     "Writes the payload of one pin, or of every pin, in a form that other tools read: H.264 as Annex B with its "
     "parameter sets, AAC as ADTS, Vorbis as Ogg, text subtitles as SubRip or SubStation Alpha, everything else as it "
     "is. Without --pin the output is a directory; with --pin and without --output it is standard output."},
};

constexpr GOptionRow kOptions[] = {
    {"", "json", "", GValueKind::None, kFilters | kProbe | kPlaying, "Print the result as JSON", &GSettings::json},
    {"v", "verbose", "", GValueKind::None, kProbe, "Show the fields of every media type and all facts of the file",
     &GSettings::verbose},
    {"", "hash", "", GValueKind::None, kPlay,
     "Show the MD5 digest of all payload bytes of each pin, in order, to compare with another tool's stream hash",
     &GSettings::hash},
    {"", "csv", "", GValueKind::None, kDump, "Print the samples as comma-separated values", &GSettings::csv},
    {"f", "filter", "NAME", GValueKind::Filter, kProbe | kPlaying,
     "Open with this filter (short name, full name or class identifier) instead of the one the file's first bytes or "
     "its extension call for",
     &GSettings::filter},
    {"", "module", "FILE", GValueKind::File, kFilters | kProbe | kPlaying,
     "Take the filters from this module file instead of the built-in ones", &GSettings::module},
    {"p", "pin", "N", GValueKind::Text, kPlay | kDump | kExtract, "Connect this pin only, counted from 0",
     &GSettings::pin},
    {"s", "seek", "TIME", GValueKind::Text, kPlay | kDump | kExtract, "Start at this time", &GSettings::seek},
    {"k", "key-frame-seek", "", GValueKind::None, kPlaying,
     "Seeks land on a key frame, where the filter has that choice", &GSettings::keyFrameSeek},
    {"", "preroll", "", GValueKind::None, kPlaying, "Mark samples at or before the segment's start as preroll",
     &GSettings::preroll},
    {"", "no-preroll", "", GValueKind::None, kPlaying, "Do not mark preroll samples", &GSettings::noPreroll},
    {"n", "samples", "N", GValueKind::Text, kSeek, "Show this many samples after each seek (3)", &GSettings::samples},
    {"o", "output", "PATH", GValueKind::File, kExtract,
     "Write to this file (- is standard output), or for all pins into this directory", &GSettings::output},
    {"", "raw", "", GValueKind::None, kExtract, "Write the samples' bytes as they are", &GSettings::raw},
    {"", "attachments", "", GValueKind::None, kExtract, "Write the files that are attached to FILE instead of its pins",
     &GSettings::attachments},
};

}  // namespace

const char kTimeHelp[] =
    "A TIME is a number of seconds (12.5), h:mm:ss.fff or m:ss.fff (1:02:03.5), milliseconds with the suffix ms "
    "(12500ms), or units of 100 ns with the suffix hns (125000000hns).";

const char kUrlHelp[] =
    "A FILE that begins with http:// or www. is the URL of an MP4 file, which is downloaded into a temporary file "
    "first.";

const char kSummary[] = "Inspects and plays media files through the source filters of the VEX module";

const char kExitStatus[] = "0 when the file is sound, 1 when it was played but is damaged, 2 when it cannot be read or "
                           "the command was misused.";

std::span<const GCommandRow> CommandTable() { return kCommands; }

std::span<const GOptionRow> OptionTable() { return kOptions; }

}  // namespace vex
