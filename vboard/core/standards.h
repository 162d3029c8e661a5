// Video standards: what a source sends, by the published timings of SMPTE, ITU
// and VESA.
#pragma once

#include <cstdint>
#include <iterator>
#include <string_view>

namespace vboard {

enum class VideoSource : std::uint8_t { kNone, kComponent, kVga, kComposite };

inline constexpr std::uint8_t kNoStandardBit = 0xFF;

struct VideoStandard {
  const char* name;
  std::uint8_t bit;             // in the mask that the capture driver reports, or kNoStandardBit
  std::uint32_t fps_milli;      // frames per 1000 s
  std::uint16_t line_pixels;    // a whole line, blanking included
  std::uint16_t frame_lines;    // a whole frame, blanking included
  std::uint16_t width, height;  // of the picture
  bool interlaced;
  unsigned senders;  // sources that can send it, a bit each

  constexpr double pixel_clock_MHz() const {
    return static_cast<double>(line_pixels) * frame_lines * fps_milli / 1e9;
  }
};

constexpr unsigned sender(VideoSource source) { return 1u << static_cast<unsigned>(source); }
inline constexpr unsigned kByComponent = sender(VideoSource::kComponent);
inline constexpr unsigned kByVga = sender(VideoSource::kVga);
inline constexpr unsigned kByComposite = sender(VideoSource::kComposite);

// The capture driver tells those with a bit apart; it reports bit 54 too, for a
// standard that nobody asks for.
// clang-format off
inline constexpr VideoStandard kVideoStandards[] = {
    {"480i",       48, 29970,  858,  525,  720,  480, true,  kByComponent | kByComposite},
    {"576i",       49, 25000,  864,  625,  720,  576, true,  kByComponent | kByComposite},
    {"480p",       50, 59940,  858,  525,  720,  480, false, kByComponent},
    {"576p",       51, 50000,  864,  625,  720,  576, false, kByComponent},
    {"720p50",     52, 50000,  1980, 750,  1280, 720, false, kByComponent},
    {"1080i50",    53, 25000,  2640, 1125, 1920, 1080, true, kByComponent},
    {"720p24",     54, 24000,  4125, 750,  1280, 720, false, kByComponent},
    {"720p60",     55, 60000,  1650, 750,  1280, 720, false, kByComponent},
    {"720p59.94",  56, 59940,  1650, 750,  1280, 720, false, kByComponent},
    {"1080i59.94", 57, 29970,  2200, 1125, 1920, 1080, true, kByComponent},
    {"1080i60",    58, 30000,  2200, 1125, 1920, 1080, true, kByComponent},
    {"1080p24",    59, 24000,  2750, 1125, 1920, 1080, false, kByComponent},
    {"1080p25",    60, 25000,  2640, 1125, 1920, 1080, false, kByComponent},
    {"1080p30",    61, 30000,  2200, 1125, 1920, 1080, false, kByComponent},
    {"640x480",    kNoStandardBit, 59940, 800,  525,  640,  480,  false, kByVga},
    {"800x600",    kNoStandardBit, 60317, 1056, 628,  800,  600,  false, kByVga},
    {"1024x768",   kNoStandardBit, 60004, 1344, 806,  1024, 768,  false, kByVga},
    {"1280x720",   kNoStandardBit, 60000, 1650, 750,  1280, 720,  false, kByVga},
    {"1280x1024",  kNoStandardBit, 60020, 1688, 1066, 1280, 1024, false, kByVga},
    {"1366x768",   kNoStandardBit, 59790, 1792, 798,  1366, 768,  false, kByVga},
    {"1400x1050",  kNoStandardBit, 59948, 1560, 1080, 1400, 1050, false, kByVga},
    {"1920x1080",  kNoStandardBit, 60000, 2200, 1125, 1920, 1080, false, kByVga},
};
// clang-format on

constexpr std::uint8_t standard_named(std::string_view name) {
  std::uint8_t at = 0;
  while (at < std::size(kVideoStandards) - 1 && name != kVideoStandards[at].name) ++at;
  return at;
}

// What a source sends that was never told otherwise.
constexpr std::uint8_t usual_standard(VideoSource source) {
  switch (source) {
    case VideoSource::kVga:
      return standard_named("1024x768");
    case VideoSource::kComposite:
      return standard_named("576i");
    case VideoSource::kComponent:
    case VideoSource::kNone:
      break;
  }
  return standard_named("1080i50");
}

}  // namespace vboard
