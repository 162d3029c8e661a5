// The host protocol, seen from the host: one function per conversation.
//
// The board answers a one-byte question at once; the host collects the byte
// with its next transfer, for which it sends the poll byte, a command that the
// board ignores. Uploads are paced: the board queues one byte per poll, so each
// poll collects a byte and asks for the next. Whatever else the host sends goes
// one byte at a time, each taken by the board before the next is sent, because
// the board reads its queue in gulps and keeps the first byte of each.
//
// Where the host sees no queues (a wire) it leaves the board a fixed time for each
// byte, and finds out that the board listens by asking for its version, before the
// first command and after each one that has no answer.
//
// Nothing here is retried: what went wrong is reported.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "melk/transport.h"

namespace melk {

inline constexpr std::uint8_t kPoll = 0xA5;
// The answer to GET_HD_VERSION: how a host that sees no queues finds the board.
inline constexpr std::uint8_t kHdVersion = 0x2D;

// One row per command of the board: constant, code, name, the sub-command of melk
// that sends it, what follows the code, what the board returns, what it is for.
// clang-format off
#define MELK_HOST_COMMANDS(ROW) \
  ROW(kKeepAlive, 0, "KEEP_ALIVE", "keep-alive", "", "", "say that the host is there") \
  ROW(kGetHdVersion, 1, "GET_HD_VERSION", "hd-version", "", "1 byte", "version of the board's host interface") \
  ROW(kSendHdConfiguration, 2, "SEND_HD_CONFIGURATION", "send-config", "size, file", "", "send a configuration file; the board stores and applies it") \
  ROW(kGetStatus, 3, "GET_STATUS", "status", "", "1 byte of 3", "status, last restart cause and health flags") \
  ROW(kSendRtc, 4, "SEND_RTC", "set-rtc", "12 characters", "", "send the host's clock") \
  ROW(kReadReg, 5, "READ_REG", "read-reg", "device, register", "1 byte", "read one register of a chip on the board's I2C bus") \
  ROW(kStopEncode, 6, "STOP_ENCODE", "stop-encode", "", "", "hold the encoder") \
  ROW(kStopAudio, 7, "STOP_AUDIO", "stop-audio", "", "", "switch the audio off") \
  ROW(kGetLogFile1, 8, "GET_LOG_FILE1", "log", "polls", "size, file", "fetch a log archive (make-logs packs it)") \
  ROW(kGetRegFileByte, 9, "GET_REG_FILE_BYTE", "registers", "", "1 byte of the record", "read the status record, decoded by name") \
  ROW(kPrepareFpgaRegisters, 10, "PREPARE_FPGA_REGISTERS", "registers", "", "", "read the status record, decoded by name") \
  ROW(kUpdateVersion, 11, "UPDATE_VERSION", "update", "size, package", "", "send a software update") \
  ROW(kTemp, 12, "TEMP", "temp", "", "", "print four status registers on the board's console") \
  ROW(kGetLogFile2, 13, "GET_LOG_FILE2", "log", "polls", "size, file", "fetch a log archive (make-logs packs it)") \
  ROW(kCpLogFile, 14, "CP_LOG_FILE", "make-logs", "", "", "pack both logs into archives") \
  ROW(kGetMonitorState, 15, "GET_MONITOR_STATE", "monitor-state", "", "1 byte", "state of the encoder supervision") \
  ROW(kDeleteLogs, 17, "DELETE_LOGS", "delete-logs", "", "", "delete log 1 on the board") \
  ROW(kSetSpts, 18, "SET_SPTS", "set-spts", "4 bytes", "", "set the single-program transport stream word") \
  ROW(kGetMonitorFile, 19, "GET_MONITOR_FILE", "monitor-file", "polls", "size, file", "fetch the periodic status file") \
  ROW(kRestoreFactory, 22, "RESTORE_FACTORY", "restore-factory", "", "", "install the factory software") \
  ROW(kClearStatus, 25, "CLEAR_STATUS", "clear-status", "", "", "forget the last restart cause") \
  ROW(kGetSwVersion, 28, "GET_SW_VERSION", "sw-version", "", "1 byte of 3", "software version of the board") \
  ROW(kGetSharedStatus, 32, "GET_SHARED_STATUS", "shared-status", "", "1 byte", "status byte that encode shares") \
  ROW(kGetInputMux, 33, "GET_INPUT_MUX", "input-mux", "", "1 byte", "selected video input") \
  ROW(kGetUpdateResult, 34, "GET_UPDATE_RESULT", "update-result", "", "1 byte", "whether the last update succeeded (told once)") \
  ROW(kGetFps, 35, "GET_FPS", "fps", "", "1 byte of 2", "frame rate of the video input") \
  ROW(kGetRegFileSize, 36, "GET_REG_FILE_SIZE", "reg-file-size", "", "", "make the status record 104 bytes long") \
  ROW(kNewUpdateVersion, 43, "NEW_UPDATE_VERSION", "update", "size", "", "send a software update")
// clang-format on

#define MELK_CODE(constant, code, ...) constant = code,
enum class Code : std::uint8_t { MELK_HOST_COMMANDS(MELK_CODE) };
#undef MELK_CODE

struct HostCommand {
  Code code;
  const char* name;
  const char* word;
  const char* out;
  const char* back;
  const char* help;
};

std::span<const HostCommand> host_commands();
const HostCommand& host_command(Code code);

// ---- results ---------------------------------------------------------------
enum class Trouble {
  kNone,
  kSilent,      // the board took nothing, or answered nothing
  kIncomplete,  // a transfer began and stopped
  kNoFile,      // the board announced that it has no such file
  kOutOfStep,   // the board answered something that belongs elsewhere
  kRefused,     // not sent: the board could only misread it
  kNoDevice,    // the board lacks a device of its own, and says so
};

struct Failure {
  Trouble trouble = Trouble::kNone;
  std::string text;
};

// What came back. An incomplete upload carries both what arrived and a failure.
template <class T>
struct Reply {
  std::optional<T> value;
  Failure failure;

  bool ok() const { return failure.trouble == Trouble::kNone; }
};

struct Nothing {};
using Bytes = std::vector<std::uint8_t>;

// A conversation with one board.
struct Link {
  Transport& transport;
  std::int64_t timeout_us = 20000000;
  // Called with bytes moved so far and in all, during long transfers.
  std::function<void(std::size_t, std::size_t)> progress = {};
  // Asked between two bytes of a long transfer: true ends it there.
  std::function<bool()> stop_asked = {};
  std::size_t stale = 0;  // bytes of earlier conversations that were dropped
  bool in_touch = false;  // without sight of the queues: the board waits for a command
  bool found = false;     // and has been asked before
};

// ---- conversations -------------------------------------------------------------
// A command without parameters and answer.
Reply<Nothing> send_command(Link& link, Code code);
// A command that is answered by one byte at once.
Reply<std::uint8_t> ask_byte(Link& link, Code code);

inline constexpr std::size_t kSmallestConfiguration = 30;
inline constexpr std::size_t kLargestUpdate = 5000000;

// SEND_HD_CONFIGURATION with a whole file. Fewer than kSmallestConfiguration
// bytes are refused: the board would read them as commands.
Reply<Nothing> send_configuration(Link& link, std::span<const std::uint8_t> file);
// UPDATE_VERSION: the package goes over the link.
Reply<Nothing> send_update(Link& link, std::span<const std::uint8_t> package);
// NEW_UPDATE_VERSION: the package goes through the update FIFO of the FPGA, at
// bytes_per_second of board time, or as fast as it drains when that is 0.
Reply<Nothing> send_update_by_fpga(Link& link, std::span<const std::uint8_t> package,
                                   std::int64_t bytes_per_second);
// A command and a 32-bit number: a size that no data follows, or SET_SPTS.
Reply<Nothing> send_number(Link& link, Code code, std::uint32_t number);

inline constexpr std::size_t kRtcLength = 12;

// SEND_RTC; the text has kRtcLength characters.
Reply<Nothing> send_rtc(Link& link, const std::string& text);
// READ_REG; the device address is in 8-bit form. A board without bus or handle
// gets no parameters; on a wire that cannot be seen in time.
Reply<std::uint8_t> read_reg(Link& link, std::uint8_t device, std::uint8_t reg);

// GET_LOG_FILE1, GET_LOG_FILE2 or GET_MONITOR_FILE.
Reply<Bytes> fetch_file(Link& link, Code code);

inline constexpr std::size_t kShortRecord = 51;
inline constexpr std::size_t kFullRecord = 104;

// PREPARE_FPGA_REGISTERS, then the first `count` bytes of the status record.
// More than kShortRecord needs GET_REG_FILE_SIZE, which is sent first.
Reply<Bytes> read_record(Link& link, std::size_t count);

struct Status {
  std::uint8_t status = 0;
  std::uint8_t cause = 0;
  std::uint8_t flags = 0;
  int skipped = 0;  // answers passed over because an earlier reading was cut short
};
// GET_STATUS three times.
Reply<Status> get_status(Link& link);
// GET_SW_VERSION three times.
Reply<std::array<std::uint8_t, 3>> get_sw_version(Link& link);
// GET_FPS twice: the low half of VS_RATE.
Reply<std::uint16_t> get_fps(Link& link);

// Sends bytes as they are and returns every byte that comes back: during the
// transfers, and `answers` more, each polled for. Without `answers` one byte is
// collected if it comes within half a board second.
Reply<Bytes> send_raw(Link& link, std::span<const std::uint8_t> bytes,
                      std::optional<std::size_t> answers);

// ---- meanings ------------------------------------------------------------------
inline constexpr std::uint8_t kStatusWrongSize = 0x9E;
inline constexpr std::uint8_t kCauseNone = 0x80;

inline bool status_healthy(std::uint8_t status) { return (status & 1) != 0; }
inline int status_restarts(std::uint8_t status) { return (status >> 1) & 7; }
std::string describe_status(std::uint8_t status);

// Why the service restarted encode, by code (0x81 to 0x87).
struct RestartCause {
  std::uint8_t code;
  const char* text;
};
std::span<const RestartCause> restart_causes();
const char* describe_cause(std::uint8_t code);

const char* monitor_state_name(std::uint8_t state);
const char* input_mux_name(std::uint8_t channel);

// Bits of fpga_monitor_flags above the two of the state.
struct MonitorFlag {
  std::uint8_t mask;
  const char* text;
};
std::span<const MonitorFlag> monitor_flags();
std::vector<const char*> set_flags(std::uint8_t flags);

// Fields of the status record, in the order of their bytes.
enum class ByteOrder { kLowFirst, kHighFirst };
struct RecordField {
  std::size_t first;
  std::size_t last;
  const char* name;
  const char* meaning;
  ByteOrder order = ByteOrder::kLowFirst;
};
std::span<const RecordField> record_fields();
// The field's value; `record` reaches beyond field.last.
std::uint32_t field_value(std::span<const std::uint8_t> record, const RecordField& field);

inline constexpr std::uint32_t kFrameClock = 1440000;  // frames/s = kFrameClock / VS_RATE

}  // namespace melk
