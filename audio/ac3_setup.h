// The AC-3 set-up: wait for a sync frame, decode its header, program the audio
// timing of the FPGA.
#pragma once

#include <cstdint>

// Handler of the codec key, third row: runs the whole set-up. Returns 0.
int SetAudCodec1(const std::int32_t* value, std::int32_t context);

// Programs the audio timing for a sample-rate code (0 48 kHz, 1 44.1 kHz, 2
// 32 kHz) and a frame-size code. A rate code of 3, and a frame-size code beyond
// the table, give 0 bytes per frame. Returns 0.
int SetAudCodecPram(std::uint16_t fscod, std::uint16_t frmsizecod);

// Rate and frame-size codes of word A; impossible ones are reported and become 0.
struct Ac3Codes {
  std::uint16_t fscod;
  std::uint16_t frmsizecod;
};
Ac3Codes ac3_codes(unsigned a);

// --- stream tracking -----------------------------------------------------
//
// Nothing starts these two. None may run while a configuration is applied.

// Waits without limit for a sync frame and programs the audio timing from it.
// Shaped as a thread entry; the argument is unused. Returns null.
void* AudioPolling_thread(void* unused);

// Reads the captured sync frame again and publishes its descriptor. Returns 0.
int get_hd_ac3_desc_parameters();
