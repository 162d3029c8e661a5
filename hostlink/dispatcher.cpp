// Host command dispatcher: the command table, its handlers and the thread's loop.
//
// The loop blinks the LED once per pass, so that a steady blink shows a live
// host link, then takes one command byte and runs its row of the table.
#include "hostlink/dispatcher.h"

#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <tuple>

#include "config/hd_params.h"
#include "hostlink/link.h"
#include "hostlink/status_record.h"
#include "hostlink/transfer.h"
#include "hostlink/upload.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/gpio.h"
#include "hw/shared_memory_davinci.h"
#include "hw/shell.h"
#include "hw/time_units.h"
#include "state/service_flags.h"
#include "video/tvp5150.h"

// What the thread remembers between commands.
struct LinkState {
  std::uint32_t keep_alive;
  int status_step;  // of GET_STATUS: 0, 1, 2
  int sequence;     // shared by GET_SW_VERSION and GET_FPS
  std::uint8_t vantorig_snapshot;
  std::uint8_t fpga_flags_snapshot;
};
static LinkState state;

Relaxed<std::uint8_t> wrong_size_flag;

// Writes one answer byte at once, without waiting for the host's poll. Returns
// the number of bytes taken.
static int answer(FILE* link, std::uint8_t byte) {
  return static_cast<int>(fwrite(&byte, 1, 1, link));
}

static void clear_global_status_bits(int bits) {
  global_status = static_cast<std::uint8_t>(global_status & ~bits);
}

// --- keep-alive, versions, status ----------------------------------------

static void keep_alive(FILE* /*link*/) {
  constexpr std::uint32_t kPeriod = 30;
  ++state.keep_alive;
  if (state.keep_alive == 1 || state.keep_alive % kPeriod == 0) state.keep_alive = 2;
}

static void get_hd_version(FILE* link) {
  printf("get GET_HD_VERSION command,hd_version = %d.%d\n", kHdVersion >> 4, kHdVersion & 0x0F);
  answer(link, kHdVersion);
}

// Three successive calls answer three bytes; the last two are those of the first call.
static void get_status(FILE* link) {
  switch (state.status_step) {
    case 0:
      state.vantorig_snapshot = status_vantorig;
      state.fpga_flags_snapshot = fpga_monitor_flags;
      state.status_step = 1;
      answer(link, wrong_size_flag == 1 ? kStatusWrongSize : global_status.load());
      break;
    case 1:
      answer(link, state.vantorig_snapshot);
      state.status_step = 2;
      break;
    default:
      answer(link, state.fpga_flags_snapshot);
      state.status_step = 0;
      break;
  }
}

static void get_monitor_state(FILE* link) {
  const std::uint8_t value = global_monitor_state;
  printf("VANTORIG_STATE = %d (0x%x)\n", value, value);
  answer(link, value);
}

static void clear_status(FILE* /*link*/) { status_vantorig = kStatusVantorigCleared; }

static void get_sw_version(FILE* link) {
  const int group = state.sequence == 0 || state.sequence == 1 ? state.sequence : 2;
  const std::uint8_t value = version_byte(group);
  answer(link, value);
  printf("ver[%d]=%d\n", group, value);
  state.sequence = (group + 1) % kVersionGroups;
}

// A sequence left at 2 by GET_SW_VERSION gets no answer. The high byte comes
// from one register and the print beside it from the other; the print beside the
// low byte reads its register once more.
static void get_fps(FILE* link) {
  if (state.sequence == 0) {
    const std::uint8_t value = static_cast<std::uint8_t>(GetValue(kRegVsRateLow) >> 8);
    answer(link, value);
    printf("fps_hd_to_send[0]=%x\n", value);
    printf("fps msb reg = %x\n", GetValue(kRegVsRateHigh));
    state.sequence = 1;
  } else if (state.sequence == 1) {
    const std::uint8_t value = static_cast<std::uint8_t>(GetValue(kRegVsRateLow));
    answer(link, value);
    printf("fps_hd_to_send[1]=%x\n", value);
    printf("fps lsb reg = %x\n", GetValue(kRegVsRateLow));
    state.sequence = 0;
  }
}

static void get_shared_status(FILE* link) {
  answer(link, static_cast<std::uint8_t>(shared_get(&SharedBlock::videoStd)));
}

static void get_input_mux(FILE* link) {
  answer(link, static_cast<std::uint8_t>(SetInputMuxCH.load()));
}

static void get_reg_file_byte(FILE* link) { answer(link, next_status_record_byte()); }

static void prepare_fpga_registers(FILE* /*link*/) { prepare_status_record(); }

static void get_reg_file_size(FILE* /*link*/) {
  printf("GET_REG_FILE_SIZE %d \n", send_whole_status_record());
}

static void temp(FILE* /*link*/) {
  puts("\n\nget TEMP command");
  printf("AUDIO_STATUS_REG = %d\n", static_cast<int>(GetValue(kRegAudioStatus)));
  printf("P0_MPEG2_STATUS_REG = %d\n", static_cast<int>(GetValue(kRegP0Mpeg2Status)));
  printf("P1_AC3_STATUS_REG = %d\n", static_cast<int>(GetValue(kRegAc3Status)));
  printf("TS_MUX_STATUS_REG = %d\n", static_cast<int>(GetValue(kRegEbBuff)));
}

static void answer_read_reg(FILE* link) {
  const std::uint8_t value = static_cast<std::uint8_t>(read_reg());
  puts("\n\nget READ_REG command");
  const int written = answer(link, value);
  printf("After write ver,rc = %i,hd_reg = %x\n", written, value);
}

// --- configuration download ----------------------------------------------

static constexpr std::int32_t kSmallestConfiguration = 30;  // bytes
static constexpr useconds_t kHoldSettle_us = 60;
static constexpr useconds_t kSdStart_us = 6 * kSecond_us;
static constexpr useconds_t kHdStart_us = 15 * kSecond_us;
static constexpr int kSizeLine = 50;  // characters of the directory line that are read

// Keeps the supervision and `encode` off while files are received.
static void hold_service() {
  SystemOnUpdate = 1;
  shared_set(&SharedBlock::do_fpga_restart, 1);
}

// Reads the directory line of the stored file into `line`, zero-filled before.
// The shell leaves the listing in the working directory, which on the board is
// the home directory that the reading names.
static void list_stored_file(char* line) {
  run_shell("ls -l /home/tovin/hd.ini > check_hd_size.txt");
  FILE* list = fopen("/home/tovin/check_hd_size.txt", "r");
  if (list == nullptr) return;
  if (read_line(list, line, kSizeLine + 1) == 1) {
    printf("read '%s' OK\n", line);
  } else {
    puts("read error");
  }
  fclose(list);
}

// The first run of digits after the first 't': in a directory line the owner
// "root" stands before the size. 0 when there is none.
static std::int32_t size_in_line(const char* line) {
  std::uint32_t size = 0;  // wraps on a run that no file size has
  bool seen_t = false;
  bool in_digits = false;
  for (int i = 0; i < kSizeLine - 1; ++i) {
    const char c = line[i];
    if (seen_t && c >= '0' && c <= '9') {
      size = 10 * size + static_cast<std::uint32_t>(c - '0');
      in_digits = true;
    } else if (in_digits) {
      break;
    }
    if (c == 't') seen_t = true;
  }
  return static_cast<std::int32_t>(size);
}

static std::int32_t stored_configuration_size() {
  char line[kSizeLine + 1] = {};
  list_stored_file(line);
  const std::int32_t size = size_in_line(line);
  printf("real size of hd is %d\n", size);
  return size;
}

static bool sd_decoder_selected() {
  return shared_get(&SharedBlock::input_channel) == kChannelComposite;
}

static void apply_configuration() {
  puts("Configure_System4\n");
  const int rc = Configure_System();
  puts("END Configure_System SEND_HD_CONFIGURATION!!!!!!!!!");
  if (rc != 0) return;
  global_status = static_cast<std::uint8_t>(kStatusInitial | (global_status & kStatusRestarts));
  usleep(sd_decoder_selected() ? kSdStart_us : kHdStart_us);
  config_sys = 1;
}

static void send_hd_configuration(FILE* link) {
  puts("get SEND_HD_CONFIGURATION command");
  hold_service();
  usleep(kHoldSettle_us);
  const std::int32_t f_size = get_file_size(link);
  usleep(100 * kMillisecond_us);
  if (f_size < kSmallestConfiguration) {
    // Nothing is released: the service holds until a configuration arrives.
    printf("error file size %d\n", f_size);
    return;
  }
  printf("f_size = %i (%x)\n", f_size, static_cast<unsigned>(f_size));
  get_file(link, f_size);
  shared_set(&SharedBlock::do_fpga_restart, 0);
  usleep(kSecond_us);
  if (stored_configuration_size() != f_size) {
    puts("error!! hd.ini wrong size - need reset from MELK");
    wrong_size_flag = 1;
  }
  apply_configuration();
  SystemOnUpdate = 0;
  if (sd_decoder_selected() && video_monitorTVP5150(kTvp5150AfterConfiguration) == -1)
    monitor_state = kMonitorRestart;
}

// --- settings and stops --------------------------------------------------

static void send_rtc(FILE* link) {
  constexpr int kClockText = 12;
  char text[kClockText + 1] = {};
  for (int i = 0; i < kClockText; ++i) text[i] = static_cast<char>(get_byte(link));
  puts("get SEND_RTC command");
  // A zero byte among the twelve ends the text.
  const std::size_t length = strlen(text);
  for (std::size_t i = 0; i <= length; ++i) {
    shared_set(&SharedBlock::clock_text, i, text[i]);
  }
  printf("clk_from_melk = %s\n", text);
}

static void set_spts(FILE* link) {
  puts("get SET_SPTS command");
  shared_set(&SharedBlock::spts, get_int_number(link));
}

static void stop_encode(FILE* /*link*/) {
  puts("\n\nget STOP_ENCODE command");
  shared_set(&SharedBlock::do_fpga_restart, 1);
  clear_global_status_bits(kStatusEncode);
}

static void stop_audio(FILE* /*link*/) {
  puts("\n\nget STOP_AUDIO command");
  SetValue(kRegAudioMode, kAudioModeStop);
  SetValue(kRegDspAudioEnable, 0);
  shared_set(&SharedBlock::audio_enable, 1);
  enable_audio = 1;
  clear_global_status_bits(kStatusAudio);
}

// --- logs ----------------------------------------------------------------

static std::int32_t upload_file(FILE* link, LogFile selector) {
  const std::int32_t size = get_log_file_size(selector);
  send_log_file_size(size, link);
  send_log_file(size, link, selector);
  return size;
}

// Both logs end with the words of log 1.
static void upload_log(FILE* link, LogFile selector) {
  puts("LF c");
  printf("\nlogfile_size = %d\n", upload_file(link, selector));
  puts("END GET_LOG_FILE1 command");
}

static void get_log_file1(FILE* link) { upload_log(link, kLogFile1); }
static void get_log_file2(FILE* link) { upload_log(link, kLogFile2); }

static void get_monitor_file(FILE* link) {
  puts("monitor.txt");
  upload_file(link, kMonitorFile);
}

static void cp_log_file(FILE* /*link*/) {
  puts("get CP_LOG_FILE command");
  run_shell("tar -cvzf temp_log1.tar.gz log1.txt");
  run_shell("tar -cvzf temp_log2.tar.gz log2.txt");
  puts("END CP_LOG_FILE command");
}

// Log 2 is kept.
static void delete_logs(FILE* /*link*/) {
  puts("get DELETE_LOGS command");
  run_shell("rm /home/tovin/log1.txt");
}

// --- software update -----------------------------------------------------

// `encode` stays on hold afterwards: the next configuration releases it.
static void receive_update(FILE* link, void (*receive)(FILE*, std::int32_t)) {
  hold_service();
  const std::int32_t f_size = get_file_size(link);
  printf("f_size = %i (%x)\n", f_size, static_cast<unsigned>(f_size));
  receive(link, f_size);
  usleep(3 * kSecond_us);
  SystemOnUpdate = 0;
}

static void update_version(FILE* link) {
  puts("get UPDATE_VERSION command");
  receive_update(link, get_upgrate_file);
}

static void new_update_version(FILE* link) {
  puts("get NEW_UPDATE_VERSION command");
  receive_update(link, new_get_upgrate_file);
}

static void restore_factory(FILE* /*link*/) { restor_from_manufacture(); }

static void get_update_result(FILE* link) {
  puts("is update passed?");
  if (GetSuccessFileUpdate() == 1) {
    answer(link, 1);
    puts("update succeed!!");
  } else {
    answer(link, 0);
    puts("update failed!!");
  }
}

// --- the table -----------------------------------------------------------

static constexpr HostCommand kHostCommands[] = {
    {0, "KEEP_ALIVE", "nothing", keep_alive},
    {1, "GET_HD_VERSION", "1 byte back", get_hd_version},
    {2, "SEND_HD_CONFIGURATION", "size, then the file", send_hd_configuration},
    {3, "GET_STATUS", "1 byte back; three calls give three bytes", get_status},
    {4, "SEND_RTC", "12 bytes of clock text", send_rtc},
    {5, "READ_REG", "device address, register; 1 byte back", answer_read_reg},
    {6, "STOP_ENCODE", "nothing", stop_encode},
    {7, "STOP_AUDIO", "nothing", stop_audio},
    {8, "GET_LOG_FILE1", "polled size and file back", get_log_file1},
    {9, "GET_REG_FILE_BYTE", "1 byte back", get_reg_file_byte},
    {10, "PREPARE_FPGA_REGISTERS", "nothing", prepare_fpga_registers},
    {11, "UPDATE_VERSION", "size, then the archive", update_version},
    {12, "TEMP", "nothing", temp},
    {13, "GET_LOG_FILE2", "polled size and file back", get_log_file2},
    {14, "CP_LOG_FILE", "nothing", cp_log_file},
    {15, "GET_MONITOR_STATE", "1 byte back", get_monitor_state},
    {17, "DELETE_LOGS", "nothing", delete_logs},
    {18, "SET_SPTS", "32-bit integer", set_spts},
    {19, "GET_MONITOR_FILE", "polled size and file back", get_monitor_file},
    {22, "RESTORE_FACTORY", "nothing", restore_factory},
    {25, "CLEAR_STATUS", "nothing", clear_status},
    {28, "GET_SW_VERSION", "1 byte back; three calls give three bytes", get_sw_version},
    {32, "GET_SHARED_STATUS", "1 byte back", get_shared_status},
    {33, "GET_INPUT_MUX", "1 byte back", get_input_mux},
    {34, "GET_UPDATE_RESULT", "1 byte back", get_update_result},
    {35, "GET_FPS", "1 byte back; two calls give two bytes", get_fps},
    {36, "GET_REG_FILE_SIZE", "nothing", get_reg_file_size},
    {43, "NEW_UPDATE_VERSION", "size; the archive comes through the FPGA", new_update_version},
};

std::span<const HostCommand> host_commands() { return kHostCommands; }

const HostCommand* find_host_command(std::uint8_t code) {
  for (const HostCommand& row : kHostCommands) {
    if (row.code == code) return &row;
  }
  return nullptr;
}

// --- the thread ----------------------------------------------------------

static constexpr int kLedFlip = kLine83Low ^ kLine83High;  // one and the other in turn
static constexpr std::intptr_t kResultEnded = 0;
static constexpr std::intptr_t kResultLedFailed = 2;

static void open_fpga_registers() {
  puts("OPEN NEW /dev/fpga!!!!!!!!!!!!!!!!!!!!!1");
  if (open_fpga_dev() < 0) puts(kFpgaNotOpened);
}

// Empties hd.ini: a board starts without a configuration until the host sends
// one. The handle stays open.
static void empty_configuration() { std::ignore = fopen(kHdIniPath, "wb"); }

static std::intptr_t serve_host(FILE* link, FILE* led) {
  for (int action = kLine83Low;; action ^= kLedFlip) {
    if (line_action(led, action, 0) != 0) return kResultLedFailed;
    std::uint8_t code = 0;
    const LinkWait wait = wait_byte(link, 1, &code);
    if (wait == LinkWait::kError) return kResultEnded;
    const HostCommand* command = wait == LinkWait::kByte ? find_host_command(code) : nullptr;
    if (command != nullptr) command->handler(link);
  }
}

static std::intptr_t run_host_link() {
  open_fpga_registers();
  empty_configuration();
  FILE* link = open_link();
  if (link == nullptr) return kResultEnded;
  FILE* led = open_fpga_stream(kSecondHandleNotOpened);
  if (led == nullptr) return kResultEnded;
  state = {};
  clear_status_record();
  return serve_host(link, led);
}

void* spi_slave_polling_thread(void* /*argument*/) {
  return reinterpret_cast<void*>(run_host_link());
}
