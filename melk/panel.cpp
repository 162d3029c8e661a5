// Lines of the panel, and the history behind them.
#include "melk/panel.h"

#include <algorithm>
#include <cstring>

#include "melk/text.h"

namespace melk {

namespace {

constexpr std::uint8_t kStateNoInput = 1;
constexpr std::uint8_t kStateRestart = 2;
constexpr std::uint8_t kStateStopped = 3;
constexpr std::size_t kEventsKept = 200;
constexpr std::size_t kNarrowestBar = 10;
constexpr std::size_t kWidestBar = 50;

const RecordField& record_field(const char* name) {
  return *std::ranges::find_if(
      record_fields(), [name](const RecordField& field) { return strcmp(field.name, name) == 0; });
}

std::string cause_text(const Status& status) {
  return text_of("0x%02x %s", status.cause, describe_cause(status.cause));
}

// '#' up to the level, '|' where the level had settled.
std::string bar(std::uint32_t level, std::uint32_t settled, std::uint32_t full, std::size_t width) {
  const auto place = [&](std::uint32_t value) {
    const std::uint64_t cells = full == 0 ? 0 : std::uint64_t{value} * width / full;
    return static_cast<std::size_t>(std::min<std::uint64_t>(width, cells));
  };
  std::string text = std::string(place(level), '#') + std::string(width - place(level), '.');
  if (settled > 0 && place(settled) < width) text[place(settled)] = '|';
  return "[" + text + "]";
}

}  // namespace

std::string clock_text(double seconds) {
  const auto whole = static_cast<long long>(seconds);
  return text_of("%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
}

std::uint32_t record_value(const Reading& reading, const char* field) {
  const RecordField& one = record_field(field);
  return one.last < reading.record.size() ? field_value(reading.record, one) : 0;
}

double frame_rate(const Reading& reading) {
  const std::uint32_t period = record_value(reading, "vs_rate");
  return period == 0 ? 0 : static_cast<double>(kFrameClock) / period;
}

void Panel::remember(double at_s, const std::string& text, Look look) {
  events_.push_front({at_s, text, look});
  if (events_.size() > kEventsKept) events_.pop_back();
}

void Panel::notice_changes(const Reading& reading) {
  if (!failure_.empty()) remember(reading.at_s, "the board answers", Look::kGood);
  if (!last_) return;
  const bool begins = reading.state == kStateRestart && last_->state != kStateRestart;
  const bool counted =
      status_restarts(reading.status.status) > status_restarts(last_->status.status) &&
      last_->state != kStateRestart;
  if (begins || counted) {
    ++restarts_;
    remember(reading.at_s, "restart, cause " + cause_text(reading.status), Look::kBad);
  }
  if (reading.state != last_->state &&
      (reading.state == kStateNoInput || reading.state == kStateStopped))
    remember(reading.at_s, monitor_state_name(reading.state), Look::kBad);
  const bool healthy = status_healthy(reading.status.status);
  if (healthy && !status_healthy(last_->status.status))
    remember(reading.at_s, "healthy", Look::kGood);
}

void Panel::take(const Reading& reading) {
  notice_changes(reading);
  failure_.clear();
  now_s_ = reading.at_s;
  for (Buffer& buffer : buffers_)
    buffer.highest = std::max(buffer.highest, record_value(reading, buffer.level));
  before_ = std::move(last_);
  last_ = reading;
}

void Panel::take_failure(double at_s, const std::string& text) {
  if (failure_.empty()) remember(at_s, "no answer", Look::kBad);
  now_s_ = at_s;
  failure_ = text;
}

PanelLine Panel::state_line() const {
  if (!failure_.empty()) return {"State         no answer: " + failure_, Look::kBad};
  const std::uint8_t status = last_->status.status;
  const bool good = status_healthy(status) && status != kStatusWrongSize;
  return {text_of("State         %s, status 0x%02x %s", monitor_state_name(last_->state), status,
                  describe_status(status).c_str()),
          good ? Look::kGood : Look::kBad};
}

// Units a second of a counter that wraps at 32 bits.
double Panel::rate(const char* field) const {
  if (!before_ || last_->at_s <= before_->at_s) return 0;
  const std::uint32_t moved = record_value(*last_, field) - record_value(*before_, field);
  return moved / (last_->at_s - before_->at_s);
}

PanelLine Panel::rates_line() const {
  return {text_of("Rates         video %.0f units/s, audio %.0f samples/s in, %.0f units/s",
                  rate("vi_overall"), rate("au_i2s_overall"), rate("au_overall"))};
}

// The bar ends at twice the settled level, or at the highest level seen.
PanelLine Panel::buffer_line(const Buffer& buffer, std::size_t columns) const {
  const std::uint32_t level = record_value(*last_, buffer.level);
  const std::uint32_t settled = record_value(*last_, buffer.settled);
  const std::uint32_t full = std::max(2 * settled, buffer.highest);
  const std::string figures = settled > 0 ? text_of(" %u of settled %u", level, settled)
                                          : text_of(" %u, not settled", level);
  constexpr std::size_t kTitle = 14;
  const std::size_t taken = kTitle + figures.size() + 2;
  const std::size_t room = columns > taken ? columns - taken : 0;
  const std::size_t width = std::clamp(room, kNarrowestBar, kWidestBar);
  return {text_of("%-14s%s%s", buffer.title, bar(level, settled, full, width).c_str(),
                  figures.c_str())};
}

std::vector<PanelLine> Panel::lines(std::size_t rows, std::size_t columns) const {
  std::vector<PanelLine> all;
  all.push_back({text_of("melk watch  %s  %s  every %g s, q ends it", board_.c_str(),
                         clock_text(now_s_).c_str(), interval_s_),
                 Look::kTitle});
  if (last_ || !failure_.empty()) all.push_back(state_line());
  if (last_) {
    const double fps = frame_rate(*last_);
    const bool locked = (last_->status.flags & 0x08) == 0;
    all.push_back({text_of("Input         %s, %s", input_mux_name(last_->input),
                           locked ? "locked" : "not locked") +
                   (fps > 0 ? text_of(", %.2f frames/s", fps) : "")});
    all.push_back({"Last cause    " + cause_text(last_->status)});
    all.push_back({"Flags         " + joined(set_flags(last_->status.flags))});
    if (!last_->record.empty()) {
      all.push_back({});
      for (const Buffer& buffer : buffers_) all.push_back(buffer_line(buffer, columns));
      all.push_back(rates_line());
    }
  }
  all.push_back({});
  all.push_back({text_of("Restarts seen %zu", restarts_), Look::kTitle});
  for (const Event& event : events_)
    all.push_back({"  " + clock_text(event.at_s) + "  " + event.text, event.look});
  if (all.size() > rows) all.resize(rows);
  for (PanelLine& line : all)
    if (line.text.size() > columns) line.text.resize(columns);
  return all;
}

}  // namespace melk
