// Start-up of the encoder service: shared block, threads, LED, versions, then
// supervision for good. It neither configures the board nor launches `encode`;
// that waits for the host.
#include "app/service.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "hostlink/dispatcher.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/gpio.h"
#include "hw/shared_memory_davinci.h"
#include "hw/time_units.h"
#include "state/service_flags.h"
#include "supervision/status_file.h"
#include "supervision/supervisor.h"

static constexpr char kVersionFile[] = "/home/tovin/version.ini";

static void start_link_thread() {
  pthread_t thread;
  if (pthread_create(&thread, nullptr, spi_slave_polling_thread, nullptr) == 0) {
    pthread_detach(thread);
  }
}

int start_service_threads(bool status_file) {
  if (const std::int64_t attached = get_shm_key(); attached < 0) return static_cast<int>(attached);
  config_sys = 0;
  if (status_file) StartSystemMonitoring();
  start_link_thread();
  usleep(100 * kMillisecond_us);
  return 0;
}

// The handle stays open for the life of the service.
static void set_front_panel_led() {
  FILE* leds = open_fpga_stream(kSecondHandleNotOpened);
  if (leds != nullptr) line_action(leds, kLine84High, 0);
}

// First line of the version file into `ver`; without the file it stays empty.
static void read_software_version() {
  FILE* file = fopen(kVersionFile, "r");
  if (file == nullptr) return;
  char line[kVersionTextSize] = {};
  if (read_line(file, line, sizeof line) == 1) {
    for (int index = 0; index < kVersionTextSize; ++index) ver[index] = line[index];
    printf("read '%s' OK", line);
    fflush(stdout);  // no line end follows, and an idle service says nothing more
  } else {
    puts("read error");
  }
  fclose(file);
}

int prog602(bool monitor_disabled, bool status_file) {
  puts("prog602 Y_HD");
  clear_supervision_counters();
  if (const int started = start_service_threads(status_file); started < 0) return started;
  puts("end configure\n");
  set_front_panel_led();
  read_software_version();
  fpga_hw_version = static_cast<std::uint16_t>(GetValue(kRegHwVersion));
  shared_set(&SharedBlock::encode_alive, 0);
  supervise(monitor_disabled);
  return 0;
}
