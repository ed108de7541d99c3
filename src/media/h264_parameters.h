// The sequence parameter sets of an H.264 stream, as far as a container needs them.
#pragma once

#include <cstdint>
#include <span>

#include "io/bytes.h"

namespace vex {

// Fields that the record did not hold are 0. Of several sets the last one counts, but a field that it does not carry
// (timing, for one) keeps the value of an earlier set.
struct GH264Parameters {
    std::uint8_t profile = 0;  // profile_idc
    std::uint8_t level = 0;    // level_idc: ten times the level
    std::uint32_t width = 0;   // luma samples, after cropping; 0 when out of range
    std::uint32_t height = 0;  // of a frame

    // Video usability information
    std::uint32_t aspectX = 0;  // of one sample; 0: unspecified
    std::uint32_t aspectY = 0;
    bool hasTiming = false;
    std::uint32_t numUnitsInTick = 0;
    std::uint32_t timeScale = 0;  // Hz
    bool fixedFrameRate = false;
};

// Reads the sequence parameter sets of an AVCDecoderConfigurationRecord ("avcC"). False, with `out` all zero, when it
// ends within its six fixed bytes. Past its end it reads as zeros. The record is not required to be of version 1.
bool ReadAvcConfiguration(std::span<const std::uint8_t> avcC, GH264Parameters& out);

// Reads a sequence parameter set: a NAL unit with its header byte, without start code or length; emulation prevention
// is taken out here. False, with `out` all zero, when it is not of type 7 or ends before the size of the picture.
// Usability information that is cut off reads as zeros.
bool ReadSequenceParameterSet(GBytes unit, GH264Parameters& out);

}  // namespace vex
