// Watching the board: lines, JSON objects, and the panel on a screen of the test.
#include "melk/panel.h"
#include "tests/melk/scripted_board.h"

namespace {

using melk::Panel;
using melk::PanelLine;
using melk::Reading;

void add_reading(ScriptedBoard& board, std::uint8_t state, std::uint8_t status) {
  board.add_question(15, state);
  board.add_question(3, status);
  board.add_question(3, 0x80);
  board.add_question(3, state);
}

TEST(Watch, one_line_per_change) {
  ScriptedBoard board;
  add_reading(board, 0, 0x91);
  add_reading(board, 0, 0x91);
  add_reading(board, 1, 0x90);
  const Outcome outcome = run(board, {"watch", "--count", "3", "--interval", "2", "--no-levels"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(outcome.out,
            "     0.000 s  watching       status 0x91 healthy | cause 0x80 no restart | "
            "flags 0x00 watching\n"
            "     4.000 s  no video input status 0x90 not healthy | cause 0x80 no restart | "
            "flags 0x01 no video input\n");
}

TEST(Watch, silence_ends_it) {
  ScriptedBoard board;
  board.add({{15}});
  EXPECT_EQ(run(board, {"watch"}).code, 3);
}

// ---- JSON ---------------------------------------------------------------------------------
// The record up to the settled levels: each byte its own number, but for the frame
// period (bytes 9 to 12), which is 57600 = 0xE100: 25 frames a second.
void add_record(ScriptedBoard& board) {
  board.add({{10}});
  for (std::uint8_t i = 0; i < 49; ++i) {
    const bool period = i >= 9 && i <= 12;
    board.add_question(9, period ? (i == 10 ? 0xE1 : 0) : i);
  }
}

TEST(WatchJson, object_for_each_reading_with_levels_and_rates) {
  ScriptedBoard board;
  add_reading(board, 0, 0x91);
  board.add_question(33, 4);
  add_record(board);
  const Outcome outcome = run(board, {"watch", "--count", "1", "--json"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  // Low byte first: 13, 14 = 0x0E0D; 45, 46 = 0x2E2D; 15 to 18 = 0x1211100F; 23, 24 =
  // 0x1817; 47, 48 = 0x302F; 29 to 32 = 0x201F1E1D.
  EXPECT_TRUE(contains(outcome.out,
                       "\"input_mux\":4,\"input\":\"composite\",\"fps\":25.0,"
                       "\"video_level\":3597,\"video_settled\":11821,\"video_units\":303108111,"
                       "\"audio_level\":6167,\"audio_settled\":12335,\"audio_units\":538910237}\n"))
      << outcome.out;
}

TEST(WatchJson, unchanged_readings_are_told_too) {
  ScriptedBoard board;
  for (int i = 0; i < 2; ++i) {
    add_reading(board, 0, 0x91);
    board.add_question(33, 0);
  }
  const Outcome outcome =
      run(board, {"watch", "--count", "2", "--interval", "2", "--no-levels", "--json"});
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.out, "\"at_s\":0.0,")) << outcome.out;
  EXPECT_TRUE(contains(outcome.out, "\"at_s\":2.0,")) << outcome.out;
}

// ---- the panel ------------------------------------------------------------------------------
Reading reading(double at_s, std::uint8_t state, std::uint8_t status, std::uint8_t cause = 0x80) {
  Reading one;
  one.at_s = at_s;
  one.state = state;
  one.status.status = status;
  one.status.cause = cause;
  one.status.flags = state;
  return one;
}

std::string text_of_panel(const Panel& panel, std::size_t rows = 24, std::size_t columns = 80) {
  std::string text;
  for (const PanelLine& line : panel.lines(rows, columns)) text += line.text + "\n";
  return text;
}

TEST(PanelLines, healthy_board_with_buffers_and_rates) {
  Panel panel("./board", 2);
  Reading one = reading(1, 0, 0x91);
  one.record.assign(49, 0);
  one.record[10] = 0xE1;  // 57600: 25 frames/s
  one.record[13] = 30;    // video buffer
  one.record[45] = 40;    // settled
  one.record[23] = 24;    // audio buffer
  panel.take(one);
  one.at_s = 3;
  one.record[15] = 50;    // 50 video units in 2 s
  one.record[26] = 0x77;  // 0x7700 = 30464 samples
  one.record[29] = 64;
  panel.take(one);
  // 80 columns: 14 for the title, 2 for the frame, 17 and 16 for the figures leave
  // 47 and 48. The full bar is twice the settled level: 30 of 80 are 17 places of
  // 47, 40 of 80 are 23. Without a settled level the highest level seen is full.
  EXPECT_EQ(text_of_panel(panel),
            "melk watch  ./board  0:00:03  every 2 s, q ends it\n"
            "State         watching, status 0x91 healthy\n"
            "Input         component, locked, 25.00 frames/s\n"
            "Last cause    0x80 no restart\n"
            "Flags         watching\n"
            "\n"
            "Video buffer  [" +
                std::string(17, '#') + "......|" + std::string(23, '.') +
                "] 30 of settled 40\n"
                "Audio buffer  [" +
                std::string(48, '#') +
                "] 24, not settled\n"
                "Rates         video 25 units/s, audio 15232 samples/s in, 32 units/s\n"
                "\n"
                "Restarts seen 0\n");
}

TEST(PanelLines, restart_history_has_the_newest_first) {
  Panel panel("b", 1);
  panel.take(reading(0, 0, 0x91));
  panel.take(reading(5, 1, 0x90));
  panel.take(reading(65, 2, 0x92, 0x85));
  panel.take(reading(70, 2, 0x92, 0x85));  // the same restart
  panel.take(reading(3700, 0, 0x93, 0x85));
  panel.take(reading(3701, 0, 0x95, 0x85));  // one that fell between two readings
  const std::string text = text_of_panel(panel);
  EXPECT_TRUE(contains(text,
                       "Restarts seen 2\n"
                       "  1:01:41  restart, cause 0x85 input came back after a loss\n"
                       "  1:01:40  healthy\n"
                       "  0:01:05  restart, cause 0x85 input came back after a loss\n"
                       "  0:00:05  no video input\n"))
      << text;
}

TEST(PanelLines, silence_is_shown_and_its_end) {
  Panel panel("b", 1);
  panel.take(reading(0, 0, 0x91));
  panel.take_failure(3, "silent: nothing");
  panel.take_failure(6, "silent: still nothing");
  EXPECT_TRUE(contains(text_of_panel(panel), "State         no answer: silent: still nothing\n"));
  panel.take(reading(9, 0, 0x91));
  EXPECT_TRUE(
      contains(text_of_panel(panel), "  0:00:09  the board answers\n  0:00:03  no answer\n"));
}

TEST(PanelLines, looks_tell_good_from_bad) {
  Panel panel("b", 1);
  panel.take(reading(0, 0, 0x91));
  EXPECT_EQ(panel.lines(24, 80)[1].look, melk::Look::kGood);
  panel.take(reading(0, 0, 0x90));
  EXPECT_EQ(panel.lines(24, 80)[1].look, melk::Look::kBad);
  panel.take(reading(0, 0, 0x9E));
  EXPECT_EQ(panel.lines(24, 80)[1].look, melk::Look::kBad);
}

TEST(PanelLines, no_screen_is_too_small) {
  Panel panel("b", 1);
  Reading one = reading(0, 0, 0x91);
  one.record.assign(49, 7);
  for (int i = 0; i < 50; ++i) {
    one.at_s = i;
    one.state = i % 2 == 0 ? 0 : 2;
    panel.take(one);
  }
  for (const std::size_t rows : {0, 1, 3, 8, 24, 100})
    for (const std::size_t columns : {1, 10, 40, 79, 200}) {
      const std::vector<PanelLine> lines = panel.lines(rows, columns);
      EXPECT_LE(lines.size(), rows);
      for (const PanelLine& line : lines) EXPECT_LE(line.text.size(), columns);
    }
}

// ---- a screen ---------------------------------------------------------------------------------
class TestScreen : public melk::Screen {
 public:
  int depth = 0;
  int drawn = 0;
  int quit_after = 1000;  // questions whether to quit
  int resize_at = -1;     // question whether the size has changed
  std::size_t width = 80;
  std::string text;

  void enter() override { ++depth; }
  void leave() override { --depth; }
  std::size_t rows() override { return 24; }
  std::size_t columns() override { return width; }
  void draw(const std::vector<PanelLine>& lines) override {
    EXPECT_EQ(depth, 1);
    ++drawn;
    text.clear();
    for (const PanelLine& line : lines) text += line.text + "\n";
  }
  bool quit_asked() override { return quit_after-- <= 0; }
  bool resized() override { return resize_at-- == 0; }
};

melk::Options on_screen(TestScreen& screen) {
  melk::Options options;
  options.screen = &screen;
  options.board_name = "here";
  return options;
}

void add_panel_reading(ScriptedBoard& board, std::uint8_t state, std::uint8_t status) {
  add_reading(board, state, status);
  board.add_question(33, 0);
}

TEST(WatchPanel, ends_when_asked_and_leaves_the_last_reading) {
  ScriptedBoard board;
  for (int i = 0; i < 3; ++i) add_panel_reading(board, 0, 0x91);
  TestScreen screen;
  screen.quit_after = 50;  // a second has 20 slices and one question more at its end
  const Outcome outcome = run(board, {"watch", "--no-levels"}, on_screen(screen));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(screen.depth, 0);
  EXPECT_EQ(screen.drawn, 4);  // an empty one first
  EXPECT_TRUE(contains(screen.text, "melk watch  here  0:00:02"));
  EXPECT_EQ(outcome.out,
            "     2.000 s  watching       status 0x91 healthy | cause 0x80 no restart | "
            "flags 0x00 watching\n");
}

TEST(WatchPanel, silence_does_not_end_it) {
  ScriptedBoard board;
  add_panel_reading(board, 0, 0x91);
  TestScreen screen;
  const Outcome outcome = run(board, {"watch", "--count", "3", "--no-levels"}, on_screen(screen));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(contains(screen.text, "State         no answer: silent")) << screen.text;
}

TEST(WatchPanel, board_that_never_answered_is_told_by_the_exit_code) {
  ScriptedBoard board;
  TestScreen screen;
  EXPECT_EQ(run(board, {"watch", "--count", "2"}, on_screen(screen)).code, 3);
  EXPECT_EQ(screen.depth, 0);
}

TEST(WatchPanel, new_size_is_drawn_at_once) {
  ScriptedBoard board;
  for (int i = 0; i < 2; ++i) add_panel_reading(board, 0, 0x91);
  TestScreen screen;
  screen.resize_at = 5;
  run(board, {"watch", "--count", "2", "--no-levels"}, on_screen(screen));
  EXPECT_EQ(screen.drawn, 4);  // empty, first, resized, second
}

TEST(WatchPanel, json_takes_no_screen) {
  ScriptedBoard board;
  add_panel_reading(board, 0, 0x91);
  TestScreen screen;
  run(board, {"watch", "--count", "1", "--no-levels", "--json"}, on_screen(screen));
  EXPECT_EQ(screen.drawn, 0);
}

}  // namespace
