#include "host/md5.h"

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

namespace vex::test {

namespace {

std::string Digest(std::string_view text)
{
    return HexText(GMd5::Of({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}));
}

}  // namespace

// The suite of RFC 1321, appendix A.5.
TEST(Md5, MatchesThePublishedDigests)
{
    EXPECT_EQ(Digest(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(Digest("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(Digest("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(Digest("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, PiecesOfAnyLengthGiveTheDigestOfTheWhole)
{
    std::vector<std::uint8_t> bytes(300);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
        const std::span whole = std::span(bytes).first(length);
        for (const std::size_t piece : {1u, 55u, 63u, 64u, 65u, 128u}) {
            GMd5 md5;
            for (std::size_t at = 0; at < length; at += piece)
                md5.Update(whole.subspan(at, std::min(piece, length - at)));
            ASSERT_EQ(md5.Finish(), GMd5::Of(whole)) << length << " bytes in pieces of " << piece;
        }
    }
}

}  // namespace vex::test
