// The C libraries that this build links, for each target from another source.
#include <gtest/gtest.h>
#include <ogg/ogg.h>
#include <vorbis/codec.h>

#include <array>
#include <cstdint>

namespace vex::test {
namespace {

TEST(CodecLibraries, AnOggPageKeepsAGranulePositionOf64Bits)
{
    constexpr ogg_int64_t kPosition = 0x0123'4567'89AB'CDEF;
    std::array<unsigned char, 300> payload{};
    payload.fill(0x5A);
    ogg_stream_state out{};
    ASSERT_EQ(ogg_stream_init(&out, 7), 0);
    out.b_o_s = 1;  // as after the first page, which never has a position
    ogg_packet packet{};
    packet.packet = payload.data();
    packet.bytes = static_cast<long>(payload.size());
    packet.granulepos = kPosition;
    ASSERT_EQ(ogg_stream_packetin(&out, &packet), 0);
    ogg_page page{};
    ASSERT_NE(ogg_stream_flush(&out, &page), 0);

    EXPECT_EQ(ogg_page_granulepos(&page), kPosition);
    ogg_stream_clear(&out);
}

TEST(CodecLibraries, AVorbisIdentificationHeaderIsRead)
{
    // Version 0, 2 channels, 44,100 Hz, blocks of 256 and 2048 samples (Vorbis I, 4.2.2).
    std::array<unsigned char, 30> header{1, 'v', 'o', 'r', 'b', 'i',  's',  0, 0, 0, 0, 2, 0x44, 0xAC, 0,
                                         0, 0,   0,   0,   0,   0x00, 0xF4, 1, 0, 0, 0, 0, 0,    0xB8, 1};
    ogg_packet packet{};
    packet.packet = header.data();
    packet.bytes = static_cast<long>(header.size());
    packet.b_o_s = 1;
    vorbis_info info{};
    vorbis_comment comment{};
    vorbis_info_init(&info);
    vorbis_comment_init(&comment);
    EXPECT_EQ(vorbis_synthesis_headerin(&info, &comment, &packet), 0);
    EXPECT_EQ(info.channels, 2);
    EXPECT_EQ(info.rate, 44'100);
    EXPECT_EQ(vorbis_info_blocksize(&info, 1), 2'048);
    vorbis_comment_clear(&comment);
    vorbis_info_clear(&info);
}

}  // namespace
}  // namespace vex::test
