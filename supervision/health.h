// Health readings of the encoder path: what the supervision loop judges by.
//
// Every reading is a device access made when it is called; a register that
// cannot be read gives 0 and feeds the checks like any other value.
#pragma once

#include <cstdint>

// Video buffer fill, with or without a new snapshot; 16 bits.
std::uint16_t latch_video_buffer();

// Audio buffer fill; the plain reading belongs to the snapshot taken before.
std::uint16_t read_audio_buffer();
std::uint16_t latch_audio_buffer();

bool video_buffer_present();
std::uint16_t read_video_overall();  // takes a new snapshot

bool audio_present();
std::uint16_t read_audio_overall();

// Runs the monitor of the selected input chip. Returns 0 when the input is
// locked.
int monitor_input();

// Audio flag: 0 without audio. The digital receiver's failures (negative) count
// as audio.
int read_audio_flag();

// Frame period as the video path measures it (frames/s = 1 440 000 / period).
std::uint32_t read_frame_period();

bool video_overflows();
bool audio_overflows();
