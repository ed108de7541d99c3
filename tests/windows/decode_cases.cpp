#include "windows/decode_cases.h"

#include <cstdio>
#include <memory>

#include "windows/support.h"

namespace vex::wintest {

namespace {

struct GFileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using GOutputFile = std::unique_ptr<std::FILE, GFileCloser>;

void PrintType(const CMediaType& type)
{
    if (type.formattype == FORMAT_VideoInfo) {
        const auto& header = reinterpret_cast<const VIDEOINFOHEADER*>(type.pbFormat)->bmiHeader;
        std::printf("{\"width\":%ld,\"height\":%ld,\"bits\":%d}\n", header.biWidth, header.biHeight, header.biBitCount);
        return;
    }
    Require(type.formattype == FORMAT_WaveFormatEx, "the decoder gives neither pictures nor sound");
    const auto& wave = *reinterpret_cast<const WAVEFORMATEX*>(type.pbFormat);
    std::printf("{\"rate\":%lu,\"channels\":%d,\"bits\":%d}\n", wave.nSamplesPerSec, wave.nChannels,
                wave.wBitsPerSample);
}

void Write(const std::vector<GSampleRecord>& samples, std::size_t most, const std::string& seek, std::FILE* output)
{
    for (const auto& sample : samples) {
        if (most-- == 0)
            break;
        Require(std::fwrite(sample.bytes.data(), 1, sample.bytes.size(), output) == sample.bytes.size(),
                "the decoded bytes cannot be written");
        std::printf("{\"seek\":%s,\"start\":%s,\"size\":%ld}\n", seek.c_str(),
                    sample.start ? std::to_string(*sample.start).c_str() : "null", sample.size);
    }
}

}  // namespace

int Decode(const GModuleAccess& access, REFCLSID clsid, GDecoder decoder, const std::wstring& file,
           const std::wstring& output, std::size_t perSeek, const std::vector<LONGLONG>& targets)
{
    const GOutputFile out(_wfopen(output.c_str(), L"wb"));
    Require(out != nullptr, "cannot write to " + Utf8FromWide(output));
    GTestGraph graph(access, clsid, GKept::Bytes);
    graph.MustLoad(file);
    PrintType(graph.ConnectDecoded(decoder));
    const auto log = graph.Logs().front();
    graph.Run();
    graph.WaitForEnd();
    graph.Stop();
    Write(log->Samples(), log->Samples().size(), "null", out.get());

    // Always to the end: the MP3 decoder of Wine 8.0 reads a null pointer when it is stopped while it decodes.
    for (const LONGLONG target : targets) {
        graph.SeekTo(target);
        graph.ClearLogs();
        graph.Run();
        graph.WaitForEnd();
        graph.Stop();
        const auto samples = log->Samples();
        Require(samples.size() >= perSeek, "too few samples after the seek to " + std::to_string(target));
        Write(samples, perSeek, std::to_string(target), out.get());
    }
    return 0;
}

}  // namespace vex::wintest
