// The AC-3 set-up: wait for a sync frame, decode its header, program the audio
// timing of the FPGA.
#pragma once

#include <cstdint>

// Captured header words 2 and 3, bytes in stream order; 0 without a sync frame.
struct Ac3Header {
  unsigned a = 0;
  unsigned b = 0;
};

inline constexpr unsigned kAc3SyncFlipped = 0x770B;  // sync word 0x0B77 as it is captured
inline constexpr int kAudioModeSetup = 22;           // kRegAudioMode at the start of a set-up
inline constexpr unsigned kCaptureWait_us = 100000;  // after the capture is enabled

// Handler of the codec key, third row: runs the whole set-up. Returns 0.
int SetAudCodec1(const std::int32_t* value, std::int32_t context);

// Programs the audio timing for a sample-rate code (0 48 kHz, 1 44.1 kHz, 2
// 32 kHz) and a frame-size code. A rate code of 3, and a frame-size code beyond
// the table, give 0 bytes per frame. Returns 0.
int SetAudCodecPram(std::uint16_t fscod, std::uint16_t frmsizecod);

// --- steps that the stream tracking shares -------------------------------

// Swaps the two bytes of a captured word.
unsigned ac3_swap(unsigned word);

// Puts the FPGA into set-up mode and opens the DSP path when it is configured.
void ac3_enter_setup();

// ORs the capture bits into the mask and sets its path bit. Returns the mask.
int ac3_capture_mask();

// Decodes and prints the header, and stores the descriptor.
void ac3_decode(const Ac3Header& header);

// The descriptor of a stream that is not there.
void ac3_default_descriptor();

// Copies the descriptor into the shared block, last byte first.
void ac3_publish_descriptor(bool print);

// Rate and frame-size codes of word A; impossible ones are reported and become 0.
struct Ac3Codes {
  std::uint16_t fscod;
  std::uint16_t frmsizecod;
};
Ac3Codes ac3_codes(unsigned a);
