// The frames of a raw audio file (MP3, ADTS): one after the other, with resynchronisation behind damage.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>
#include <utility>

#include "io/scan_window.h"
#include "media/id3.h"
#include "media/trailing_tags.h"
#include "platform/trace.h"

namespace vex {

// A range of the file that was skipped.
struct GFrameLoss {
    std::int64_t position = 0;  // bytes
    std::uint64_t bytes = 0;
    bool cutOff = false;  // a frame that claims more than the file has left
};

enum class GFrameStep : std::uint8_t {
    Frame,
    Passed,  // see Loss
    Again,   // a search goes on: at most kSearchStep bytes at a time
    End,
};

// `Syntax` says what a frame looks like:
//   using Header                               the decoded header
//   kHeaderSize, kMaxFrameSize                 bytes; a frame and the header behind it fit half a window
//   kNeedsSuccessor                            a frame is delivered only when a header follows it, or the end
//   kLastStandsAlone                           the end of the data confirms a frame in a search, as a header does
//   kNoHeader, kNothingFound, kNoNextHeader    trace lines
//   static std::optional<Header> Decode(GBytes bytes)
//   static std::size_t FrameSize(const Header&)   at least kHeaderSize
//   static bool MayBegin(GBytes bytes)         a header may begin with these bytes: 3, or fewer at the end of the file
template <class Syntax>
class GFrameReader {
public:
    using Header = typename Syntax::Header;

    // Both outlive the reader. `interrupt` ends a search between two blocks.
    GFrameReader(GFileBase& byteSource, const std::atomic<bool>& interrupt)
        : window(byteSource, &interrupt), source(byteSource)
    {
    }

    GScanWindow& Window() { return window; }

    // Begins anew with the file as it is now.
    void Reset()
    {
        window.Forget();
        end = source.GetSize();
        GoTo(0);
    }
    // Leaves out the tags at the end of the file. A claim that reaches below `least` is not believed.
    void TrimTags(std::int64_t least)
    {
        const std::int64_t look = std::min<std::int64_t>(end, kTrailingTagsLook);
        const std::uint64_t tags = TrailingTagsSize(window.At(end - look, static_cast<std::size_t>(look)));
        if (end >= least && tags <= static_cast<std::uint64_t>(end - least))
            end -= static_cast<std::int64_t>(tags);
    }
    // Where the frames end, bytes.
    std::int64_t End() const { return end; }

    // The next frame begins at `target`.
    void GoTo(std::int64_t target)
    {
        position = std::min(target, end);
        searching = false;
    }
    // The next frame is the first one that a search from `target` finds. What it passes over is not lost.
    void SearchFrom(std::int64_t target)
    {
        GoTo(target);
        searching = true;
        lossStart = -1;
    }

    GFrameStep Next();

    // Of the last step that was Frame. The bytes are fewer than the frame's size when they cannot be read.
    const Header& FrameHeader() const { return header; }
    std::int64_t FramePosition() const { return framePosition; }
    GBytes FrameBytes() { return window.At(framePosition, Syntax::FrameSize(header)); }
    // Of the last step that was Passed.
    const GFrameLoss& Loss() const { return loss; }

    // The first frame in [from, until) that another one, or the end, follows; ID3v2 tags are skipped. NotFound comes
    // with the position to go on at.
    GScanResult FindFrame(std::int64_t from, std::int64_t until);
    // The size of the ID3v2 tag at `at`; 0 without one, or when it claims more than the file has.
    std::int64_t TagSize(std::int64_t at)
    {
        const auto size = Id3TagSize(window.At(at, kId3HeaderSize));
        return size && *size <= end - at ? *size : 0;
    }
    // Whether the frame of `found` at `at` ends where the next one begins, or where the data ends.
    bool IsFollowed(std::int64_t at, const Header& found);

private:
    static constexpr std::int64_t kSearchStep = 1 << 20;  // bytes

    bool IsFrame(const Header& found)
    {
        const auto size = static_cast<std::int64_t>(Syntax::FrameSize(found));
        return size <= end - position && (!Syntax::kNeedsSuccessor || IsFollowed(position, found));
    }
    GFrameStep LoseSync(const std::optional<Header>& found);
    GFrameStep Search();
    GFrameStep Finish();
    GFrameStep Pass(std::int64_t from, std::int64_t to, bool cutOff)
    {
        loss = {from, static_cast<std::uint64_t>(to - from), cutOff};
        return GFrameStep::Passed;
    }

    GScanWindow window;
    GFileBase& source;
    std::int64_t end = 0;
    std::int64_t position = 0;
    bool searching = false;  // from `position` on
    std::int64_t lossStart = -1;
    bool lossClaimsMore = false;
    Header header{};
    std::int64_t framePosition = 0;
    GFrameLoss loss;
};

template <class Syntax>
GFrameStep GFrameReader<Syntax>::Next()
{
    if (searching) [[unlikely]]
        return Search();
    if (end - position < static_cast<std::int64_t>(Syntax::kHeaderSize)) [[unlikely]]
        return Finish();
    const auto found = Syntax::Decode(window.At(position, Syntax::kHeaderSize));
    if (!found || !IsFrame(*found)) [[unlikely]]
        return LoseSync(found);
    header = *found;
    framePosition = position;
    position += static_cast<std::int64_t>(Syntax::FrameSize(header));
    return GFrameStep::Frame;
}

template <class Syntax>
GFrameStep GFrameReader<Syntax>::LoseSync(const std::optional<Header>& found)
{
    if (const std::int64_t tag = TagSize(position); tag > 0) {  // files joined with their tags
        position += tag;
        return GFrameStep::Again;
    }
    lossClaimsMore = found && static_cast<std::int64_t>(Syntax::FrameSize(*found)) > end - position;
    if (lossClaimsMore && !Syntax::kNeedsSuccessor)
        return Pass(std::exchange(position, end), end, true);
    lossStart = position++;
    searching = true;
    return Search();
}

template <class Syntax>
GFrameStep GFrameReader<Syntax>::Search()
{
    const GScanResult result = FindFrame(position, std::min(end, position + kSearchStep));
    if (result.end == GScanEnd::Interrupted)
        return GFrameStep::Again;
    position = std::min(result.position, end);
    if (!result.Found() && position < end)
        return GFrameStep::Again;
    searching = false;
    return lossStart < 0 ? GFrameStep::Again : Pass(lossStart, position, lossClaimsMore && !result.Found());
}

template <class Syntax>
GFrameStep GFrameReader<Syntax>::Finish()
{
    if (position < end)
        return Pass(std::exchange(position, end), end, true);
    Trace(Syntax::kNoNextHeader);
    return GFrameStep::End;
}

template <class Syntax>
bool GFrameReader<Syntax>::IsFollowed(std::int64_t at, const Header& found)
{
    const std::size_t size = Syntax::FrameSize(found);
    const std::int64_t left = end - at - static_cast<std::int64_t>(size);
    // One look at both, so that the window stays where the search is.
    const GBytes bytes = window.At(at, size + Syntax::kHeaderSize);
    if (left < 0 || bytes.size() < size)
        return false;
    if (left >= static_cast<std::int64_t>(Syntax::kHeaderSize))
        return Syntax::Decode(bytes.subspan(size)).has_value();
    return Syntax::kLastStandsAlone;  // too little is left for a header
}

template <class Syntax>
GScanResult GFrameReader<Syntax>::FindFrame(std::int64_t from, std::int64_t until)
{
    std::int64_t at = from;
    while (at < until) {
        if (const std::int64_t tag = TagSize(at); tag > 0) {
            at += tag;
            continue;
        }
        const auto found = Syntax::Decode(window.At(at, Syntax::kHeaderSize));
        if (found && IsFollowed(at, *found))
            return {GScanEnd::Found, at};
        const GScanResult next = window.FindForward(at + 1, until, 3, Syntax::MayBegin);
        if (!next.Found()) {
            if (until == end && next.end == GScanEnd::NotFound)
                Trace(end - at < static_cast<std::int64_t>(Syntax::kHeaderSize) ? Syntax::kNoHeader
                                                                                : Syntax::kNothingFound);
            return {next.end, until};
        }
        at = next.position;
        const GBytes bytes = window.At(at, 3);
        if (bytes.size() == 3)
            Trace("FIND %X %X - %X\n", unsigned{bytes[0]}, unsigned{bytes[1]}, unsigned{bytes[2]});
    }
    if (at >= end)
        Trace(Syntax::kNoHeader);
    return {GScanEnd::NotFound, at};
}

}  // namespace vex
