// The part of GTestGraph that puts a decoder of the system's behind our pin.
#include <memory>
#include <optional>

#include "windows/support.h"
#include "windows/test_graph.h"

#include <dmodshow.h>
#include <qedit.h>

namespace vex::wintest {

namespace {

constexpr CLSID kMp3Decoder{0xBBEEA841, 0x0A63, 0x4F52, {0xA7, 0xAB, 0xA9, 0xB3, 0xA8, 0x4E, 0xD3, 0x8A}};
constexpr CLSID kDmoWrapper{0x94297043, 0xBD82, 0x4DFD, {0xB0, 0xDE, 0x81, 0x77, 0x73, 0x9C, 0x6D, 0x20}};
constexpr IID kDmoWrapperInterface{0x52D6F586, 0x9F0F, 0x4824, {0x8F, 0xC8, 0xE3, 0x2C, 0xA0, 0x49, 0x30, 0xC2}};
constexpr GUID kAudioDecoders{0x57F2DB8B, 0xE6BB, 0x4513, {0x9D, 0x43, 0xDC, 0xD2, 0xA6, 0x59, 0x31, 0x25}};

// The first type that the pin offers and `wanted` says yes to.
template <class Wanted>
std::optional<CMediaType> FindType(IPin& pin, Wanted&& wanted)
{
    GComPtr<IEnumMediaTypes> types;
    Check(pin.EnumMediaTypes(types.Put()), "EnumMediaTypes");
    AM_MEDIA_TYPE* offered = nullptr;
    while (types->Next(1, &offered, nullptr) == S_OK) {
        const std::unique_ptr<AM_MEDIA_TYPE, decltype(&DeleteMediaType)> owned(offered, DeleteMediaType);
        if (CMediaType type(*offered); wanted(type))
            return type;
    }
    return std::nullopt;
}

bool IsRgb24(const CMediaType& type) { return type.subtype == MEDIASUBTYPE_RGB24; }

bool IsPcm16(const CMediaType& type)
{
    return type.subtype == MEDIASUBTYPE_PCM && type.formattype == FORMAT_WaveFormatEx &&
           reinterpret_cast<const WAVEFORMATEX*>(type.pbFormat)->wBitsPerSample == 16;
}

}  // namespace

GComPtr<IPin> GTestGraph::FirstPinOf(REFGUID majorType)
{
    for (const auto& pin : PinsOf(*source, PINDIR_OUTPUT)) {
        if (FindType(*pin, [&](const CMediaType& type) { return type.majortype == majorType; }))
            return pin;
    }
    throw GTestFailure("the file has no pin for the decoder");
}

GComPtr<IBaseFilter> GTestGraph::AddMp3Decoder()
{
    GComPtr<IBaseFilter> filter;
    Check(CoCreateInstance(kDmoWrapper, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, filter.PutVoid()),
          "creating the wrapper of decoder objects");
    // It has pins only when it knows its decoder.
    const auto wrapper = QueryFor<IDMOWrapperFilter>(filter.Get(), kDmoWrapperInterface);
    Require(static_cast<bool>(wrapper), "the wrapper has no IDMOWrapperFilter");
    Check(wrapper->Init(kMp3Decoder, kAudioDecoders), "the MP3 decoder object");
    Check(graph->AddFilter(filter.Get(), L"MP3 decoder"), "adding the MP3 decoder");
    return filter;
}

GComPtr<IBaseFilter> GTestGraph::AddRgbGrabber()
{
    const auto grabber = AddSystemFilter(kSampleGrabber, L"sample grabber");
    const auto settings = QueryFor<ISampleGrabber>(grabber.Get(), IID_ISampleGrabber);
    Require(static_cast<bool>(settings), "the sample grabber has no settings");
    AM_MEDIA_TYPE rgb{};
    rgb.majortype = MEDIATYPE_Video;
    rgb.subtype = MEDIASUBTYPE_RGB24;
    Check(settings->SetMediaType(&rgb), "SetMediaType of the sample grabber");
    return grabber;
}

CMediaType GTestGraph::ConnectDecoded(GDecoder decoder)
{
    const bool audio = decoder == GDecoder::Mp3Audio;
    const auto pin = FirstPinOf(audio ? MEDIATYPE_Audio : MEDIATYPE_Video);
    const auto log = std::make_shared<GPinLog>(PinName(*pin), kept);
    logs.push_back(log);
    const auto sink = AddSink(log);

    GComPtr<IBaseFilter> filter;
    if (decoder == GDecoder::AviVideo)
        filter = AddSystemFilter(CLSID_AVIDec, L"AVI decompressor");
    else
        filter = audio ? AddMp3Decoder() : AddRgbGrabber();
    const auto in = OnlyPin(*filter, PINDIR_INPUT);
    // Connect may put filters in between, ConnectDirect may not.
    Check(decoder == GDecoder::Automatic ? graph->Connect(pin.Get(), in.Get())
                                         : graph->ConnectDirect(pin.Get(), in.Get(), nullptr),
          "connecting pin \"" + log->name + "\" to the decoder");
    const auto out = OnlyPin(*filter, PINDIR_OUTPUT);
    // The sink takes whatever comes first, so the type is chosen here.
    const auto type = FindType(*out, audio ? IsPcm16 : IsRgb24);
    Require(type.has_value(), audio ? "the decoder offers no PCM of 16 bits" : "the decoder offers no RGB24");
    Check(graph->ConnectDirect(out.Get(), sink.Get(), &*type), "connecting the decoder to the sink");
    SetPace(GPace::Free);
    CMediaType agreed;
    Check(sink->ConnectionMediaType(&agreed), "ConnectionMediaType of the sink");
    return agreed;
}

}  // namespace vex::wintest
