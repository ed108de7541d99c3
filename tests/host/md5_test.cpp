#include "host/md5.h"

#include <gtest/gtest.h>

#include <string_view>

namespace vex::test {

TEST(Md5, PiecesOfAnyLengthGiveThePublishedDigestOfTheWhole)
{
    // RFC 1321, appendix A.5: texts whose padding fits their last block, and one whose padding takes another.
    constexpr std::pair<std::string_view, std::string_view> kCases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [text, digest] : kCases) {
        const std::span whole(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
        for (std::size_t piece = 1; piece <= 80; ++piece) {
            GMd5 md5;
            for (std::size_t at = 0; at < whole.size(); at += piece)
                md5.Update(whole.subspan(at, std::min(piece, whole.size() - at)));
            EXPECT_EQ(HexText(md5.Finish()), digest) << "in pieces of " << piece;
        }
    }
}

}  // namespace vex::test
