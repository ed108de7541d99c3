// The parameter sets of an H.264 stream, as far as a container needs them.
#pragma once

#include <cstdint>
#include <span>

#include "io/bytes.h"

namespace vex {

// Fields that the record did not hold are 0. Of several sets of a kind the last one counts, but a field that it
// does not carry (timing, for one) keeps the value of an earlier set.
struct GH264Parameters {
    // Sequence parameter set
    std::uint8_t profile = 0;      // profile_idc
    std::uint8_t constraints = 0;  // the constraint_set flags, set 0 in the top bit
    std::uint8_t level = 0;        // level_idc: ten times the level
    std::uint32_t sequenceId = 0;
    std::uint32_t chromaFormat = 0;  // chroma_format_idc: 0 monochrome, 1 4:2:0, 2 4:2:2, 3 4:4:4
    bool separateColourPlanes = false;
    std::uint32_t bitDepthLuma = 0;
    std::uint32_t bitDepthChroma = 0;
    std::uint32_t log2MaxFrameNumber = 0;
    std::uint32_t pictureOrderType = 0;
    std::uint32_t log2MaxPictureOrder = 0;  // order type 0 only
    std::uint32_t referenceFrames = 0;
    bool frameNumberGaps = false;
    bool frameMacroblocksOnly = false;
    std::uint32_t codedWidth = 0;   // luma samples, before cropping; 0 when out of range
    std::uint32_t codedHeight = 0;  // of a frame
    std::uint32_t cropLeft = 0;     // luma samples
    std::uint32_t cropRight = 0;
    std::uint32_t cropTop = 0;
    std::uint32_t cropBottom = 0;
    std::uint32_t width = 0;  // luma samples, after cropping
    std::uint32_t height = 0;

    // Video usability information
    bool hasVui = false;
    std::uint32_t aspectX = 0;  // of one sample; 0: unspecified
    std::uint32_t aspectY = 0;
    bool hasTiming = false;
    std::uint32_t numUnitsInTick = 0;
    std::uint32_t timeScale = 0;  // Hz
    bool fixedFrameRate = false;
    bool hasReordering = false;           // the next two are there
    std::uint32_t reorderFrames = 0;      // max_num_reorder_frames
    std::uint32_t decodingBuffering = 0;  // max_dec_frame_buffering

    // Picture parameter set
    std::uint32_t pictureId = 0;
    std::uint32_t pictureSequenceId = 0;
    bool entropyCabac = false;
    bool bottomFieldOrder = false;  // bottom_field_pic_order_in_frame_present
    std::uint32_t sliceGroups = 0;
};

// Reads an AVCDecoderConfigurationRecord ("avcC"). False, with `out` all zero, when it ends within its six fixed
// bytes. Past its end it reads as zeros. The record is not required to be of version 1.
bool ReadAvcConfiguration(std::span<const std::uint8_t> avcC, GH264Parameters& out);

// Reads a sequence parameter set: a NAL unit with its header byte, without start code or length; emulation prevention
// is taken out here. False, with `out` all zero, when it is not of type 7 or ends before the size of the picture.
// Usability information that is cut off reads as zeros.
bool ReadSequenceParameterSet(GBytes unit, GH264Parameters& out);

}  // namespace vex
