// Handlers of the transport-stream multiplex: A/V sync and PIDs.
#include "config/transport_stream.h"

#include <cstdio>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "state/fpgaregs.h"

// --- A/V sync -------------------------------------------------------------

// Milliseconds to 90 kHz ticks plus an offset, wrapping as a 32-bit word.
static std::int32_t ticks_90khz(std::int32_t milliseconds, std::int32_t offset) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(milliseconds) * 90U +
                                   static_cast<std::uint32_t>(offset));
}

int SetAVSync(const std::int32_t* value, std::int32_t) {
  constexpr std::int32_t kDigitalOffset_90khz = 15000;
  constexpr std::int32_t kDspOffset_90khz = -7500;
  fpgaregs.AVSync = *value;
  const int path = fpgaregs.AudioInput;
  if (path == kAudioInputDigital) fpgaregs.AVSync = ticks_90khz(*value, kDigitalOffset_90khz);
  if (path == kAudioInputDsp) fpgaregs.AVSync = ticks_90khz(*value, kDspOffset_90khz);
  printf("SetAVSync %d\n", fpgaregs.AVSync.load());
  return 0;
}

// --- PIDs ----------------------------------------------------------------

// Block write of the two bytes, low byte first.
static int write_pid(int address, std::uint16_t pid) {
  alignas(std::uint16_t) std::uint8_t bytes[] = {static_cast<std::uint8_t>(pid & 0xFF),
                                                 static_cast<std::uint8_t>(pid >> 8)};
  return SetArray(address, sizeof bytes, bytes);
}

int SetpidVideo(const std::int32_t* value, std::int32_t) {
  puts("SetpidVideo");
  fpgaregs.pidVideo = static_cast<std::uint16_t>(*value);
  return write_pid(kRegPidVideo, fpgaregs.pidVideo);
}

int SetpidAudio(const std::int32_t* value, std::int32_t) {
  puts("SetpidAudio");
  fpgaregs.pidAudio = static_cast<std::uint16_t>(*value);
  return write_pid(kRegPidAudio, fpgaregs.pidAudio);
}

int SetpidPCR(const std::int32_t* value, std::int32_t) {
  puts("SetpidPCR");
  fpgaregs.pidPCR = static_cast<std::uint16_t>(*value);
  printf("fpgaregs.pidPCR = %i\n", fpgaregs.pidPCR.load());
  return write_pid(kRegPidPcr, fpgaregs.pidPCR);
}
