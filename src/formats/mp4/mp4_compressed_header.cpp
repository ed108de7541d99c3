#include "formats/mp4/mp4_compressed_header.h"

#include <zlib.h>

#include <algorithm>

#include "formats/mp4/mp4_box_reader.h"
#include "io/byte_reader.h"
#include "io/cache_file.h"
#include "platform/on_exit.h"
#include "platform/temp_files.h"
#include "platform/trace.h"

namespace vex {
namespace {

// Deflate cannot do better than this many bytes out of one.
constexpr std::uint64_t kMaxDeflateRatio = 1032;

// Empty when the bytes are not what they should be.
std::vector<std::uint8_t> Inflate(const Mp4Box& compressed)
{
    GByteReader reader(compressed.data);
    const std::uint32_t declared = reader.U32BE();
    const GBytes bytes = reader.Bytes(reader.Left());
    if (!reader.Ok() || bytes.empty() || declared == 0 || declared > kMaxInflatedHeader ||
        declared > bytes.size() * kMaxDeflateRatio)
        return {};
    std::vector<std::uint8_t> out(declared);
    uLongf size = declared;
    if (uncompress(out.data(), &size, bytes.data(), static_cast<uLong>(bytes.size())) != Z_OK)
        return {};
    out.resize(size);
    return out;
}

bool WriteFile(const std::string& path, GBytes bytes)
{
    GOsFile file;
    return file.CreateForWriting(path.c_str()) &&
           file.WriteAt(0, bytes.data(), static_cast<std::uint32_t>(bytes.size())) ==
               static_cast<std::int64_t>(bytes.size());
}

}  // namespace

void ExpandCompressedHeader(GMp4BoxTree& tree, GDamageLog& damage, const std::atomic<bool>& interrupted)
{
    Mp4Box* holder = tree.GetBox("/moov");
    if (!holder)
        holder = tree.GetBox("/foov");
    const Mp4Box* const header = holder ? GMp4BoxTree::GetBox(*holder, "cmov") : nullptr;
    if (!header)
        return;
    const auto fail = [&](const char* what) { damage.Add(what, static_cast<std::int64_t>(header->pos), header->size); };
    const Mp4Box* const algorithm = GMp4BoxTree::GetBox(*holder, "cmov/dcom");
    const Mp4Box* const compressed = GMp4BoxTree::GetBox(*holder, "cmov/cmvd");
    if (!algorithm || !compressed || GByteReader(algorithm->data).FourCC() != FourCC("zlib")) {
        Trace("ReadBox_cmov : %u", algorithm ? GByteReader(algorithm->data).FourCC() : 0u);
        return fail("compressed movie header is of an unknown kind");
    }
    std::vector<std::uint8_t> moov = Inflate(*compressed);
    if (moov.empty())
        return fail("compressed movie header cannot be inflated");

    GLockedTempFile temporary;
    if (!temporary.Create("tavs"))
        return fail("no temporary file for the compressed movie header");
    const GOnExit remove([&] {
        temporary.Release();
        DeleteIfUnused(temporary.Path());
    });
    if (!WriteFile(temporary.Path(), moov))
        return fail("no temporary file for the compressed movie header");
    Trace("uncompressed cmov header in %s\n", temporary.Path().c_str());
    moov = {};
    GCacheFile file;
    if (file.Open(temporary.Path().c_str()) == 0)
        return fail("no temporary file for the compressed movie header");
    holder->type = FourCC("skip");
    const std::uint64_t rootSize = tree.Root().size;
    GMp4BoxReader(file, tree, damage, interrupted).ReadRoot(0);
    tree.Root().size = rootSize;
}

}  // namespace vex
