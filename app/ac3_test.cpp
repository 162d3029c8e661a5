// The AC-3 capture: the service's threads without supervision, and the capture
// FIFO of the FPGA emptied into a file until the operator stops it.
#include "app/ac3_test.h"

#include <cstdint>
#include <cstdio>

#include "app/service.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"

static constexpr char kCaptureFile[] = "/mnt/tovin/home/pero/lumos.ac3";
static constexpr int kManyWords = 1000;

static void start_capture() {
  printf("loop_control=0x%x\n", GetValue(kRegCaptureLoop));
  SetValue(kRegCaptureLoop, kCaptureLoopOn);
  printf("loop_control=0x%x\n", GetValue(kRegCaptureLoop));
  printf("status=0x%x\n", GetValue(kRegCaptureStatus));
  printf("date_from_fifo=0x%x\n", GetValue(kRegCaptureData));
}

// Moves the pending words to the file; without a file they are dropped. What a
// round brought is flushed, so that it survives the kill.
static void capture_round(FILE* file) {
  const int pending = static_cast<int>(GetValue(kRegCaptureStatus) & kCapturePendingMask);
  if (pending > kManyWords) printf("more than 1000 words!! - words_pending=%d\n", pending);
  for (int count = 0; count < pending; ++count) {
    const auto word = static_cast<std::uint16_t>(GetValue(kRegCaptureData));
    if (file != nullptr) fwrite(&word, sizeof word, 1, file);
  }
  if (file != nullptr && pending > 0) fflush(file);
}

int ac3_test(bool status_file) {
  if (const int started = start_service_threads(status_file); started < 0) return started;
  puts("end configure\n");
  // Held open beside the link's handle, as the service does for its LEDs.
  open_fpga_stream(kSecondHandleNotOpened);
  start_capture();
  FILE* file = fopen(kCaptureFile, "wb");
  if (file == nullptr) puts("can not open capture file");
  for (;;) capture_round(file);
}
