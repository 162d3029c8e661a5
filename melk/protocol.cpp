// The command table, the conversations, and the meanings of what comes back.
#include "melk/protocol.h"

#include <algorithm>
#include <cstdio>

namespace melk {

namespace {

#define MELK_ROW(constant, code, ...) {Code::constant, __VA_ARGS__},
constexpr HostCommand kHostCommands[] = {MELK_HOST_COMMANDS(MELK_ROW)};
#undef MELK_ROW

constexpr RestartCause kRestartCauses[] = {
    {0x81, "video buffer overflow"},
    {0x82, "audio buffer overflow"},
    {0x83, "input locked but the video buffer did not move"},
    {0x84, "audio missing, or audio appeared after a start without it"},
    {0x85, "input came back after a loss"},
    {0x86, "input lost and frozen"},
    {0x87, "video buffer far from its settled level"},
};

constexpr MonitorFlag kMonitorFlags[] = {
    {0x04, "video buffer not moving"},
    {0x08, "video input not locked"},
    {0x10, "audio not ok"},
    {0x20, "no audio when encode started"},
    {0x40, "I2C error"},
};
constexpr std::uint8_t kFlagsState = 0x03;

constexpr RecordField kRecordFields[] = {
    {0, 0, "encode_ver", "version of encode"},
    {1, 1, "hd_version", "version of the host interface"},
    {2, 3, "fpga_hw_version", "version of the FPGA", ByteOrder::kHighFirst},
    {4, 4, "blkfn_version", "version of the AC-3 DSP"},
    {5, 8, "vs_overall", "video frames seen"},
    {9, 12, "vs_rate", "frame period"},
    {13, 14, "vi_buff", "video buffer fill"},
    {15, 18, "vi_overall", "video units through the buffer"},
    {19, 22, "vi_ref_overall", "video reference count"},
    {23, 24, "au_buff", "audio buffer fill"},
    {25, 28, "au_i2s_overall", "audio samples in"},
    {29, 32, "au_overall", "audio units through the buffer"},
    {33, 36, "au_ref_overall", "audio reference count"},
    {37, 40, "peak_1", "first DSP peak"},
    {41, 44, "peak_2", "second DSP peak"},
    {45, 46, "vid_buf_init", "settled video buffer level"},
    {47, 48, "aud_buf_init", "settled audio buffer level"},
    {49, 50, "ts_mux_status", "transport-stream multiplexer status"},
    {51, 52, "encode_180", "word of encode at 180"},
    {53, 54, "encode_176", "word of encode at 176"},
    {55, 56, "encode_184", "word of encode at 184"},
    {57, 58, "encode_172", "word of encode at 172"},
    {59, 60, "encode_188", "word of encode at 188"},
    {61, 62, "encode_192", "word of encode at 192"},
    {63, 64, "encode_196", "word of encode at 196"},
    {65, 66, "encode_200", "word of encode at 200"},
    {67, 68, "encode_204", "word of encode at 204"},
    {69, 70, "encode_208", "word of encode at 208"},
    {71, 71, "encode_216", "low byte of encode at 216"},
    {72, 72, "encode_220", "low byte of encode at 220"},
    {73, 73, "encode_252", "low byte of encode at 252"},
    {74, 75, "encode_256", "word of encode at 256"},
    {76, 79, "encode_224", "word of encode at 224"},
    {80, 83, "encode_232", "word of encode at 232"},
    {84, 87, "encode_236", "word of encode at 236"},
    {88, 91, "encode_212", "word of encode at 212"},
    {92, 95, "encode_276", "word of encode at 276"},
    {96, 99, "encode_280", "word of encode at 280"},
    {100, 103, "encode_284", "word of encode at 284"},
};

constexpr std::uint32_t kNoSuchFile = 0xFFFFFFFF;
constexpr int kStaleRounds = 32;             // more is an upload that still runs
constexpr std::int64_t kStaleGapUs = 20000;  // between bytes of such an upload
constexpr std::int64_t kRawAnswerUs = 500000;
constexpr std::size_t kFifoTail = 4;  // last word and the odd extra one, together
constexpr std::size_t kFifoChunk = 512;
static_assert(kFifoChunk + kFifoTail <= kUpdateBlock);

// Without sight of the queues.
constexpr int kMostChanges = 16;                // changing bytes that no answer explains
constexpr int kQuietPolls = 3;                  // the same byte so often is the level of the wire
constexpr std::int64_t kAskAgainUs = 5000000;   // a question may fall on a board that starts
constexpr std::int64_t kSlowestAskUs = 500000;  // between two polls of a busy board
constexpr std::int64_t kAnnouncedUs = 500000;   // between a size and its data
constexpr std::int64_t kEarlyAnswerUs = 50000;  // of a board that wants no parameters
constexpr std::uint8_t kNoBus = 0xFF;           // READ_REG
constexpr std::int64_t kSlowAnswerUs = 300000;  // a shell command, a chip, a file

std::string seconds(std::int64_t us) {
  char text[32];
  snprintf(text, sizeof text, "%g s", static_cast<double>(us) / 1e6);
  return text;
}

std::string name_of(Code code) { return host_command(code).name; }

// ---- primitives ------------------------------------------------------------------
// One byte to the board, read by it before this returns. What comes in belongs
// to nobody.
bool put(Link& link, std::uint8_t byte) {
  std::uint8_t in = 0;
  if (link.transport.transfer(byte, &in)) ++link.stale;
  return link.transport.wait_taken(link.timeout_us);
}

// A byte of file data.
bool put_data(Link& link, std::uint8_t byte) {
  std::uint8_t in = 0;
  if (link.transport.transfer(byte, &in)) ++link.stale;
  return link.transport.wait_data_taken(link.timeout_us);
}

// A board that is slow to act, where its answer is not seen coming.
void leave_time(Link& link, std::int64_t us) {
  if (!link.transport.sees_queues()) link.transport.pause(us);
}

// The byte that the board queues, collected by one poll that the board still
// has to read.
std::optional<std::uint8_t> collect(Link& link) {
  if (!link.transport.wait_answer(link.timeout_us)) return std::nullopt;
  std::uint8_t in = 0;
  if (!link.transport.transfer(kPoll, &in)) return std::nullopt;
  return in;
}

enum class Line { kClear, kUnread, kUploading, kLost };

enum class Asked { kAnswered, kSilent, kBabble };

// Puts a question, again now and then, and polls ever more seldom until a byte
// fits. Bytes that keep changing are a file.
Asked ask_until(Link& link, Code question, bool (*fits)(std::uint8_t), std::int64_t until_us) {
  Transport& transport = link.transport;
  std::int64_t ask_at_us = transport.now_us();
  std::int64_t pause_us = 0;
  std::optional<std::uint8_t> last;
  for (int changes = 0; changes < kMostChanges;) {
    if (transport.now_us() >= ask_at_us) {
      put(link, static_cast<std::uint8_t>(question));
      ask_at_us = transport.now_us() + kAskAgainUs;
    }
    const std::optional<std::uint8_t> byte = collect(link);
    if (byte && fits(*byte)) return Asked::kAnswered;
    if (transport.now_us() >= until_us || !transport.broken().empty()) return Asked::kSilent;
    changes += byte != last ? 1 : 0;
    pause_us = byte != last ? 0 : std::min(pause_us * 2 + 10000, kSlowestAskUs);
    last = byte;
    transport.pause(pause_us);
  }
  return Asked::kBabble;
}

// Polls until nothing new comes: questions that a busy board found waiting have
// their answers now, versions one after the other.
void take_leftovers(Link& link) {
  std::optional<std::uint8_t> last;
  int same = 0;
  for (int round = 0; round < kStaleRounds && same < kQuietPolls; ++round) {
    const std::optional<std::uint8_t> byte = collect(link);
    same = byte != last ? 1 : byte == kHdVersion ? 0 : same + 1;
    last = byte;
  }
}

// Two questions in a row have two answers in a row: not so in an upload, where a
// byte of the file may look like the version.
bool between_commands(Link& link) {
  constexpr auto kQuestion = static_cast<std::uint8_t>(Code::kGetHdVersion);
  put(link, kQuestion);
  std::uint8_t first = 0;
  if (link.transport.wait_answer(link.timeout_us)) link.transport.transfer(kQuestion, &first);
  return first == kHdVersion && collect(link) == kHdVersion;
}

// Makes sure that a board listens for a command, and that no answer is on its way.
Line find_board(Link& link) {
  if (link.in_touch) return Line::kClear;
  const std::int64_t until_us = link.transport.now_us() + link.timeout_us;
  const auto is_version = [](std::uint8_t byte) { return byte == kHdVersion; };
  const auto is_other = [](std::uint8_t byte) { return byte != kHdVersion; };
  Asked asked = Asked::kAnswered;
  // A wire may repeat its last byte, and that may be a version.
  if (collect(link) == kHdVersion)
    asked = ask_until(link, Code::kGetMonitorState, is_other, until_us);
  if (asked == Asked::kAnswered) asked = ask_until(link, Code::kGetHdVersion, is_version, until_us);
  if (asked == Asked::kSilent) return Line::kLost;
  if (asked == Asked::kBabble) return Line::kUploading;
  take_leftovers(link);
  if (!link.found && !between_commands(link)) return Line::kUploading;
  link.in_touch = link.found = true;
  return Line::kClear;
}

// Lets the board finish what earlier conversations left behind: bytes that it
// has not read yet, and answers that nobody collected.
Line clear_line(Link& link) {
  if (!link.transport.sees_queues()) return find_board(link);
  std::int64_t gap_us = 0;
  if (!link.transport.wait_taken(0)) {
    if (!link.transport.wait_taken(link.timeout_us)) return Line::kUnread;
    gap_us = kStaleGapUs;
  }
  for (int round = 0; round < kStaleRounds; ++round) {
    if (!link.transport.wait_answer(gap_us)) return Line::kClear;
    put(link, kPoll);
    gap_us = kStaleGapUs;
  }
  return Line::kUploading;
}

Failure still_sending() {
  return {Trouble::kOutOfStep,
          "the board is in the middle of an upload; it gives up 15 s after the last poll"};
}

Failure not_found(const Link& link) {
  return {Trouble::kSilent, "silent: for " + seconds(link.timeout_us) +
                                " nobody answered GET_HD_VERSION on the wire"};
}

Failure still_unread(const Link& link) {
  return {Trouble::kSilent, "silent: for " + seconds(link.timeout_us) +
                                " the board has not read what was sent to it before"};
}

Failure not_taken(const Link& link, Code code) {
  return {Trouble::kSilent, "silent: the board did not take " + name_of(code) + " within " +
                                seconds(link.timeout_us) + " (the byte stays queued for it)"};
}

Failure no_answer(const Link& link, Code code) {
  return {Trouble::kSilent, "silent: the board took " + name_of(code) +
                                " and did not answer within " + seconds(link.timeout_us)};
}

Failure cut_short(const Link& link, const std::string& what, std::size_t done, std::size_t total) {
  return {Trouble::kIncomplete, what + " stopped after " + std::to_string(done) + " of " +
                                    std::to_string(total) + " bytes: nothing moved for " +
                                    seconds(link.timeout_us)};
}

bool stopped(const Link& link) { return link.stop_asked && link.stop_asked(); }

// A file that stopped on its way to the board.
Failure stopped_sending(const std::string& what, std::size_t done, std::size_t total) {
  return {Trouble::kIncomplete, what + " stopped by hand after " + std::to_string(done) + " of " +
                                    std::to_string(total) +
                                    " bytes; the board waits for the rest, and takes what is sent "
                                    "next for it"};
}

// A file that stopped on its way to the host.
Failure stopped_fetching(std::size_t done, std::size_t total) {
  return {Trouble::kIncomplete, "the upload stopped by hand after " + std::to_string(done) +
                                    " of " + std::to_string(total) +
                                    " bytes; the board gives up 15 s later"};
}

// Opens a conversation: a clean link and the command byte, taken.
Failure begin(Link& link, Code code) {
  switch (clear_line(link)) {
    case Line::kUnread:
      return still_unread(link);
    case Line::kUploading:
      return still_sending();
    case Line::kLost:
      return not_found(link);
    case Line::kClear:
      break;
  }
  if (!put(link, static_cast<std::uint8_t>(code))) return not_taken(link, code);
  return {};
}

// Sends parameter or file bytes; returns how many were taken.
std::size_t put_all(Link& link, std::span<const std::uint8_t> bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (stopped(link) || !put_data(link, bytes[i])) return i;
    if (link.progress) link.progress(i + 1, bytes.size());
  }
  return bytes.size();
}

// What belongs to a command that has begun.
Reply<Nothing> put_parameters(Link& link, Code code, std::span<const std::uint8_t> bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i)
    if (!put(link, bytes[i]))
      return {{}, cut_short(link, "parameters of " + name_of(code), i, bytes.size())};
  link.in_touch = false;  // how long the board works on it is not known
  return {Nothing{}, {}};
}

Reply<Nothing> send_parameters(Link& link, Code code, std::span<const std::uint8_t> bytes) {
  if (Failure failure = begin(link, code); failure.trouble != Trouble::kNone) return {{}, failure};
  return put_parameters(link, code, bytes);
}

Reply<Nothing> send_sized(Link& link, Code code, std::span<const std::uint8_t> data) {
  Reply<Nothing> reply = send_number(link, code, static_cast<std::uint32_t>(data.size()));
  if (!reply.ok()) return reply;
  leave_time(link, kAnnouncedUs);
  const std::size_t taken = put_all(link, data);
  if (taken < data.size())
    return {{},
            stopped(link) ? stopped_sending(name_of(code), taken, data.size())
                          : cut_short(link, name_of(code), taken, data.size())};
  return reply;
}

Failure too_large(std::size_t size) {
  return {Trouble::kRefused, "the package has " + std::to_string(size) +
                                 " bytes; the board takes at most " +
                                 std::to_string(kLargestUpdate)};
}

// What the board says about itself tells which of the three bytes it is.
bool is_status(std::uint8_t byte) { return (byte & 0xF0) == 0x90; }
bool is_cause(std::uint8_t byte) { return (byte & 0xF8) == kCauseNone; }

}  // namespace

std::span<const HostCommand> host_commands() { return kHostCommands; }

const HostCommand& host_command(Code code) {
  return *std::ranges::find(kHostCommands, code, &HostCommand::code);
}

// ---- conversations -----------------------------------------------------------------
Reply<Nothing> send_command(Link& link, Code code) { return send_parameters(link, code, {}); }

Reply<std::uint8_t> ask_byte(Link& link, Code code) {
  if (Failure failure = begin(link, code); failure.trouble != Trouble::kNone) return {{}, failure};
  if (code == Code::kGetUpdateResult) leave_time(link, kSlowAnswerUs);
  const std::optional<std::uint8_t> answer = collect(link);
  if (!answer) return {{}, no_answer(link, code)};
  link.transport.wait_taken(link.timeout_us);
  return {answer, {}};
}

Reply<Nothing> send_number(Link& link, Code code, std::uint32_t number) {
  const std::uint8_t bytes[] = {
      static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
      static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
  return send_parameters(link, code, bytes);
}

Reply<Nothing> send_configuration(Link& link, std::span<const std::uint8_t> file) {
  if (file.size() < kSmallestConfiguration)
    return {{},
            {Trouble::kRefused, "a configuration needs " + std::to_string(kSmallestConfiguration) +
                                    " bytes or more; the board would read these " +
                                    std::to_string(file.size()) + " as commands"}};
  return send_sized(link, Code::kSendHdConfiguration, file);
}

Reply<Nothing> send_update(Link& link, std::span<const std::uint8_t> package) {
  if (package.size() > kLargestUpdate) return {{}, too_large(package.size())};
  return send_sized(link, Code::kUpdateVersion, package);
}

Reply<Nothing> send_update_by_fpga(Link& link, std::span<const std::uint8_t> package,
                                   std::int64_t bytes_per_second) {
  if (package.size() > kLargestUpdate) return {{}, too_large(package.size())};
  Reply<Nothing> reply =
      send_number(link, Code::kNewUpdateVersion, static_cast<std::uint32_t>(package.size()));
  if (!reply.ok()) return reply;
  Bytes words(package.begin(), package.end());
  // The board empties the FIFO by words, and takes one more after an odd size.
  if (words.size() % 2 != 0) words.resize(words.size() + 3);
  std::size_t done = 0;
  while (done < words.size()) {
    if (stopped(link))
      return {{},
              stopped_sending("the update FIFO", std::min(done, package.size()), package.size())};
    const std::size_t left = words.size() - done;
    const std::size_t size = left < kFifoChunk + kFifoTail ? left : kFifoChunk;
    if (!link.transport.push_update(words.data() + done, size, link.timeout_us))
      return {{},
              cut_short(link, "the update FIFO", std::min(done, package.size()), package.size())};
    done += size;
    if (link.progress) link.progress(std::min(done, package.size()), package.size());
    if (bytes_per_second > 0)
      link.transport.pause(static_cast<std::int64_t>(size) * 1000000 / bytes_per_second);
  }
  return reply;
}

Reply<Nothing> send_rtc(Link& link, const std::string& text) {
  const Bytes bytes(text.begin(), text.end());
  if (bytes.size() != kRtcLength)
    return {{}, {Trouble::kRefused, "the clock text has 12 characters (DDMMYYhhmmss)"}};
  return send_parameters(link, Code::kSendRtc, bytes);
}

// A board that lacks its bus or a handle answers at once, before the parameters,
// which it would then take as commands.
Reply<std::uint8_t> read_reg(Link& link, std::uint8_t device, std::uint8_t reg) {
  if (Failure failure = begin(link, Code::kReadReg); failure.trouble != Trouble::kNone)
    return {{}, failure};
  if (link.transport.sees_queues() && link.transport.wait_answer(kEarlyAnswerUs)) {
    const std::uint8_t answer = collect(link).value_or(kNoBus);
    link.transport.wait_taken(link.timeout_us);
    return {{},
            {Trouble::kNoDevice, answer == kNoBus ? "the board cannot open its I2C bus"
                                                  : "the board cannot open its link again"}};
  }
  const std::uint8_t parameters[] = {device, reg};
  const Reply<Nothing> sent = put_parameters(link, Code::kReadReg, parameters);
  if (!sent.ok()) return {{}, sent.failure};
  leave_time(link, kSlowAnswerUs);
  const std::optional<std::uint8_t> answer = collect(link);
  if (!answer) return {{}, no_answer(link, Code::kReadReg)};
  link.transport.wait_taken(link.timeout_us);
  return {answer, {}};
}

Reply<Bytes> fetch_file(Link& link, Code code) {
  if (Failure failure = begin(link, code); failure.trouble != Trouble::kNone) return {{}, failure};
  leave_time(link, kSlowAnswerUs);
  if (!put(link, kPoll)) return {{}, no_answer(link, code)};
  std::uint32_t size = 0;
  for (std::size_t i = 0; i < sizeof size; ++i) {
    const std::optional<std::uint8_t> byte = collect(link);
    if (!byte && i == 0) return {{}, no_answer(link, code)};
    if (!byte) return {{}, cut_short(link, "the size", i, sizeof size)};
    size = size << 8 | *byte;
  }
  Bytes data;
  if (size == kNoSuchFile) {
    link.transport.wait_taken(link.timeout_us);
    return {{}, {Trouble::kNoFile, "the board has no such file (size 0xFFFFFFFF)"}};
  }
  while (data.size() < size) {
    if (stopped(link)) {
      const Failure failure = stopped_fetching(data.size(), size);
      return {std::move(data), failure};
    }
    const std::optional<std::uint8_t> byte = collect(link);
    if (!byte) {
      const Failure failure = cut_short(link, "the upload", data.size(), size);
      return {std::move(data), failure};
    }
    data.push_back(*byte);
    if (link.progress) link.progress(data.size(), size);
  }
  link.transport.wait_taken(link.timeout_us);
  return {std::move(data), {}};
}

Reply<Bytes> read_record(Link& link, std::size_t count) {
  if (count > kShortRecord)
    if (const Reply<Nothing> sent = send_command(link, Code::kGetRegFileSize); !sent.ok())
      return {{}, sent.failure};
  if (const Reply<Nothing> sent = send_command(link, Code::kPrepareFpgaRegisters); !sent.ok())
    return {{}, sent.failure};
  Bytes record;
  while (record.size() < count) {
    const Reply<std::uint8_t> byte = ask_byte(link, Code::kGetRegFileByte);
    if (!byte.ok()) {
      if (record.empty()) return {{}, byte.failure};
      const Failure failure = cut_short(link, "the status record", record.size(), count);
      return {std::move(record), failure};
    }
    record.push_back(*byte.value);
    if (link.progress) link.progress(record.size(), count);
  }
  return {std::move(record), {}};
}

Reply<Status> get_status(Link& link) {
  Status status;
  Reply<std::uint8_t> byte = ask_byte(link, Code::kGetStatus);
  // At most two bytes of a reading that was cut short come first.
  while (byte.ok() && !is_status(*byte.value) && status.skipped < 2) {
    ++status.skipped;
    byte = ask_byte(link, Code::kGetStatus);
  }
  if (!byte.ok()) return {{}, byte.failure};
  status.status = *byte.value;
  byte = ask_byte(link, Code::kGetStatus);
  if (!byte.ok()) return {{}, byte.failure};
  status.cause = *byte.value;
  if (!is_status(status.status) || !is_cause(status.cause)) {
    char text[96];
    snprintf(text, sizeof text, "the board's status bytes are out of step (0x%02x, 0x%02x)",
             status.status, status.cause);
    return {{}, {Trouble::kOutOfStep, text}};
  }
  byte = ask_byte(link, Code::kGetStatus);
  if (!byte.ok()) return {{}, byte.failure};
  status.flags = *byte.value;
  return {status, {}};
}

Reply<std::array<std::uint8_t, 3>> get_sw_version(Link& link) {
  std::array<std::uint8_t, 3> version = {};
  for (std::uint8_t& part : version) {
    const Reply<std::uint8_t> byte = ask_byte(link, Code::kGetSwVersion);
    if (!byte.ok()) return {{}, byte.failure};
    part = *byte.value;
  }
  return {version, {}};
}

Reply<std::uint16_t> get_fps(Link& link) {
  std::uint16_t rate = 0;
  for (int i = 0; i < 2; ++i) {
    const Reply<std::uint8_t> byte = ask_byte(link, Code::kGetFps);
    if (!byte.ok()) {
      Failure failure = byte.failure;
      // The board counts the bytes of GET_FPS and GET_SW_VERSION with one counter.
      failure.text +=
          "; a software version that was read in part blocks GET_FPS "
          "until `melk raw 28` has fetched its last byte";
      return {{}, failure};
    }
    rate = static_cast<std::uint16_t>(rate << 8 | *byte.value);
  }
  return {rate, {}};
}

Reply<Bytes> send_raw(Link& link, std::span<const std::uint8_t> bytes,
                      std::optional<std::size_t> answers) {
  Bytes back;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::uint8_t in = 0;
    if (link.transport.transfer(bytes[i], &in)) back.push_back(in);
    if (!link.transport.wait_taken(link.timeout_us)) {
      if (i == 0)
        return {{},
                {Trouble::kSilent,
                 "silent: the board took nothing within " + seconds(link.timeout_us)}};
      return {std::move(back), cut_short(link, "the bytes", i, bytes.size())};
    }
  }
  if (!answers && !link.transport.wait_answer(kRawAnswerUs)) return {std::move(back), {}};
  const std::size_t wanted = answers.value_or(1);
  for (std::size_t i = 0; i < wanted; ++i) {
    const std::optional<std::uint8_t> byte = collect(link);
    if (!byte) return {std::move(back), cut_short(link, "the answer", i, wanted)};
    back.push_back(*byte);
  }
  if (wanted > 0) link.transport.wait_taken(link.timeout_us);
  return {std::move(back), {}};
}

// ---- meanings ----------------------------------------------------------------------
std::string describe_status(std::uint8_t status) {
  if (status == kStatusWrongSize)
    return "configuration arrived with the wrong size, or 7 restarts in a row";
  std::string text = status_healthy(status) ? "healthy" : "not healthy";
  const int restarts = status_restarts(status);
  if (restarts > 0)
    text += ", " + std::to_string(restarts) + (restarts == 1 ? " restart" : " restarts");
  return text;
}

std::span<const RestartCause> restart_causes() { return kRestartCauses; }

const char* describe_cause(std::uint8_t code) {
  if (code == kCauseNone) return "no restart";
  const auto* row = std::ranges::find(kRestartCauses, code, &RestartCause::code);
  return row == std::end(kRestartCauses) ? "unknown" : row->text;
}

const char* monitor_state_name(std::uint8_t state) {
  constexpr const char* kNames[] = {"watching", "no video input", "restart", "stopped"};
  return state < std::size(kNames) ? kNames[state] : "idle";
}

const char* input_mux_name(std::uint8_t channel) {
  switch (channel) {
    case 0:
      return "component";
    case 3:
      return "RGB/VGA";
    case 4:
      return "composite";
    default:
      return "unknown";
  }
}

std::span<const MonitorFlag> monitor_flags() { return kMonitorFlags; }

std::vector<const char*> set_flags(std::uint8_t flags) {
  std::vector<const char*> texts = {monitor_state_name(flags & kFlagsState)};
  for (const MonitorFlag& flag : kMonitorFlags)
    if ((flags & flag.mask) != 0) texts.push_back(flag.text);
  return texts;
}

std::span<const RecordField> record_fields() { return kRecordFields; }

std::uint32_t field_value(std::span<const std::uint8_t> record, const RecordField& field) {
  std::uint32_t value = 0;
  for (std::size_t i = field.first; i <= field.last; ++i) {
    const std::size_t at =
        field.order == ByteOrder::kHighFirst ? i : field.last - (i - field.first);
    value = value << 8 | record[at];
  }
  return value;
}

}  // namespace melk
