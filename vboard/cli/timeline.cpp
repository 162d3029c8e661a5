// Draws a record as a picture: over board time what the host and the world did, what
// was plugged in, what the service and encode were about, the buffer levels, and the
// restarts with their causes. What there is to draw comes from story.cpp.
#include "vboard/cli/timeline.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "melk/protocol.h"
#include "vboard/cli/story.h"

namespace vboard {

namespace {

constexpr double kWidth = 960;
constexpr double kLeft = 104;
constexpr double kRight = 936;
constexpr double kTop = 66;
constexpr double kBand = 18;
constexpr double kGap = 9;
constexpr double kRow = 15;
constexpr double kChart = 120;
constexpr double kLetter = 5.6;  // width of one, on the average
constexpr std::size_t kMostRows = 5;
constexpr std::size_t kMostCauses = 12;

constexpr char kStyle[] = R"(<style>
  text { font: 11px system-ui, "DejaVu Sans", sans-serif; fill: #25303b; }
  .title { font-size: 15px; font-weight: 600; }
  .quiet { fill: #687480; }
  .right { text-anchor: end; }
  .middle { text-anchor: middle; }
  .paper { fill: #ffffff; }
  .grid { stroke: #e6eaee; }
  .lane { fill: #f4f6f8; }
  .mark { stroke: #ffffff; stroke-width: 1; }
  .span { fill-opacity: .26; stroke-width: 1; }
  .signal { fill: #4a78ad; stroke: #4a78ad; }
  .good, .healthy { fill: #4c9268; stroke: #4c9268; }
  .busy { fill: #8b7bb5; stroke: #8b7bb5; }
  .worry { fill: #d29a35; stroke: #d29a35; }
  .restart, .unwell { fill: #b9484a; stroke: #b9484a; }
  .host, .world { fill: #7a8794; stroke: #7a8794; }
  .cut { stroke: #b9484a; stroke-dasharray: 3 3; }
  .number { fill: #ffffff; font-size: 10px; font-weight: 600; text-anchor: middle; }
  .video-level { fill: none; stroke: #3b6ea8; stroke-width: 1.6; }
  .audio-level { fill: none; stroke: #c2742f; stroke-width: 1.6; }
  .video-text { fill: #3b6ea8; }
  .audio-text { fill: #b0651f; }
  @media (prefers-color-scheme: dark) {
    text { fill: #dfe5eb; }
    .quiet { fill: #93a0ad; }
    .paper { fill: #14191f; }
    .grid { stroke: #2b333c; }
    .lane { fill: #1b2128; }
    .mark { stroke: #14191f; }
    .span { fill-opacity: .36; }
    .video-level { stroke: #7fb0e6; }
    .audio-level { stroke: #e5a467; }
    .video-text { fill: #7fb0e6; }
    .audio-text { fill: #e5a467; }
    .number { fill: #ffffff; }
  }
</style>
)";

std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else if (c == '&')
      out += "&amp;";
    else if (c == '"')
      out += "&quot;";
    else
      out += c;
  }
  return out;
}

std::string number(double value) {
  char text[32];
  snprintf(text, sizeof text, "%.1f", value);
  return text;
}

double width_of(const std::string& text) { return static_cast<double>(text.size()) * kLetter; }

// Steps of the time axis, and the unit that they are written in.
struct Unit {
  double seconds;
  const char* name;
};
constexpr Unit kSeconds = {1, "s"};
constexpr Unit kMinutes = {60, "min"};
constexpr Unit kHours = {3600, "h"};
constexpr struct {
  double step;
  Unit unit;
} kSteps[] = {{0.001, kSeconds}, {0.01, kSeconds},   {0.1, kSeconds},    {0.5, kSeconds},
              {1, kSeconds},     {5, kSeconds},      {10, kSeconds},     {30, kSeconds},
              {60, kMinutes},    {300, kMinutes},    {600, kMinutes},    {1800, kMinutes},
              {3600, kHours},    {4 * 3600, kHours}, {24 * 3600, kHours}};
constexpr double kMostTicks = 12;

std::string duration_text(double seconds) {
  const Unit unit = seconds >= 3 * 3600 ? kHours : seconds >= 180 ? kMinutes : kSeconds;
  char text[40];
  snprintf(text, sizeof text, "%.6g %s", std::round(seconds / unit.seconds * 10) / 10, unit.name);
  return text;
}

struct Key {
  const char* look;
  const char* text;
};
constexpr double kKeyWidth = 32;

class Picture {
 public:
  explicit Picture(const Story& story) : story_(story) {}

  std::string draw(const std::string& title, const std::string& subtitle) {
    marks("host", story_.host);
    marks("world", story_.world);
    spans("video input", story_.video);
    spans("audio input", story_.audio);
    const double restarts_from = y_;
    restart_numbers();
    spans("service", story_.service);
    spans("encode", story_.encode);
    chart();
    const double bottom = y_;
    axis(bottom);
    cuts(restarts_from, bottom);
    causes();
    legend();
    return document(title, subtitle);
  }

 private:
  double x(double at) const {
    return kLeft + (at - story_.begin) / (story_.end - story_.begin) * (kRight - kLeft);
  }

  void text(double at_x, double at_y, const std::string& what, const char* look) {
    body_ += "<text class=\"" + std::string(look) + "\" x=\"" + number(at_x) + "\" y=\"" +
             number(at_y) + "\">" + escaped(what) + "</text>\n";
  }

  static std::string with_hint(const char* element, const std::string& hint) {
    if (hint.empty()) return "/>\n";
    return "><title>" + escaped(hint) + "</title></" + element + ">\n";
  }

  // A rectangle; `hint` shows when a pointer rests on it.
  void box(double from, double to, double at_y, double height, const std::string& look,
           const std::string& hint, std::string* layer) {
    *layer += "<rect class=\"" + look + "\" x=\"" + number(from) + "\" y=\"" + number(at_y) +
              "\" width=\"" + number(std::max(to - from, 0.6)) + "\" height=\"" + number(height) +
              "\" rx=\"2\"" + with_hint("rect", hint);
  }

  void line(double x1, double y1, double x2, double y2, const char* look, std::string* to) {
    *to += "<line class=\"" + std::string(look) + "\" x1=\"" + number(x1) + "\" y1=\"" +
           number(y1) + "\" x2=\"" + number(x2) + "\" y2=\"" + number(y2) + "\"/>\n";
  }

  void dot(double at_x, double at_y, double radius, const std::string& look,
           const std::string& hint = {}) {
    body_ += "<circle class=\"" + look + "\" cx=\"" + number(at_x) + "\" cy=\"" + number(at_y) +
             "\" r=\"" + number(radius) + "\"" + with_hint("circle", hint);
  }

  void name(const char* what, double height) {
    box(kLeft, kRight, y_, height, "lane", "", &ground_);
    text(kLeft - 10, y_ + kBand / 2 + 4, what, "right quiet");
  }

  // Each mark in the first row with room for its text; a dot alone when there is none.
  void marks(const char* lane, const std::vector<Mark>& all) {
    struct Placed {
      const Mark* mark;
      std::size_t row;
      bool with_text;
      bool to_the_left;
    };
    std::vector<Placed> placed;
    std::vector<double> free_from;
    const Mark* told = nullptr;
    for (const Mark& mark : all) {
      const double width = width_of(mark.text) + 12;
      const double at = x(mark.at);
      const bool left = at + width > kRight;
      const double begin = left ? at - width : at - 4;
      const bool again = told != nullptr && told->text == mark.text && told->look == mark.look;
      std::size_t row = 0;
      while (row < free_from.size() && free_from[row] > begin) ++row;
      const bool fits = row < kMostRows && !again;
      if (fits && row == free_from.size()) free_from.push_back(0);
      if (fits) free_from[row] = (left ? at + 6 : at + width);
      placed.push_back({&mark, fits ? row : 0, fits, left});
      if (fits) told = &mark;
    }
    const double height =
        static_cast<double>(std::max<std::size_t>(free_from.size(), 1)) * kRow + 3;
    name(lane, height);
    for (const Placed& one : placed) {
      const double at_y = y_ + 9 + static_cast<double>(one.row) * kRow;
      dot(x(one.mark->at), at_y, 3.4, std::string("mark ") + one.mark->look,
          one.mark->text + ", " + number(one.mark->at) + " s");
      if (!one.with_text) continue;
      if (one.to_the_left)
        text(x(one.mark->at) - 7, at_y + 4, one.mark->text, "right");
      else
        text(x(one.mark->at) + 7, at_y + 4, one.mark->text, "");
    }
    y_ += height + kGap;
  }

  void spans(const char* lane, const std::vector<Span>& all) {
    name(lane, kBand);
    for (const Span& span : all) {
      const double from = x(span.from);
      const double to = x(span.to);
      box(from, to, y_, kBand, std::string("span ") + span.look,
          span.text + ", " + number(span.from) + " to " + number(span.to) + " s", &body_);
      if (width_of(span.text) + 8 < to - from) text(from + 5, y_ + 13, span.text, "");
    }
    y_ += kBand + kGap;
  }

  void restart_numbers() {
    if (story_.restarts.empty()) return;
    text(kLeft - 10, y_ + 12, "restarts", "right quiet");
    double last = -100;
    for (std::size_t i = 0; i < story_.restarts.size(); ++i) {
      const double at = x(story_.restarts[i].at);
      if (at < last + 16) continue;
      dot(at, y_ + 8, 7.5, "restart");
      text(at, y_ + 11.6, std::to_string(i + 1), "number");
      last = at;
    }
    y_ += 16 + kGap - 4;
  }

  double highest() const {
    double level = 10;
    for (const std::vector<Point>* curve : {&story_.video_level, &story_.audio_level})
      for (const Point& point : *curve) level = std::max(level, point.level);
    return std::ceil(level / 10) * 10;
  }

  // Of the points that fall on one column only the outermost are drawn.
  void curve(const std::vector<Point>& points, double top, const char* look) {
    const double scale = (kChart - 8) / top;
    std::string path;
    for (std::size_t i = 0; i < points.size();) {
      const double column = std::floor(x(points[i].at) * 2);
      std::size_t end = i;
      std::size_t low = i;
      std::size_t high = i;
      for (; end < points.size() && std::floor(x(points[end].at) * 2) == column; ++end) {
        if (points[end].level < points[low].level) low = end;
        if (points[end].level > points[high].level) high = end;
      }
      std::size_t kept[] = {i, std::min(low, high), std::max(low, high), end - 1};
      for (std::size_t k = 0; k < std::size(kept); ++k) {
        if (k > 0 && kept[k] == kept[k - 1]) continue;
        path += (path.empty() ? "" : " ") + number(x(points[kept[k]].at)) + "," +
                number(y_ + kChart - points[kept[k]].level * scale);
      }
      i = end;
    }
    if (!path.empty())
      body_ += "<polyline class=\"" + std::string(look) + "\" points=\"" + path + "\"/>\n";
  }

  void chart() {
    const double top = highest();
    box(kLeft, kRight, y_, kChart, "lane", "", &ground_);
    text(kLeft - 10, y_ + 13, "buffers", "right quiet");
    text(kLeft - 10, y_ + 30, "video", "right video-text");
    text(kLeft - 10, y_ + 45, "audio", "right audio-text");
    const int step = top > 60 ? 30 : top > 20 ? 20 : 5;
    for (int level = 0; level <= static_cast<int>(top); level += step) {
      const double at_y = y_ + kChart - level * (kChart - 8) / top;
      line(kLeft, at_y, kRight, at_y, "grid", &ground_);
      text(kRight + 5, at_y + 4, std::to_string(level), "quiet");
    }
    curve(story_.audio_level, top, "audio-level");
    curve(story_.video_level, top, "video-level");
    y_ += kChart;
  }

  void axis(double bottom) {
    const double length = story_.end - story_.begin;
    const auto* chosen = std::begin(kSteps);
    while (chosen + 1 != std::end(kSteps) && length / chosen->step > kMostTicks) ++chosen;
    double step = chosen->step;
    while (length / step > kMostTicks) step *= 2;
    const auto first = static_cast<long>(std::ceil(story_.begin / step - 1e-9));
    const auto last = static_cast<long>(std::floor(story_.end / step + 1e-9));
    for (long tick = first; tick <= last; ++tick) {
      const double at = static_cast<double>(tick) * step;
      line(x(at), kTop, x(at), bottom + 4, "grid", &ground_);
      char label[40];
      snprintf(label, sizeof label, "%.6g", at / chosen->unit.seconds);
      text(x(at), bottom + 17, label, "middle quiet");
    }
    text(kLeft - 10, bottom + 17, std::string("board time, ") + chosen->unit.name, "right quiet");
    y_ = bottom + 30;
  }

  void cuts(double from, double to) {
    for (const Restart& restart : story_.restarts)
      line(x(restart.at), from + 16, x(restart.at), to, "cut", &body_);
  }

  void causes() {
    if (story_.restarts.empty()) return;
    y_ += 6;
    for (std::size_t i = 0; i < std::min(story_.restarts.size(), kMostCauses); ++i) {
      const Restart& one = story_.restarts[i];
      dot(kLeft + 8, y_ + 4, 7.5, "restart");
      text(kLeft + 8, y_ + 7.6, std::to_string(i + 1), "number");
      std::string what = "restart at " + number(one.at) + " s";
      if (one.cause != 0)
        what += ": " + std::string(melk::describe_cause(static_cast<std::uint8_t>(one.cause))) +
                " (" + hex_byte(static_cast<unsigned>(one.cause)) + ")";
      text(kLeft + 22, y_ + 8, what, "");
      y_ += 19;
    }
    if (story_.restarts.size() > kMostCauses) {
      text(kLeft + 22, y_ + 8,
           "and " + std::to_string(story_.restarts.size() - kMostCauses) + " more", "quiet");
      y_ += 19;
    }
  }

  // What the colours of the bands say, at the upper right.
  void legend() {
    static constexpr Key kKeys[] = {{"busy", "starts up"},
                                    {"good", "in order"},
                                    {"worry", "impaired"},
                                    {"restart", "restarts"}};
    double at = kRight;
    for (const Key& key : kKeys) at -= width_of(key.text) + kKeyWidth;
    for (const Key& key : kKeys) {
      box(at, at + 11, 37, 11, std::string("span ") + key.look, "", &body_);
      text(at + 16, 47, key.text, "quiet");
      at += width_of(key.text) + kKeyWidth;
    }
  }

  std::string document(const std::string& title, const std::string& subtitle) const {
    const std::string size = number(kWidth) + " " + number(y_ + 12);
    std::string out = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + size +
                      "\" width=\"" + number(kWidth) + "\" height=\"" + number(y_ + 12) +
                      "\" role=\"img\">\n<title>" + escaped(title) + "</title>\n" + kStyle +
                      "<rect class=\"paper\" width=\"100%\" height=\"100%\"/>\n";
    out += "<text class=\"title\" x=\"" + number(kLeft) + "\" y=\"28\">" + escaped(title) +
           "</text>\n<text class=\"quiet\" x=\"" + number(kLeft) + "\" y=\"47\">" +
           escaped(subtitle) + "</text>\n";
    return out + ground_ + body_ + "</svg>\n";
  }

  const Story& story_;
  std::string ground_;  // lanes and lines, beneath the rest
  std::string body_;
  double y_ = kTop;
};

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    const std::size_t slash = text.empty() ? word.rfind('/') : std::string::npos;
    text +=
        (text.empty() ? "" : " ") + (slash == std::string::npos ? word : word.substr(slash + 1));
  }
  return text;
}

}  // namespace

int draw_timeline(const TimelineOptions& options, std::string* problem) {
  constexpr int kOwnFailure = 125;
  Record record;
  if (!read_whole_record(options.record, &record, problem)) return kOwnFailure;
  const Story story = tell(record);
  const std::string title = options.title.empty() ? joined(record.run.command) : options.title;
  const std::string subtitle =
      duration_text(story.end - story.begin) + " of board time, recorded in " + record.run.time +
      " time; " + std::to_string(story.restarts.size()) +
      (story.restarts.size() == 1 ? " restart" : " restarts") + " of encode";
  std::ofstream out(options.output, std::ios::binary);
  if (out && out << Picture(story).draw(title, subtitle) && out.flush()) return 0;
  *problem = "cannot write " + options.output + ": " + strerror(errno);
  return kOwnFailure;
}

}  // namespace vboard
