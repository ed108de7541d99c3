#include "formats/ogg/ogg_comments.h"

#include <vorbis/codec.h>

#include <algorithm>
#include <string>

namespace vex {
namespace {

// libvorbis reads a comment header only behind an identification header, of which it looks at the rate.
struct GCommentReader {
    GCommentReader()
    {
        vorbis_info_init(&info);
        vorbis_comment_init(&block);
        info.rate = 1;
    }
    ~GCommentReader()
    {
        vorbis_comment_clear(&block);
        vorbis_info_clear(&info);
    }
    GCommentReader(const GCommentReader&) = delete;
    GCommentReader& operator=(const GCommentReader&) = delete;

    vorbis_info info{};
    vorbis_comment block{};
};

char Lower(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; }

}  // namespace

std::vector<GOggComment> ListComments(const vorbis_comment& block)
{
    std::vector<GOggComment> comments;
    for (int i = 0; i < block.comments; ++i) {
        const std::string_view text(block.user_comments[i], static_cast<std::size_t>(block.comment_lengths[i]));
        const std::size_t equals = text.find('=');
        if (equals == std::string_view::npos || equals == 0)
            continue;
        GOggComment comment{std::string(text.substr(0, equals)), std::string(text.substr(equals + 1))};
        std::ranges::transform(comment.name, comment.name.begin(), Lower);
        comments.push_back(std::move(comment));
    }
    return comments;
}

std::optional<std::vector<GOggComment>> ReadComments(GBytes packet, bool framed)
{
    constexpr std::string_view kVorbisHead = "\x03vorbis";
    if (packet.size() < kVorbisHead.size())
        return std::nullopt;
    std::vector<std::uint8_t> header(packet.begin(), packet.end());
    std::ranges::copy(kVorbisHead, header.begin());
    if (!framed)
        header.push_back(1);
    GCommentReader reader;
    ogg_packet raw{};
    raw.packet = header.data();
    raw.bytes = static_cast<long>(header.size());
    if (vorbis_synthesis_headerin(&reader.info, &reader.block, &raw) != 0)
        return std::nullopt;
    return ListComments(reader.block);
}

std::string_view FindComment(const std::vector<GOggComment>& comments, std::string_view name)
{
    const auto found = std::ranges::find(comments, name, &GOggComment::name);
    return found != comments.end() ? std::string_view(found->value) : std::string_view();
}

}  // namespace vex
