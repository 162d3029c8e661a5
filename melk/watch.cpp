// Readings, and the three ways to show them.
#include "melk/watch.h"

#include <algorithm>

#include "melk/panel.h"

namespace melk {

namespace {

// Bytes of the status record that a line shows (up to the audio buffer), and that
// the panel and JSON show (up to the settled levels).
constexpr std::size_t kLineRecord = 25;
constexpr std::size_t kPanelRecord = 49;

constexpr std::int64_t kPanelPatienceUs = 2000000;  // keys wait as long
constexpr std::int64_t kKeySliceUs = 50000;

Reply<Reading> take_reading(Session& session, bool all, double at_s) {
  const Conversation alone(session.link.transport);
  session.link.in_touch = false;  // much may have happened since the last one
  Reading reading;
  reading.at_s = at_s;
  const Reply<std::uint8_t> state = ask_byte(session.link, Code::kGetMonitorState);
  if (!state.ok()) return {{}, state.failure};
  reading.state = *state.value;
  const Reply<Status> status = get_status(session.link);
  if (!status.ok()) return {{}, status.failure};
  reading.status = *status.value;
  if (all) {
    const Reply<std::uint8_t> input = ask_byte(session.link, Code::kGetInputMux);
    if (!input.ok()) return {{}, input.failure};
    reading.input = *input.value;
  }
  if (!session.request.no_levels) {
    Reply<Bytes> record = read_record(session.link, all ? kPanelRecord : kLineRecord);
    if (!record.ok()) return {{}, record.failure};
    reading.record = std::move(*record.value);
  }
  return {reading, {}};
}

// Buffer levels move all the time; they do not make a change of their own.
bool changed(const Reading& a, const Reading& b) {
  return a.state != b.state || a.status.status != b.status.status ||
         a.status.cause != b.status.cause || a.status.flags != b.status.flags;
}

std::string reading_text(const Reading& reading) {
  std::string text = text_of("%10.3f s  %-14s status 0x%02x %s | cause 0x%02x %s | flags 0x%02x %s",
                             reading.at_s, monitor_state_name(reading.state), reading.status.status,
                             describe_status(reading.status.status).c_str(), reading.status.cause,
                             describe_cause(reading.status.cause), reading.status.flags,
                             joined(set_flags(reading.status.flags)).c_str());
  if (!reading.record.empty())
    text += text_of(" | video %u audio %u", record_value(reading, "vi_buff"),
                    record_value(reading, "au_buff"));
  return text;
}

Json reading_json(const Session& session, const Reading& reading) {
  Json json = {{"command", session.request.word},
               {"at_s", reading.at_s},
               {"monitor_state", reading.state},
               {"state", monitor_state_name(reading.state)}};
  json.update(status_json(reading.status));
  json["input_mux"] = reading.input;
  json["input"] = input_mux_name(reading.input);
  if (!reading.record.empty()) {
    json["fps"] = frame_rate(reading);
    json["video_level"] = record_value(reading, "vi_buff");
    json["video_settled"] = record_value(reading, "vid_buf_init");
    json["video_units"] = record_value(reading, "vi_overall");
    json["audio_level"] = record_value(reading, "au_buff");
    json["audio_settled"] = record_value(reading, "aud_buf_init");
    json["audio_units"] = record_value(reading, "au_overall");
  }
  return json;
}

bool wanted(const Session& session, std::int64_t taken) {
  return session.request.count == 0 || taken < session.request.count;
}

std::int64_t interval_us(const Session& session) {
  return static_cast<std::int64_t>(session.request.interval_s * 1e6);
}

int watch_lines(Session& session) {
  Transport& transport = session.link.transport;
  const std::int64_t start_us = transport.now_us();
  std::optional<Reading> last;
  for (std::int64_t taken = 0; wanted(session, taken); ++taken) {
    if (taken > 0) transport.pause(interval_us(session));
    const double at_s = board_seconds(transport.now_us() - start_us);
    const Reply<Reading> reply = take_reading(session, session.json, at_s);
    if (!reply.ok()) return fail(session, reply.failure);
    note_skipped(session, reply.value->status);
    if (session.json) {
      print_json(session.out, reading_json(session, *reply.value));
    } else if (!last || changed(*last, *reply.value)) {
      fprintf(session.out, "%s\n", reading_text(*reply.value).c_str());
      fflush(session.out);
    }
    last = reply.value;
  }
  return kDone;
}

// ---- the panel -------------------------------------------------------------------------
// Holds the terminal as long as it lives.
class Stage {
 public:
  explicit Stage(Screen& screen) : screen_(screen) { screen_.enter(); }
  ~Stage() { screen_.leave(); }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

 private:
  Screen& screen_;
};

void show(Screen& screen, const Panel& panel) {
  screen.draw(panel.lines(screen.rows(), screen.columns()));
}

// False when the watch is to end.
bool wait_for_next(Session& session, Screen& screen, const Panel& panel) {
  Transport& transport = session.link.transport;
  const std::int64_t until_us = transport.now_us() + interval_us(session);
  for (std::int64_t left = interval_us(session); left > 0; left = until_us - transport.now_us()) {
    if (screen.quit_asked()) return false;
    if (screen.resized()) show(screen, panel);
    transport.pause(std::min(left, kKeySliceUs));
  }
  return !screen.quit_asked();
}

// A board that is silent for a while is watched on.
int watch_panel(Session& session, Screen& screen) {
  Transport& transport = session.link.transport;
  const std::int64_t start_us = transport.now_us();
  session.link.timeout_us = std::min(session.link.timeout_us, kPanelPatienceUs);
  Panel panel(session.options.board_name, session.request.interval_s);
  std::optional<Reading> last;
  {
    const Stage stage(screen);
    show(screen, panel);
    for (std::int64_t taken = 0; wanted(session, taken); ++taken) {
      if (taken > 0 && !wait_for_next(session, screen, panel)) break;
      const double at_s = board_seconds(transport.now_us() - start_us);
      const Reply<Reading> reply = take_reading(session, true, at_s);
      if (reply.ok()) {
        panel.take(*reply.value);
        last = reply.value;
      } else {
        panel.take_failure(at_s, reply.failure.text);
      }
      show(screen, panel);
      if (!transport.broken().empty()) break;
    }
  }
  if (!transport.broken().empty()) return fail(session, {Trouble::kSilent, {}});
  if (!last) return fail(session, {Trouble::kSilent, "the board did not answer"});
  fprintf(session.out, "%s\n", reading_text(*last).c_str());
  return kDone;
}

}  // namespace

int run_watch(Session& session) {
  Screen* screen = session.options.screen;
  return screen != nullptr && !session.json ? watch_panel(session, *screen) : watch_lines(session);
}

}  // namespace melk
