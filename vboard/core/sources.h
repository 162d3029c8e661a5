// The words of what can be plugged in.
#pragma once

#include <algorithm>
#include <iterator>

#include "vboard/core/board.h"

namespace vboard {

template <class T>
struct Named {
  const char* name;
  T value;
};

template <class Table, class T>
constexpr const char* name_of(const Table& table, T value) {
  const auto found = std::ranges::find(table, value, [](const auto& one) { return one.value; });
  return found == std::ranges::end(table) ? "?" : found->name;
}

inline constexpr Named<VideoSource> kVideoSources[] = {{"component", VideoSource::kComponent},
                                                       {"vga", VideoSource::kVga},
                                                       {"composite", VideoSource::kComposite},
                                                       {"none", VideoSource::kNone}};
inline constexpr Named<AudioSource> kAudioSources[] = {
    {"digital", AudioSource::kDigital}, {"dsp", AudioSource::kDsp}, {"none", AudioSource::kNone}};

inline const char* source_name(VideoSource source) { return name_of(kVideoSources, source); }
inline const char* source_name(AudioSource source) { return name_of(kAudioSources, source); }

}  // namespace vboard
