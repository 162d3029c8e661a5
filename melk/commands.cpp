// One row per sub-command: what it takes and what it does.
#include "melk/commands.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "melk/local_file.h"
#include "melk/protocol.h"
#include "melk/session.h"
#include "melk/watch.h"

namespace melk {

namespace {

// The board works up to half a minute on a configuration or an update.
constexpr std::int64_t kBusyBoardUs = 120000000;

// Frames per second of video inputs, with a margin.
constexpr double kSlowestInput = 22;
constexpr double kFastestInput = 130;

// Where a file of this name lies.
std::string place(const Session& session, const std::string& name) {
  return session.options.place_of ? session.options.place_of(name) : name;
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

std::string no_text(std::uint8_t) { return {}; }

int run_shared_status(Session& session) { return run_byte(session, "shared_status", no_text); }

int run_any_byte(Session& session) { return run_byte(session, "value", no_text); }

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
  if (!read_whole_file(place(session, session.request.file), &file))
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
  if (!read_whole_file(place(session, session.request.file), &package))
    return fail_file(session, session.request.file);
  const bool via_fpga = session.request.via_fpga;
  if (via_fpga && !session.link.transport.reaches_update_fifo())
    return fail(session, "the update FIFO of the FPGA is not on this wire", kUsage,
                "leave --via-fpga out: the package goes over the link");
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

int run_make_update(Session& session) {
  const std::string& file = session.request.file;
  if (session.options.make_update == nullptr)
    return fail(session, "no packages are made here", kLocalFile);
  if (!can_write_file(place(session, file))) return fail_file(session, file);
  std::string problem;
  const std::optional<UpdatePackage> package =
      session.options.make_update(session.request.directory, &problem);
  if (!package) return fail(session, problem, kLocalFile);
  if (!write_whole_file(place(session, file), package->archive)) return fail_file(session, file);
  std::vector<const char*> names;
  for (const std::string& name : package->files) names.push_back(name.c_str());
  return report(session,
                text_of("made %s, %zu bytes: %s", file.c_str(), package->archive.size(),
                        joined(names).c_str()),
                {{"file", file}, {"bytes", package->archive.size()}, {"files", package->files}});
}

// ---- numbers, clock, registers -------------------------------------------------------------
int run_set_rtc(Session& session) {
  std::string text = session.request.text;
  if (text.empty() && session.options.local_clock) text = session.options.local_clock();
  if (text.size() != kRtcLength)
    return fail(session, "the clock text has 12 characters (DDMMYYhhmmss)", kUsage,
                "leave it out to send the local time");
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
    if (!write_whole_file(place(session, file) + ".part", *reply.value))
      return fail_file(session, file + ".part");
    note(session, "what arrived is in " + file + ".part");
    return fail(session, reply.failure);
  }
  if (!write_whole_file(place(session, file), *reply.value)) return fail_file(session, file);
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
  if (!can_write_file(place(session, session.request.file)))
    return fail_file(session, session.request.file);
  const Reply<Bytes> reply = fetch_with_progress(
      session, session.request.log == 1 ? Code::kGetLogFile1 : Code::kGetLogFile2);
  return store_upload(session, reply);
}

int run_monitor_file(Session& session) {
  const std::string& file = session.request.file;
  if (!file.empty() && !can_write_file(place(session, file))) return fail_file(session, file);
  const Reply<Bytes> reply = fetch_with_progress(session, Code::kGetMonitorFile);
  if (!file.empty()) return store_upload(session, reply);
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
      complain({"shell", "this is the shell", "", kUsage}, session.json, session.out, session.err);
    else
      code = options.command(session.link.transport, words, session.out, session.err, options);
    if (result == kDone) result = code;
  }
  if (prompt) fputc('\n', session.out);
  return result;
}

// ---- the table ----------------------------------------------------------------------
constexpr Allowed kByte = {Allowed::kRange, 0, 255};
constexpr Allowed kCount = {Allowed::kCount};

constexpr Argument kConfig[] = {
    {"FILE", "configuration file (hd.ini)", &Request::file, "", true},
    {"--wait", "wait until the board has applied it, and print its status", &Request::wait},
    {"--force", "announce a size that the board refuses (29 or less), without data",
     &Request::force},
};
constexpr Argument kUpdate[] = {
    {"PACKAGE", "update archive, at most 5000000 bytes", &Request::file, "", true},
    {"--via-fpga", "send it through the update FIFO of the FPGA", &Request::via_fpga},
    {"--rate", "with --via-fpga: bytes per board second", &Request::rate, "N", false, kCount,
     "--via-fpga"},
    {"--wait", "wait for the board and ask for the result", &Request::wait},
    {"--force", "announce a size that the board refuses (above 5000000), without data",
     &Request::force},
};
constexpr Argument kMakeUpdate[] = {
    {"DIR", "files for the board; vantorig must be among them", &Request::directory, "", true},
    {"-o,--output", "where the package goes (required)", &Request::file, "FILE", true},
};
constexpr Argument kClock[] = {
    {"TEXT", "12 characters, DDMMYYhhmmss; the local time if absent", &Request::text},
};
constexpr Argument kRegister[] = {
    {"DEV", "device address in 8-bit form, as 0x90", &Request::device, "", true, kByte},
    {"REG", "register number", &Request::reg, "", true, kByte},
};
constexpr Argument kLog[] = {
    {"NUMBER", "1 or 2", &Request::log, "", true, {Allowed::kRange, 1, 2}},
    {"-o,--output", "where the archive goes (required)", &Request::file, "FILE", true},
};
constexpr Argument kMonitorFile[] = {
    {"-o,--output", "where the file goes; printed if absent", &Request::file, "FILE"},
};
constexpr Argument kRecord[] = {
    {"--full", "all 104 bytes instead of the first 51", &Request::full},
};
constexpr Argument kNumber[] = {
    {"N", "32-bit number", &Request::number, "", true, {Allowed::kRange, -2147483648, 4294967295}},
};
constexpr Argument kRaw[] = {
    {"CODE", "command code, and what else is to be sent", &Request::codes, "...", true, kByte},
    {"--answers", "collect this many bytes (default: one, if it comes within 0.5 s)",
     &Request::answers, "N"},
};
constexpr Argument kWatch[] = {
    {"--interval",
     "board seconds between readings (1)",
     &Request::interval_s,
     "SECONDS",
     false,
     {Allowed::kSeconds, 0.01, 3600}},
    {"--count", "end after this many readings", &Request::count, "N", false, kCount},
    {"--no-levels", "leave the buffer levels out", &Request::no_levels},
};
constexpr std::span<const Argument> kNothing = {};

// Headings of the help.
constexpr const char* kStatus = "Status";
constexpr const char* kConfiguration = "Configuration";
constexpr const char* kFiles = "Files";
constexpr const char* kOther = "Other";

// clang-format off
constexpr SubCommand kSubCommands[] = {
    {"status", kNothing, run_status, kStatus, "status"},
    {"watch", kWatch, run_watch, kStatus, "watch --interval 2",
     "follow state, inputs, rates, buffers and restarts"},
    {"registers", kRecord, run_registers, kStatus, "registers --full"},
    {"fps", kNothing, run_fps, kStatus, "fps"},
    {"hd-version", kNothing, run_hd_version, kStatus, "hd-version"},
    {"sw-version", kNothing, run_sw_version, kStatus, "sw-version"},
    {"monitor-state", kNothing, run_monitor_state, kStatus, "monitor-state"},
    {"shared-status", kNothing, run_shared_status, kStatus, "shared-status"},
    {"input-mux", kNothing, run_input_mux, kStatus, "input-mux"},
    {"clear-status", kNothing, run_plain, kStatus, "clear-status"},
    {"read-reg", kRegister, run_read_reg, kStatus, "read-reg 0xb8 0x14"},
    {"send-config", kConfig, run_send_config, kConfiguration, "send-config --wait hd.ini"},
    {"set-rtc", kClock, run_set_rtc, kConfiguration, "set-rtc 010226123000"},
    {"set-spts", kNumber, run_set_spts, kConfiguration, "set-spts 300"},
    {"stop-encode", kNothing, run_plain, kConfiguration, "stop-encode"},
    {"stop-audio", kNothing, run_plain, kConfiguration, "stop-audio"},
    {"keep-alive", kNothing, run_plain, kConfiguration, "keep-alive"},
    {"temp", kNothing, run_plain, kConfiguration, "temp"},
    {"reg-file-size", kNothing, run_plain, kConfiguration, "reg-file-size"},
    {"make-logs", kNothing, run_plain, kFiles, "make-logs"},
    {"log", kLog, run_log, kFiles, "log 1 -o log1.tar.gz"},
    {"delete-logs", kNothing, run_plain, kFiles, "delete-logs"},
    {"monitor-file", kMonitorFile, run_monitor_file, kFiles, "monitor-file -o monitor.txt"},
    {"update", kUpdate, run_update, kFiles, "update --wait new_version.tar.gz"},
    {"update-result", kNothing, run_update_result, kFiles, "update-result"},
    {"make-update", kMakeUpdate, run_make_update, kFiles,
     "make-update files -o new_hd_version.tar.gz",
     "make a package for update from a directory of files; needs no board", false},
    {"restore-factory", kNothing, run_plain, kFiles, "restore-factory"},
    {"raw", kRaw, run_raw, kOther, "raw 8 0xA5 --answers 4",
     "send bytes as they are and print what comes back"},
    {"shell", kNothing, run_shell, kOther, "shell < commands.txt",
     "read commands from standard input"},
};
// clang-format on

// A command without a row of its own is sent as it is, and its byte printed.
std::vector<SubCommand> all_sub_commands() {
  std::vector<SubCommand> all(std::begin(kSubCommands), std::end(kSubCommands));
  for (const HostCommand& row : host_commands()) {
    if (std::ranges::find(all, std::string_view(row.word), &SubCommand::word) != all.end())
      continue;
    const bool answered = row.back[0] != '\0';
    all.push_back({row.word, kNothing, answered ? run_any_byte : run_plain,
                   answered ? kStatus : kConfiguration, row.word});
  }
  return all;
}

// Null for a word that is none.
const SubCommand* row_of(const Request& request) {
  for (const SubCommand& one : sub_commands())
    if (request.word == one.word) return &one;
  return nullptr;
}

}  // namespace

std::span<const SubCommand> sub_commands() {
  static const std::vector<SubCommand> all = all_sub_commands();
  return all;
}

const char* help_of(const SubCommand& row) {
  return row.help != nullptr ? row.help : host_command(code_of(row.word)).help;
}

bool wants_board(const Request& request) { return row_of(request)->wants_board; }

int run_request(Transport& transport, const Request& request, FILE* out, FILE* err,
                const Options& options) {
  Session session = {{transport, options.timeout_us}, out, err, options, request,
                     options.json || request.json};
  if (request.timeout_s)
    session.link.timeout_us = static_cast<std::int64_t>(*request.timeout_s * 1e6);
  const SubCommand* row = row_of(request);
  if (row == nullptr) return kUsage;
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

}  // namespace melk
