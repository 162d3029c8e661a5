// One row per sub-command: what it takes and what it does.
#include "melk/commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "melk/local_file.h"
#include "melk/protocol.h"

namespace melk {

namespace {

using Json = nlohmann::ordered_json;

// The board works up to half a minute on a configuration or an update.
constexpr std::int64_t kBusyBoardUs = 120000000;

// Frames per second of video inputs, with a margin.
constexpr double kSlowestInput = 22;
constexpr double kFastestInput = 130;

// A running sub-command: the conversation and where its outcome goes.
struct Session {
  Link link;
  FILE* out;
  FILE* err;
  const Options& options;
  const Request& request;
  bool json;
};

std::string text_of(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string text_of(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* printed = nullptr;
  const int length = vasprintf(&printed, format, arguments);
  va_end(arguments);
  if (length < 0) return {};
  std::string text(printed, static_cast<std::size_t>(length));
  free(printed);
  return text;
}

double board_seconds(std::int64_t us) { return static_cast<double>(us) / 1e6; }

// ---- outcomes --------------------------------------------------------------------
void print_json(const Session& session, const Json& json) {
  fprintf(session.out, "%s\n", json.dump(-1, ' ', true, Json::error_handler_t::replace).c_str());
  fflush(session.out);
}

int report(const Session& session, const std::string& text, const Json& fields = {},
           int exit_code = kDone) {
  if (session.json) {
    Json json = {{"command", session.request.word}};
    json.update(fields.is_null() ? Json::object() : fields);
    json["exit"] = exit_code;
    print_json(session, json);
  } else {
    fprintf(session.out, "%s\n", text.c_str());
    fflush(session.out);
  }
  return exit_code;
}

void note(const Session& session, const std::string& text) {
  fprintf(session.err, "melk: note: %s\n", text.c_str());
}

int fail(const Session& session, const std::string& text, int exit_code) {
  fprintf(session.err, "melk: %s: %s\n", session.request.word.c_str(), text.c_str());
  if (session.json)
    print_json(session, {{"command", session.request.word}, {"error", text}, {"exit", exit_code}});
  return exit_code;
}

int exit_code_of(Trouble trouble) {
  switch (trouble) {
    case Trouble::kNone:
      return kDone;
    case Trouble::kSilent:
      return kBoardSilent;
    case Trouble::kIncomplete:
      return kIncompleteTransfer;
    case Trouble::kNoFile:
    case Trouble::kOutOfStep:
      return kBoardSaysNo;
    case Trouble::kRefused:
      return kLocalFile;
  }
  return kBoardSaysNo;
}

int fail(const Session& session, const Failure& failure) {
  return fail(session, failure.text, exit_code_of(failure.trouble));
}

int fail_file(const Session& session, const std::string& path) {
  return fail(session, path + ": " + strerror(errno), kLocalFile);
}

volatile std::sig_atomic_t stop_asked = 0;

void ask_to_stop(int) { stop_asked = 1; }

// From here to the end of a transfer ^C stops it between two bytes; the next ^C
// ends the program, also where the board does not move.
void take_interrupts(Session& session) {
  if (!session.options.stoppable) return;
  stop_asked = 0;
  struct sigaction action = {};
  action.sa_handler = ask_to_stop;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  session.link.stop_asked = [] { return stop_asked != 0; };
}

void leave_interrupts(const Session& session) {
  if (session.options.stoppable) signal(SIGINT, SIG_DFL);
}

// A bar on the terminal, drawn when its percentage moves.
void begin_transfer(Session& session) {
  take_interrupts(session);
  if (!session.options.err_is_terminal) return;
  session.link.progress = [err = session.err, last = -1](std::size_t done,
                                                         std::size_t total) mutable {
    const int percent = total == 0 ? 100 : static_cast<int>(done * 100 / total);
    if (percent == last) return;
    last = percent;
    const std::string bar(static_cast<std::size_t>(percent / 4), '#');
    fprintf(err, "\r[%-25s] %3d%%  %zu/%zu bytes%s", bar.c_str(), percent, done, total,
            done == total ? "\n" : "");
    fflush(err);
  };
}

// Leaves the line of an unfinished bar.
void end_transfer(const Session& session, bool finished) {
  leave_interrupts(session);
  if (session.options.err_is_terminal && !finished) fputc('\n', session.err);
}

// ---- plain commands and one-byte questions -------------------------------------------
Code code_of(const std::string& word) {
  for (const HostCommand& row : host_commands())
    if (word == row.word) return row.code;
  return Code::kKeepAlive;
}

int run_plain(Session& session) {
  const Code code = code_of(session.request.word);
  const Reply<Nothing> reply = send_command(session.link, code);
  if (!reply.ok()) return fail(session, reply.failure);
  return report(session, text_of("%s taken by the board", host_command(code).name));
}

// Asks for one byte and prints it as `name` and a text.
int run_byte(Session& session, const char* name, std::string (*text)(std::uint8_t)) {
  const Reply<std::uint8_t> reply = ask_byte(session.link, code_of(session.request.word));
  if (!reply.ok()) return fail(session, reply.failure);
  const std::string meaning = text(*reply.value);
  Json fields = {{name, *reply.value}};
  if (!meaning.empty()) fields["text"] = meaning;
  return report(session,
                text_of("%d (0x%02x)%s%s", *reply.value, *reply.value, meaning.empty() ? "" : "  ",
                        meaning.c_str()),
                fields);
}

int run_hd_version(Session& session) {
  return run_byte(session, "hd_version", [](std::uint8_t byte) {
    return text_of("version %d.%d", byte >> 4, byte & 0x0F);
  });
}

int run_monitor_state(Session& session) {
  return run_byte(session, "monitor_state",
                  [](std::uint8_t byte) { return std::string(monitor_state_name(byte)); });
}

int run_shared_status(Session& session) {
  return run_byte(session, "shared_status", [](std::uint8_t) { return std::string(); });
}

int run_input_mux(Session& session) {
  return run_byte(session, "input_mux",
                  [](std::uint8_t byte) { return std::string(input_mux_name(byte)); });
}

int run_update_result(Session& session) {
  const Reply<std::uint8_t> reply = ask_byte(session.link, Code::kGetUpdateResult);
  if (!reply.ok()) return fail(session, reply.failure);
  const bool passed = *reply.value == 1;
  return report(session,
                passed ? "the last update succeeded"
                       : "no success on record: the last update failed, or its success was "
                         "already told",
                {{"update_passed", passed}}, passed ? kDone : kBoardSaysNo);
}

// ---- status ------------------------------------------------------------------------------
std::string joined(const std::vector<const char*>& texts) {
  std::string all;
  for (const char* text : texts) all += (all.empty() ? "" : ", ") + std::string(text);
  return all;
}

Json status_json(const Status& status) {
  return {{"status", status.status},
          {"healthy", status_healthy(status.status) && status.status != kStatusWrongSize},
          {"status_text", describe_status(status.status)},
          {"cause", status.cause},
          {"cause_text", describe_cause(status.cause)},
          {"flags", status.flags},
          {"flags_text", set_flags(status.flags)}};
}

std::string status_text(const Status& status) {
  return text_of("status 0x%02x  %s\ncause  0x%02x  %s\nflags  0x%02x  %s", status.status,
                 describe_status(status.status).c_str(), status.cause, describe_cause(status.cause),
                 status.flags, joined(set_flags(status.flags)).c_str());
}

void note_skipped(const Session& session, const Status& status) {
  if (status.skipped > 0)
    note(session, text_of("%d status bytes of an earlier reading passed over", status.skipped));
}

int run_status(Session& session) {
  const Reply<Status> reply = get_status(session.link);
  if (!reply.ok()) return fail(session, reply.failure);
  note_skipped(session, *reply.value);
  return report(session, status_text(*reply.value), status_json(*reply.value));
}

// ---- configuration and update ------------------------------------------------------------
void wait_for_busy_board(Session& session) {
  session.link.timeout_us = std::max(session.link.timeout_us, kBusyBoardUs);
}

int announce_only(Session& session, Code code, std::size_t size) {
  const Reply<Nothing> reply = send_number(session.link, code, static_cast<std::uint32_t>(size));
  if (!reply.ok()) return fail(session, reply.failure);
  return report(session,
                text_of("announced %zu bytes and sent none: the board refuses this size", size),
                {{"announced", size}, {"bytes", 0}});
}

int run_send_config(Session& session) {
  Bytes file;
  if (!read_whole_file(session.request.file, &file))
    return fail_file(session, session.request.file);
  if (session.request.force && file.size() < kSmallestConfiguration)
    return announce_only(session, Code::kSendHdConfiguration, file.size());
  const std::int64_t start_us = session.link.transport.now_us();
  begin_transfer(session);
  const Reply<Nothing> sent = send_configuration(session.link, file);
  end_transfer(session, sent.ok());
  if (!sent.ok()) return fail(session, sent.failure);
  const double sent_s = board_seconds(session.link.transport.now_us() - start_us);
  const std::string text =
      text_of("sent %zu bytes of %s in %.3f s", file.size(), session.request.file.c_str(), sent_s);
  Json fields = {{"file", session.request.file}, {"bytes", file.size()}, {"sent_s", sent_s}};
  if (!session.request.wait)
    return report(session, text + "; the board applies it now and is busy for 20 to 30 s", fields);
  wait_for_busy_board(session);
  const Reply<Status> status = get_status(session.link);
  if (!status.ok()) return fail(session, status.failure);
  note_skipped(session, *status.value);
  const double applied_s = board_seconds(session.link.transport.now_us() - start_us);
  fields["applied_s"] = applied_s;
  fields.update(status_json(*status.value));
  return report(session,
                text + text_of("; the board answers again after %.3f s\n", applied_s) +
                    status_text(*status.value),
                fields, status.value->status == kStatusWrongSize ? kBoardSaysNo : kDone);
}

int run_update(Session& session) {
  Bytes package;
  if (!read_whole_file(session.request.file, &package))
    return fail_file(session, session.request.file);
  const bool via_fpga = session.request.via_fpga;
  if (session.request.force && package.size() > kLargestUpdate)
    return announce_only(session, via_fpga ? Code::kNewUpdateVersion : Code::kUpdateVersion,
                         package.size());
  const std::int64_t start_us = session.link.transport.now_us();
  begin_transfer(session);
  const Reply<Nothing> sent = via_fpga
                                  ? send_update_by_fpga(session.link, package, session.request.rate)
                                  : send_update(session.link, package);
  end_transfer(session, sent.ok());
  if (!sent.ok()) return fail(session, sent.failure);
  const double sent_s = board_seconds(session.link.transport.now_us() - start_us);
  const std::string text =
      text_of("sent %zu bytes of %s %s in %.3f s", package.size(), session.request.file.c_str(),
              via_fpga ? "through the FPGA" : "over the link", sent_s);
  Json fields = {{"file", session.request.file},
                 {"bytes", package.size()},
                 {"via_fpga", via_fpga},
                 {"sent_s", sent_s}};
  if (!session.request.wait) return report(session, text + "; ask for its update-result", fields);
  wait_for_busy_board(session);
  const Reply<std::uint8_t> result = ask_byte(session.link, Code::kGetUpdateResult);
  if (!result.ok()) return fail(session, result.failure);
  const bool passed = *result.value == 1;
  fields["update_passed"] = passed;
  return report(session, text + (passed ? "; the update succeeded" : "; the update failed"), fields,
                passed ? kDone : kBoardSaysNo);
}

// ---- numbers, clock, registers -------------------------------------------------------------
int run_set_rtc(Session& session) {
  std::string text = session.request.text;
  if (text.empty() && session.options.local_clock) text = session.options.local_clock();
  if (text.size() != kRtcLength)
    return fail(session, "the clock text has 12 characters (DDMMYYhhmmss)", kUsage);
  const Reply<Nothing> reply = send_rtc(session.link, text);
  if (!reply.ok()) return fail(session, reply.failure);
  return report(session, "clock sent: " + text, {{"clock", text}});
}

int run_read_reg(Session& session) {
  const auto device = static_cast<std::uint8_t>(session.request.device);
  const auto reg = static_cast<std::uint8_t>(session.request.reg);
  const Reply<std::uint8_t> reply = read_reg(session.link, device, reg);
  if (!reply.ok()) return fail(session, reply.failure);
  const std::uint8_t value = *reply.value;
  // The board reports its own failures in the same byte.
  const char* hint = "";
  if (value == 0xFD) hint = "  (or: the chip did not answer)";
  if (value == 0xFE) hint = "  (or: the board could not open its link again)";
  if (value == 0xFF) hint = "  (or: the board could not open its I2C bus)";
  return report(session,
                text_of("device 0x%02x (7-bit 0x%02x) register 0x%02x = 0x%02x%s", device,
                        device >> 1, reg, value, hint),
                {{"device", device}, {"register", reg}, {"value", value}});
}

int run_set_spts(Session& session) {
  const auto number = static_cast<std::uint32_t>(session.request.number);
  const Reply<Nothing> reply = send_number(session.link, Code::kSetSpts, number);
  if (!reply.ok()) return fail(session, reply.failure);
  return report(session, text_of("SPTS word sent: %u (0x%08x)", number, number),
                {{"spts", number}});
}

int run_sw_version(Session& session) {
  const Reply<std::array<std::uint8_t, 3>> reply = get_sw_version(session.link);
  if (!reply.ok()) return fail(session, reply.failure);
  const std::array<std::uint8_t, 3>& part = *reply.value;
  const std::string version = text_of("%d.%d.%d", part[0], part[1], part[2]);
  if (version == "0.0.0")
    note(session, "the board knows its version after the first `melk registers`");
  return report(session, version, {{"version", version}});
}

int run_fps(Session& session) {
  const Reply<std::uint16_t> reply = get_fps(session.link);
  if (!reply.ok()) return fail(session, reply.failure);
  const std::uint16_t rate = *reply.value;
  if (rate == 0)
    return report(session, "frame period 0: no frame rate", {{"frame_period", 0}, {"fps", 0}});
  const double fps = static_cast<double>(kFrameClock) / rate;
  if (fps < kSlowestInput || fps > kFastestInput)
    note(session,
         "no input runs at this rate; if a version or frame rate was read in part before, "
         "`melk raw 35` once brings the two bytes into step");
  return report(session, text_of("%.3f frames/s (frame period %u)", fps, rate),
                {{"frame_period", rate}, {"fps", fps}});
}

int run_registers(Session& session) {
  begin_transfer(session);
  const std::size_t count = session.request.full ? kFullRecord : kShortRecord;
  const Reply<Bytes> reply = read_record(session.link, count);
  end_transfer(session, reply.ok());
  if (!reply.ok()) return fail(session, reply.failure);
  Json fields = Json::object();
  std::string text;
  for (const RecordField& field : record_fields()) {
    if (field.last >= reply.value->size()) break;
    const std::uint32_t value = field_value(*reply.value, field);
    fields[field.name] = value;
    text += text_of("%s%3zu-%-3zu  %-16s %10u  0x%08x  %s", text.empty() ? "" : "\n", field.first,
                    field.last, field.name, value, value, field.meaning);
  }
  return report(session, text, {{"record", fields}});
}

// ---- uploads ---------------------------------------------------------------------------------
// Stores what came; a part is kept beside the name that was asked for.
int store_upload(Session& session, const Reply<Bytes>& reply) {
  const std::string& file = session.request.file;
  if (!reply.ok()) {
    if (!reply.value || reply.value->empty()) return fail(session, reply.failure);
    if (!write_whole_file(file + ".part", *reply.value)) return fail_file(session, file + ".part");
    note(session, "what arrived is in " + file + ".part");
    return fail(session, reply.failure);
  }
  if (!write_whole_file(file, *reply.value)) return fail_file(session, file);
  return report(session, text_of("%zu bytes in %s", reply.value->size(), file.c_str()),
                {{"file", file}, {"bytes", reply.value->size()}});
}

Reply<Bytes> fetch_with_progress(Session& session, Code code) {
  begin_transfer(session);
  Reply<Bytes> reply = fetch_file(session.link, code);
  end_transfer(session, reply.ok());
  return reply;
}

int run_log(Session& session) {
  Reply<Bytes> reply = fetch_with_progress(
      session, session.request.log == 1 ? Code::kGetLogFile1 : Code::kGetLogFile2);
  if (reply.failure.trouble == Trouble::kNoFile)
    reply.failure.text += "; make-logs packs the archives";
  return store_upload(session, reply);
}

int run_monitor_file(Session& session) {
  const Reply<Bytes> reply = fetch_with_progress(session, Code::kGetMonitorFile);
  if (!session.request.file.empty()) return store_upload(session, reply);
  if (!reply.ok()) return fail(session, reply.failure);
  const std::string text(reply.value->begin(), reply.value->end());
  if (session.json) return report(session, "", {{"text", text}});
  fwrite(text.data(), 1, text.size(), session.out);
  return kDone;
}

// ---- raw ----------------------------------------------------------------------------------------
int run_raw(Session& session) {
  Bytes bytes;
  for (const int code : session.request.codes) bytes.push_back(static_cast<std::uint8_t>(code));
  const Reply<Bytes> reply = send_raw(session.link, bytes, session.request.answers);
  std::string text;
  if (reply.value)
    for (const std::uint8_t byte : *reply.value)
      text += text_of("%s%02x", text.empty() ? "" : " ", byte);
  if (!reply.ok()) {
    if (!text.empty()) note(session, "came back: " + text);
    return fail(session, reply.failure);
  }
  return report(session, text.empty() ? "no answer" : text, {{"answer", *reply.value}});
}

// ---- watch --------------------------------------------------------------------------------------
struct Reading {
  std::uint8_t state = 0;
  Status status;
  std::uint32_t video_level = 0;
  std::uint32_t audio_level = 0;
};

const RecordField& record_field(const char* name) {
  return *std::ranges::find_if(
      record_fields(), [name](const RecordField& field) { return strcmp(field.name, name) == 0; });
}

Reply<Reading> take_reading(Session& session) {
  const Conversation alone(session.link.transport);
  Reading reading;
  const Reply<std::uint8_t> state = ask_byte(session.link, Code::kGetMonitorState);
  if (!state.ok()) return {{}, state.failure};
  reading.state = *state.value;
  const Reply<Status> status = get_status(session.link);
  if (!status.ok()) return {{}, status.failure};
  reading.status = *status.value;
  if (!session.request.no_levels) {
    const RecordField& video = record_field("vi_buff");
    const RecordField& audio = record_field("au_buff");
    const Reply<Bytes> record = read_record(session.link, audio.last + 1);
    if (!record.ok()) return {{}, record.failure};
    reading.video_level = field_value(*record.value, video);
    reading.audio_level = field_value(*record.value, audio);
  }
  return {reading, {}};
}

// Buffer levels move all the time; they do not make a change of their own.
bool changed(const Reading& a, const Reading& b) {
  return a.state != b.state || a.status.status != b.status.status ||
         a.status.cause != b.status.cause || a.status.flags != b.status.flags;
}

std::string reading_text(const Session& session, const Reading& reading) {
  std::string text = text_of("%-14s status 0x%02x %s | cause 0x%02x %s | flags 0x%02x %s",
                             monitor_state_name(reading.state), reading.status.status,
                             describe_status(reading.status.status).c_str(), reading.status.cause,
                             describe_cause(reading.status.cause), reading.status.flags,
                             joined(set_flags(reading.status.flags)).c_str());
  if (!session.request.no_levels)
    text += text_of(" | video %u audio %u", reading.video_level, reading.audio_level);
  return text;
}

void print_reading(const Session& session, double at_s, const Reading& reading) {
  if (session.json) {
    Json json = {{"at_s", at_s},
                 {"monitor_state", reading.state},
                 {"state", monitor_state_name(reading.state)}};
    json.update(status_json(reading.status));
    if (!session.request.no_levels) {
      json["video_level"] = reading.video_level;
      json["audio_level"] = reading.audio_level;
    }
    print_json(session, json);
    return;
  }
  const bool in_place = session.options.out_is_terminal;
  fprintf(session.out, "%s%10.3f s  %s%s", in_place ? "\r\033[K" : "", at_s,
          reading_text(session, reading).c_str(), in_place ? "" : "\n");
  fflush(session.out);
}

// One line per change; on a terminal the last line also follows the levels.
int run_watch(Session& session) {
  Transport& transport = session.link.transport;
  const std::int64_t start_us = transport.now_us();
  const bool live_line = session.options.out_is_terminal && !session.json;
  std::optional<Reading> last;
  for (std::int64_t n = 0; session.request.count == 0 || n < session.request.count; ++n) {
    if (n > 0) transport.pause(static_cast<std::int64_t>(session.request.interval_s * 1e6));
    const Reply<Reading> reply = take_reading(session);
    if (!reply.ok()) {
      if (live_line && last) fputc('\n', session.out);
      return fail(session, reply.failure);
    }
    note_skipped(session, reply.value->status);
    const bool change = !last || changed(*last, *reply.value);
    if (live_line && last && change) fputc('\n', session.out);
    if (live_line || change)
      print_reading(session, board_seconds(transport.now_us() - start_us), *reply.value);
    last = reply.value;
  }
  if (live_line && last) fputc('\n', session.out);
  return kDone;
}

// ---- shell --------------------------------------------------------------------------------------
// Words separated by blanks; quotes keep blanks. A # starts a comment.
std::vector<std::string> split_words(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool in_word = false;
  char quote = 0;
  for (const char c : line) {
    if (quote != 0) {
      if (c == quote)
        quote = 0;
      else
        word += c;
    } else if (c == '"' || c == '\'') {
      quote = c;
      in_word = true;
    } else if (c == '#' && !in_word) {
      break;
    } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      if (in_word) words.push_back(word);
      word.clear();
      in_word = false;
    } else {
      word += c;
      in_word = true;
    }
  }
  if (in_word) words.push_back(word);
  return words;
}

bool read_line(FILE* in, std::string* line) {
  line->clear();
  int c = 0;
  while ((c = getc(in)) != EOF && c != '\n') *line += static_cast<char>(c);
  return c != EOF || !line->empty();
}

// The result is that of the first command that failed.
int run_shell(Session& session) {
  FILE* in = session.options.in != nullptr ? session.options.in : stdin;
  const bool prompt = session.options.out_is_terminal && !session.json;
  Options options = session.options;
  options.json = session.json;
  options.timeout_us = session.link.timeout_us;
  int result = kDone;
  std::string line;
  for (;;) {
    if (prompt) {
      fputs("melk> ", session.out);
      fflush(session.out);
    }
    if (!read_line(in, &line)) break;
    std::vector<std::string> words = split_words(line);
    if (words.empty()) continue;
    if (words[0] == "quit" || words[0] == "exit") return result;
    if (words[0] == "help") words[0] = "--help";
    int code = kUsage;
    if (words[0] == "shell")
      fputs("melk: this is the shell\n", session.err);
    else
      code = melk_command(session.link.transport, words, session.out, session.err, options);
    if (result == kDone) result = code;
  }
  if (prompt) fputc('\n', session.out);
  return result;
}

// ---- the table
// -----------------------------------------------------------------------------------
// Seconds from `least` to `most`; a range check alone lets "nan" through.
CLI::Validator seconds_within(double least, double most) {
  return CLI::Validator(
      [least, most](const std::string& text) {
        char* end = nullptr;
        const double seconds = strtod(text.c_str(), &end);
        const bool good =
            end != text.c_str() && *end == '\0' && seconds >= least && seconds <= most;
        return good ? std::string()
                    : text_of("'%s' is no time from %g to %g s", text.c_str(), least, most);
      },
      "SECONDS");
}

// A count that is not negative.
CLI::Validator counting() {
  return CLI::Validator(
      [](const std::string& text) {
        const bool digits =
            !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        return digits ? std::string() : text_of("'%s' is no count", text.c_str());
      },
      "COUNT");
}

void take_nothing(CLI::App&, Request&) {}

void take_config(CLI::App& app, Request& request) {
  app.add_option("FILE", request.file, "configuration file (hd.ini)")->required();
  app.add_flag("--wait", request.wait, "wait until the board has applied it, and print its status");
  app.add_flag("--force", request.force,
               "announce a size that the board refuses (29 or less), without data");
}

void take_update(CLI::App& app, Request& request) {
  app.add_option("PACKAGE", request.file, "update archive, at most 5000000 bytes")->required();
  CLI::Option* via_fpga =
      app.add_flag("--via-fpga", request.via_fpga, "send it through the update FIFO of the FPGA");
  app.add_option("--rate", request.rate, "with --via-fpga: bytes per board second")
      ->check(counting())
      ->needs(via_fpga);
  app.add_flag("--wait", request.wait, "wait for the board and ask for the result");
  app.add_flag("--force", request.force,
               "announce a size that the board refuses (above 5000000), without data");
}

void take_clock(CLI::App& app, Request& request) {
  app.add_option("TEXT", request.text, "12 characters, DDMMYYhhmmss; the local time if absent");
}

void take_register(CLI::App& app, Request& request) {
  app.add_option("DEV", request.device, "device address in 8-bit form, as 0x90")
      ->required()
      ->check(CLI::Range(0, 255));
  app.add_option("REG", request.reg, "register number")->required()->check(CLI::Range(0, 255));
}

void take_log(CLI::App& app, Request& request) {
  app.add_option("NUMBER", request.log, "1 or 2")->required()->check(CLI::Range(1, 2));
  app.add_option("-o,--output", request.file, "where the archive goes")->required();
}

void take_monitor_file(CLI::App& app, Request& request) {
  app.add_option("-o,--output", request.file, "where the file goes; printed if absent");
}

void take_record(CLI::App& app, Request& request) {
  app.add_flag("--full", request.full, "all 104 bytes instead of the first 51");
}

void take_number(CLI::App& app, Request& request) {
  app.add_option("N", request.number, "32-bit number")
      ->required()
      ->check(CLI::Range(std::int64_t{-2147483648}, std::int64_t{4294967295}));
}

void take_raw(CLI::App& app, Request& request) {
  app.add_option("CODE", request.codes, "command code, and what else is to be sent")
      ->required()
      ->check(CLI::Range(0, 255));
  app.add_option_function<std::size_t>(
      "--answers", [&request](const std::size_t& count) { request.answers = count; },
      "collect this many bytes (default: one, if it comes within 0.5 s)");
}

void take_watch(CLI::App& app, Request& request) {
  app.add_option("--interval", request.interval_s, "board seconds between readings (1)")
      ->check(seconds_within(0.01, 3600));
  app.add_option("--count", request.count, "end after this many readings")->check(counting());
  app.add_flag("--no-levels", request.no_levels, "leave the buffer levels out");
}

struct SubCommand {
  const char* word;
  void (*take)(CLI::App&, Request&);
  int (*run)(Session&);
  const char* help = nullptr;  // that of the host command if null
};

constexpr SubCommand kSubCommands[] = {
    {"status", take_nothing, run_status},
    {"watch", take_watch, run_watch, "follow state, status and buffer levels"},
    {"send-config", take_config, run_send_config},
    {"registers", take_record, run_registers},
    {"keep-alive", take_nothing, run_plain},
    {"hd-version", take_nothing, run_hd_version},
    {"sw-version", take_nothing, run_sw_version},
    {"fps", take_nothing, run_fps},
    {"monitor-state", take_nothing, run_monitor_state},
    {"shared-status", take_nothing, run_shared_status},
    {"input-mux", take_nothing, run_input_mux},
    {"clear-status", take_nothing, run_plain},
    {"set-rtc", take_clock, run_set_rtc},
    {"set-spts", take_number, run_set_spts},
    {"stop-encode", take_nothing, run_plain},
    {"stop-audio", take_nothing, run_plain},
    {"read-reg", take_register, run_read_reg},
    {"reg-file-size", take_nothing, run_plain},
    {"temp", take_nothing, run_plain},
    {"make-logs", take_nothing, run_plain},
    {"log", take_log, run_log},
    {"delete-logs", take_nothing, run_plain},
    {"monitor-file", take_monitor_file, run_monitor_file},
    {"update", take_update, run_update},
    {"update-result", take_nothing, run_update_result},
    {"restore-factory", take_nothing, run_plain},
    {"raw", take_raw, run_raw, "send bytes as they are and print what comes back"},
    {"shell", take_nothing, run_shell, "read commands from standard input"},
};

const char* help_of(const SubCommand& row) {
  return row.help != nullptr ? row.help : host_command(code_of(row.word)).help;
}

}  // namespace

void add_sub_commands(CLI::App& app, Request& request) {
  app.fallthrough();
  app.add_flag("--json", request.json, "print one JSON object per outcome");
  app.add_option_function<double>(
         "--timeout", [&request](const double& s) { request.timeout_s = s; },
         "board seconds of silence before melk gives up (20)")
      ->check(seconds_within(0.001, 86400));
  for (const SubCommand& row : kSubCommands) {
    CLI::App* sub = app.add_subcommand(row.word, help_of(row));
    row.take(*sub, request);
    sub->callback([&request, word = row.word] { request.word = word; });
  }
}

std::optional<int> parse_words(CLI::App& app, std::vector<std::string> words, FILE* out,
                               FILE* err) {
  std::ranges::reverse(words);
  try {
    app.parse(std::move(words));
    if (!app.get_subcommands().empty()) return std::nullopt;
    fputs("melk: a command is wanted\nRun with --help for more information.\n", err);
    return kUsage;
  } catch (const CLI::ParseError& error) {
    const std::vector<std::string> strangers = app.remaining();
    if (app.get_subcommands().empty() && !strangers.empty()) {
      fprintf(err, "melk: '%s' is none of its %s\nRun with --help for more information.\n",
              strangers[0].c_str(), strangers[0].starts_with('-') ? "options" : "commands");
      return kUsage;
    }
    std::ostringstream help;
    std::ostringstream complaint;
    const int code = app.exit(error, help, complaint);
    fputs(help.str().c_str(), out);
    fputs(complaint.str().c_str(), err);
    return code == 0 ? kDone : kUsage;
  }
}

int run_request(Transport& transport, const Request& request, FILE* out, FILE* err,
                const Options& options) {
  Session session = {{transport, options.timeout_us}, out, err, options, request,
                     options.json || request.json};
  if (request.timeout_s)
    session.link.timeout_us = static_cast<std::int64_t>(*request.timeout_s * 1e6);
  const auto* row = std::ranges::find_if(
      kSubCommands, [&request](const SubCommand& one) { return request.word == one.word; });
  if (row == std::end(kSubCommands)) return kUsage;
  // These two talk now and then, and leave the link to others meanwhile.
  const bool lasting = row->run == run_watch || row->run == run_shell;
  std::optional<Conversation> alone;
  if (!lasting) alone.emplace(transport);
  int code = row->run(session);
  if (fflush(out) != 0 || ferror(out) != 0) {
    note(session, text_of("the output could not be written: %s", strerror(errno)));
    if (code == kDone) code = kLocalFile;
  }
  if (session.link.stale > 0)
    note(session, text_of("%zu bytes of an earlier conversation dropped", session.link.stale));
  return code;
}

int melk_command(Transport& transport, const std::vector<std::string>& words, FILE* out, FILE* err,
                 const Options& options) {
  CLI::App app("Host side of the encoder board's link.", "melk");
  Request request;
  add_sub_commands(app, request);
  if (const std::optional<int> code = parse_words(app, words, out, err)) return *code;
  return run_request(transport, request, out, err, options);
}

std::vector<std::string> sub_command_words() {
  std::vector<std::string> words;
  for (const SubCommand& row : kSubCommands) words.emplace_back(row.word);
  return words;
}

}  // namespace melk
