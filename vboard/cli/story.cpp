// Reads a record: the transfers of the link become commands with their answers, the
// program's lines and calls what the service was about, the board's changes spans
// and curves.
#include "vboard/cli/story.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "hw/fpga_registers.h"
#include "melk/protocol.h"

namespace vboard {

namespace {

double seconds_of(std::int64_t us) { return static_cast<double>(us) / 1e6; }

// A lane of spans, built from changes.
class Lane {
 public:
  explicit Lane(std::vector<Span>& spans) : spans_(spans) {}

  // From `at` on it is so; "" for nothing to show.
  void change(double at, const std::string& text, const char* look) {
    if (text == text_) return;
    finish(at);
    text_ = text;
    look_ = look;
    from_ = at;
  }
  void finish(double at) {
    if (!text_.empty() && at > from_) spans_.push_back({from_, at, text_, look_});
    text_.clear();
  }

 private:
  std::vector<Span>& spans_;
  std::string text_;
  const char* look_ = "";
  double from_ = 0;
};

// ---- what the host said ------------------------------------------------------------------

// Bytes that follow a command; kSizeAndFile: four of size, then that many.
constexpr int kSizeAndFile = -1;
constexpr int kSizeBytes = 4;
int parameters_of(melk::Code code) {
  switch (code) {
    case melk::Code::kSendHdConfiguration:
    case melk::Code::kUpdateVersion:
      return kSizeAndFile;
    case melk::Code::kSendRtc:
      return static_cast<int>(melk::kRtcLength);
    case melk::Code::kReadReg:
      return 2;
    case melk::Code::kSetSpts:
    case melk::Code::kNewUpdateVersion:
      return kSizeBytes;
    default:
      return 0;
  }
}

const melk::HostCommand* command_of(unsigned code) {
  for (const melk::HostCommand& row : melk::host_commands())
    if (static_cast<unsigned>(row.code) == code) return &row;
  return nullptr;
}

// Puts the transfers of the link together to commands and answers.
class HostTalk {
 public:
  explicit HostTalk(std::vector<Mark>& marks) : marks_(marks) {}

  void transfer(double at, unsigned out, int in) {
    if (in >= 0 && !said_.empty()) {
      said_.back().answer.push_back(static_cast<unsigned>(in));
      said_.back().until = at;
    }
    if (awaited_ > 0) {
      parameter(out);
      return;
    }
    const melk::HostCommand* row = command_of(out);
    if (row == nullptr) return;  // a poll byte
    said_.push_back({at, at, row, {}, 0});
    const int parameters = parameters_of(row->code);
    size_follows_ = parameters == kSizeAndFile;
    awaited_ = size_follows_ ? kSizeBytes : static_cast<std::uint32_t>(parameters);
  }

  void finish() {
    for (std::size_t i = 0; i < said_.size(); i += tell(i)) {
    }
  }

 private:
  struct Said {
    double at;
    double until;  // its answer was collected
    const melk::HostCommand* row;
    std::vector<unsigned> answer;
    std::uint32_t size;
  };

  void parameter(unsigned out) {
    --awaited_;
    if (!size_follows_) return;
    said_.back().size = said_.back().size << 8 | out;
    if (awaited_ > 0) return;
    size_follows_ = false;
    awaited_ = said_.back().size;
  }

  // Adds the command at `i`, with those after it that belong to it; returns how many.
  std::size_t tell(std::size_t i) {
    const Said& one = said_[i];
    std::size_t count = 1;
    std::vector<unsigned> answer = one.answer;
    const char* look = "host";
    while (one.row->back[0] != '\0' && i + count < said_.size() &&
           said_[i + count].row == one.row &&
           said_[i + count].at < said_[i + count - 1].until + kPause_s &&
           (one.row->code != melk::Code::kGetStatus || count < 3)) {
      const Said& more = said_[i + count];
      answer.insert(answer.end(), more.answer.begin(), more.answer.end());
      ++count;
    }
    std::string text = one.row->word;
    if (one.size > 0) text += " " + std::to_string(one.size) + " bytes";
    if (one.row->code == melk::Code::kGetStatus && !answer.empty())
      look = melk::status_healthy(static_cast<std::uint8_t>(answer[0])) ? "healthy" : "unwell";
    for (std::size_t b = 0; b < std::min(answer.size(), kShownBytes); ++b)
      text += " " + hex_byte(answer[b]);
    marks_.push_back({one.at, text, look});
    return count;
  }

  static constexpr double kPause_s = 0.5;
  static constexpr std::size_t kShownBytes = 3;
  std::vector<Mark>& marks_;
  std::vector<Said> said_;
  std::uint32_t awaited_ = 0;
  bool size_follows_ = false;
};

// ---- what the service was about -----------------------------------------------------------

// What the program prints before a restart, and the cause reported to the host.
constexpr struct {
  const char* text;
  int cause;
} kCauseMessages[] = {
    {"RESTART - video buffer overflow!!", 0x81},
    {"RESTART - audio buffer overflow!!", 0x82},
    {"restart!! - audio ovf!!!", 0x82},
    {"tvp is o.k. , and There is no video_buf", 0x83},
    {"RESTART!! - no audio!!", 0x84},
    {"audio after no audio!!", 0x84},
    {"restart - tvp is back!!", 0x85},
    {"restart!! - no_tvp", 0x86},
    {"restart - video_buf is far away from vid_buf_init", 0x87},
};
constexpr const char* kWorries[] = {"video_buf is not o.k.", "au_overall doesnt change!",
                                    "no audio!!!!!!!!", "monitor sense low buffer"};
constexpr const char kConfigurationArrives[] = "get SEND_HD_CONFIGURATION command";
constexpr double kWorryLasts_s = 2.5;  // a cycle and a half
constexpr const char kMain[] = "main";
constexpr const char kKillsEncode[] = "shell killall encode";
constexpr const char kRelaunched[] = "wait 15000000";

class ServiceTale {
 public:
  explicit ServiceTale(Story& story) : story_(story), lane_(story.service) {}

  void says(double at, const std::string& text) {
    if (text.starts_with(kConfigurationArrives)) lane_.change(at, "applies", "busy");
    for (const auto& row : kCauseMessages)
      if (cause_ == 0 && text.find(row.text) != std::string::npos) cause_ = row.cause;
    for (const char* worry : kWorries)
      if (text.starts_with(worry) && watching_) {
        lane_.change(at, "worried", "worry");
        worried_until_ = at + kWorryLasts_s;
      }
  }

  void operation(double at, const RecordLine& line) {
    if (line.who != kMain) return;
    if (line.what == kKillsEncode && last_ != kKillsEncode) {
      story_.restarts.push_back({at, cause_});
      cause_ = 0;
      watching_ = false;
      lane_.change(at, "restarts", "restart");
    } else if (last_ == kRelaunched || reads_levels(line)) {
      watching_ = true;
      if (at >= worried_until_) lane_.change(at, "watches", "good");
    }
    last_ = line.what;
  }

  void finish(double at) { lane_.finish(at); }

 private:
  // In a restart the registers are dumped before encode is killed and not again.
  bool reads_levels(const RecordLine& line) const {
    unsigned address = 0;
    return (watching_ || story_.restarts.empty()) &&
           sscanf(line.what.c_str(), "fpga wr 0x%x", &address) == 1 && address == kRegLatch;
  }

  Story& story_;
  Lane lane_;
  std::string last_;
  int cause_ = 0;
  bool watching_ = false;
  double worried_until_ = 0;
};

// ---- the whole record ------------------------------------------------------------------------

// A level holds until it was last seen to; then it moved to its new value.
void add_level(std::vector<Point>& points, double at, double level) {
  if (!points.empty()) {
    const double held = at - seconds_of(kWatchInterval_us);
    if (held > points.back().at) points.push_back({held, points.back().level});
  }
  points.push_back({at, level});
}

const char* look_of_encode(const std::string& state) {
  if (state == "streams") return "good";
  return state == "starts" ? "busy" : "worry";
}

}  // namespace

std::string hex_byte(unsigned byte) {
  char text[8];
  snprintf(text, sizeof text, "%02X", byte & 0xFF);
  return text;
}

Story tell(const Record& record) {
  Story story;
  story.begin = seconds_of(record.run.started_us);
  story.end = std::max(seconds_of(record.end_us()), story.begin + 1e-3);
  Lane video(story.video);
  Lane audio(story.audio);
  Lane encode(story.encode);
  HostTalk host(story.host);
  ServiceTale service(story);
  for (const RecordLine& line : record.lines) {
    const double at = seconds_of(line.time_us);
    const std::size_t blank = line.what.find(' ');
    const std::string first = line.what.substr(0, blank);
    const std::string rest = blank == std::string::npos ? "" : line.what.substr(blank + 1);
    const std::string shown = rest == "none" ? "" : rest;
    if (line.kind == RecordKind::kWorld) story.world.push_back({at, line.what, "world"});
    if (line.kind == RecordKind::kSays) service.says(at, line.what);
    if (line.kind == RecordKind::kOperation) service.operation(at, line);
    if (line.kind == RecordKind::kHost && first == "link") {
      unsigned out = 0;
      unsigned in = 0;
      const bool answered = sscanf(rest.c_str(), "%x -> %x", &out, &in) == 2;
      host.transfer(at, out, answered ? static_cast<int>(in) : -1);
    }
    if (line.kind != RecordKind::kBoard) continue;
    if (first == "video") video.change(at, shown, rest == "frozen" ? "worry" : "signal");
    if (first == "audio") audio.change(at, shown, "signal");
    if (first == "encode") encode.change(at, shown, look_of_encode(rest));
    double levels[2] = {};
    if (first != "levels" || sscanf(rest.c_str(), "%lf %lf", levels, levels + 1) != 2) continue;
    add_level(story.video_level, at, levels[0]);
    add_level(story.audio_level, at, levels[1]);
  }
  for (Lane* lane : {&video, &audio, &encode}) lane->finish(story.end);
  service.finish(story.end);
  host.finish();
  for (std::vector<Point>* level : {&story.video_level, &story.audio_level})
    if (!level->empty()) level->push_back({story.end, level->back().level});
  return story;
}

}  // namespace vboard
