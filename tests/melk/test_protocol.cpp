// The host's client against a scripted board: the exact bytes that go out, the
// answers that come in, what is printed and the exit code.
#include <algorithm>
#include <set>

#include "tests/melk/scripted_board.h"

namespace {

// ---- the table -----------------------------------------------------------------
std::vector<std::string> sub_command_words() {
  std::vector<std::string> words;
  for (const melk::SubCommand& row : melk::sub_commands()) words.emplace_back(row.word);
  return words;
}

TEST(Table, codes_unique_and_in_order) {
  int last = -1;
  for (const melk::HostCommand& row : melk::host_commands()) {
    EXPECT_GT(static_cast<int>(row.code), last) << row.name;
    last = static_cast<int>(row.code);
  }
}

TEST(Table, every_host_command_has_a_sub_command) {
  const std::vector<std::string> words = sub_command_words();
  std::set<std::string> known(words.begin(), words.end());
  EXPECT_EQ(known.size(), words.size());
  for (const melk::HostCommand& row : melk::host_commands()) {
    EXPECT_TRUE(known.contains(row.word)) << row.word;
  }
  for (const melk::HostCommand& row : melk::host_commands()) known.erase(row.word);
  EXPECT_EQ(known, (std::set<std::string>{"make-update", "watch", "raw", "shell"}));
}

TEST(Table, record_fields_cover_every_byte_once) {
  std::size_t next = 0;
  std::set<std::string> names;
  for (const melk::RecordField& field : melk::record_fields()) {
    EXPECT_EQ(field.first, next) << field.name;
    EXPECT_TRUE(names.insert(field.name).second) << field.name;
    next = field.last + 1;
  }
  EXPECT_EQ(next, 104u);
}

// ---- commands without an answer ---------------------------------------------------
struct PlainRow {
  const char* word;
  std::uint8_t code;
};

class PlainCommand : public testing::TestWithParam<PlainRow> {};

TEST_P(PlainCommand, sends_its_code_only) {
  ScriptedBoard board;
  board.add({{GetParam().code}});
  const Outcome outcome = run(board, {GetParam().word});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.out, "taken by the board")) << outcome.out;
}

INSTANTIATE_TEST_SUITE_P(Codes, PlainCommand,
                         testing::Values(PlainRow{"keep-alive", 0}, PlainRow{"stop-encode", 6},
                                         PlainRow{"stop-audio", 7}, PlainRow{"temp", 12},
                                         PlainRow{"make-logs", 14}, PlainRow{"delete-logs", 17},
                                         PlainRow{"restore-factory", 22},
                                         PlainRow{"clear-status", 25},
                                         PlainRow{"reg-file-size", 36}));

// ---- one-byte questions -----------------------------------------------------------
struct ByteRow {
  const char* word;
  std::uint8_t code;
  std::uint8_t answer;
  int exit_code;
  const char* text;
};

class ByteCommand : public testing::TestWithParam<ByteRow> {};

TEST_P(ByteCommand, collects_the_answer_with_a_poll) {
  ScriptedBoard board;
  board.add_question(GetParam().code, GetParam().answer);
  const Outcome outcome = run(board, {GetParam().word});
  EXPECT_EQ(outcome.code, GetParam().exit_code);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.out, GetParam().text)) << outcome.out;
}

INSTANTIATE_TEST_SUITE_P(Codes, ByteCommand,
                         testing::Values(ByteRow{"hd-version", 1, 0x2D, 0, "version 2.13"},
                                         ByteRow{"monitor-state", 15, 0, 0, "watching"},
                                         ByteRow{"monitor-state", 15, 3, 0, "stopped"},
                                         ByteRow{"monitor-state", 15, 9, 0, "idle"},
                                         ByteRow{"shared-status", 32, 0x5A, 0, "90 (0x5a)"},
                                         ByteRow{"input-mux", 33, 0, 0, "component"},
                                         ByteRow{"input-mux", 33, 3, 0, "RGB/VGA"},
                                         ByteRow{"input-mux", 33, 4, 0, "composite"},
                                         ByteRow{"update-result", 34, 1, 0, "succeeded"},
                                         ByteRow{"update-result", 34, 0, 1,
                                                 "no success on record"}));

// ---- status -------------------------------------------------------------------------
TEST(Status, three_questions_decoded) {
  ScriptedBoard board;
  board.add_question(3, 0x96);  // restarts 3 (bits 1 to 3 of 0x06), not healthy
  board.add_question(3, 0x83);
  board.add_question(3, 0x4D);  // I2C 0x40, input 0x08, video 0x04, state 1
  const Outcome outcome = run(board, {"status"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(outcome.out,
            "status 0x96  not healthy, 3 restarts\n"
            "cause  0x83  input locked but the video buffer did not move\n"
            "flags  0x4d  no video input, video buffer not moving, video input not locked, "
            "I2C error\n");
}

TEST(Status, json_on_one_line) {
  ScriptedBoard board;
  board.add_question(3, 0x91);
  board.add_question(3, 0x80);
  board.add_question(3, 0x00);
  const Outcome outcome = run(board, {"--json", "status"});
  EXPECT_EQ(outcome.out,
            "{\"command\":\"status\",\"status\":145,\"healthy\":true,\"status_text\":\"healthy\","
            "\"cause\":128,\"cause_text\":\"no restart\",\"flags\":0,"
            "\"flags_text\":[\"watching\"],\"exit\":0}\n");
}

TEST(Status, out_of_step_reading_is_aligned_and_told) {
  ScriptedBoard board;
  board.add_question(3, 0x80);  // rest of a reading that was cut short
  board.add_question(3, 0x20);
  board.add_question(3, 0x91);
  board.add_question(3, 0x84);
  board.add_question(3, 0x10);
  const Outcome outcome = run(board, {"status"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.out, "audio not ok"));
  EXPECT_TRUE(contains(outcome.err, "2 status bytes of an earlier reading passed over"));
}

TEST(Status, nonsense_is_reported) {
  ScriptedBoard board;
  for (int i = 0; i < 4; ++i) board.add_question(3, 0x00);
  const Outcome outcome = run(board, {"status"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_TRUE(contains(outcome.err, "out of step (0x00, 0x00)"));
}

TEST(Status, every_cause_has_a_text) {
  EXPECT_EQ(melk::restart_causes().size(), 7u);
  for (int code = 0x81; code <= 0x87; ++code)
    EXPECT_STRNE(melk::describe_cause(static_cast<std::uint8_t>(code)), "unknown");
  EXPECT_STREQ(melk::describe_cause(0x80), "no restart");
  EXPECT_STREQ(melk::describe_cause(0x88), "unknown");
}

TEST(Status, every_flag_bit_has_a_text) {
  EXPECT_EQ(melk::set_flags(0x7C).size(), 6u);  // the state and five flags
  EXPECT_STREQ(melk::set_flags(0x02)[0], "restart");
}

TEST(Status, wrong_size_answer) {
  EXPECT_TRUE(contains(melk::describe_status(0x9E), "wrong size"));
}

// ---- configuration ------------------------------------------------------------------
std::string config_text(std::size_t size) {
  std::string text(size, 'x');
  text.back() = '\n';
  return text;
}

void add_config(ScriptedBoard& board, const std::string& text) {
  for (const char c : text) board.add({{static_cast<std::uint8_t>(c)}});
}

TEST(SendConfig, code_size_high_byte_first_then_the_file) {
  const std::string text = config_text(300);  // 300 = 0x0000012C
  const HostFile file(text);
  ScriptedBoard board;
  board.add({{2}, {0x00}, {0x00}, {0x01}, {0x2C}});
  add_config(board, text);
  const Outcome outcome = run(board, {"send-config", file.path()});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.out, "sent 300 bytes"));
}

TEST(SendConfig, wait_asks_for_the_status) {
  const std::string text = config_text(30);
  const HostFile file(text);
  ScriptedBoard board;
  board.add({{2}, {0}, {0}, {0}, {30}});
  add_config(board, text);
  board.add_question(3, 0x90);
  board.add_question(3, 0x80);
  board.add_question(3, 0x00);
  const Outcome outcome = run(board, {"send-config", file.path(), "--wait"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.out, "status 0x90")) << outcome.out;
}

TEST(SendConfig, wait_reports_the_wrong_size) {
  const std::string text = config_text(30);
  const HostFile file(text);
  ScriptedBoard board;
  board.add({{2}, {0}, {0}, {0}, {30}});
  add_config(board, text);
  board.add_question(3, 0x9E);
  board.add_question(3, 0x80);
  board.add_question(3, 0x00);
  EXPECT_EQ(run(board, {"send-config", file.path(), "--wait"}).code, 1);
}

TEST(SendConfig, too_short_is_refused_unsent) {
  const HostFile file(config_text(29));
  ScriptedBoard board;
  const Outcome outcome = run(board, {"send-config", file.path()});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.err, "as commands"));
}

TEST(SendConfig, forced_short_size_goes_without_data) {
  const HostFile file(config_text(29));
  ScriptedBoard board;
  board.add({{2}, {0}, {0}, {0}, {29}});
  EXPECT_EQ(run(board, {"send-config", "--force", file.path()}).code, 0);
  EXPECT_TRUE(board.finished());
}

TEST(SendConfig, missing_file_sends_nothing) {
  ScriptedBoard board;
  const Outcome outcome = run(board, {"send-config", "/nowhere/hd.ini"});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.err, "No such file"));
}

TEST(SendConfig, board_that_stops_taking_is_incomplete) {
  const std::string text = config_text(40);
  const HostFile file(text);
  ScriptedBoard board;
  board.add({{2}, {0}, {0}, {0}, {40}, {'x'}, {'x'}, {'x', {}, false}});
  const Outcome outcome = run(board, {"send-config", file.path()});
  EXPECT_EQ(outcome.code, 5);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.err, "after 2 of 40 bytes")) << outcome.err;
}

// ---- clock, numbers, registers --------------------------------------------------------
TEST(SetRtc, twelve_characters_follow) {
  ScriptedBoard board;
  board.add(
      {{4}, {'3'}, {'1'}, {'1'}, {'2'}, {'2'}, {'4'}, {'2'}, {'3'}, {'5'}, {'9'}, {'0'}, {'1'}});
  EXPECT_EQ(run(board, {"set-rtc", "311224235901"}).code, 0);
  EXPECT_TRUE(board.finished());
}

TEST(SetRtc, local_clock_when_no_text_is_given) {
  ScriptedBoard board;
  board.add({{4}});
  for (int i = 0; i < 12; ++i) board.add({{'7'}});
  melk::Options options;
  options.local_clock = [] { return std::string(12, '7'); };
  EXPECT_EQ(run(board, {"set-rtc"}, options).code, 0);
  EXPECT_TRUE(board.finished());
}

TEST(SetRtc, other_lengths_are_refused) {
  ScriptedBoard board;
  EXPECT_EQ(run(board, {"set-rtc", "12345678901"}).code, 2);
  EXPECT_EQ(run(board, {"set-rtc", "1234567890123"}).code, 2);
  EXPECT_EQ(run(board, {"set-rtc"}).code, 2);
  EXPECT_TRUE(board.finished());
}

TEST(SetSpts, four_bytes_high_first) {
  ScriptedBoard board;
  board.add({{18}, {0x01}, {0x02}, {0x03}, {0x04}});
  EXPECT_EQ(run(board, {"set-spts", "0x01020304"}).code, 0);
  EXPECT_TRUE(board.finished());
}

TEST(ReadReg, two_parameters_and_a_byte) {
  ScriptedBoard board;
  board.add({{5}, {0x90}, {0x1F, {0xB1}}, {0xA5}});
  const Outcome outcome = run(board, {"read-reg", "0x90", "0x1f"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.out, "7-bit 0x48) register 0x1f = 0xb1")) << outcome.out;
}

TEST(ReadReg, failed_chip_is_hinted) {
  ScriptedBoard board;
  board.add({{5}, {0x90}, {0x00, {0xFD}}, {0xA5}});  // -3 in its low byte
  EXPECT_TRUE(contains(run(board, {"read-reg", "144", "0"}).out, "did not answer"));
}

// The parameters behind such an answer would be commands of their own.
TEST(ReadReg, answer_before_the_parameters_keeps_them_back) {
  struct Case {
    std::uint8_t answer;
    const char* text;
  };
  for (const Case& one : {Case{0xFF, "cannot open its I2C bus"}, Case{0xFE, "its link again"}}) {
    ScriptedBoard board;
    board.add({{5, {one.answer}}, {0xA5}});
    const Outcome outcome = run(board, {"read-reg", "0x38", "2"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_TRUE(contains(outcome.err, one.text)) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "no handles left")) << outcome.err;
    EXPECT_TRUE(board.finished());
  }
}

TEST(Status, one_restart_is_no_plural) {
  EXPECT_EQ(melk::describe_status(0x92), "not healthy, 1 restart");
  EXPECT_EQ(melk::describe_status(0x94), "not healthy, 2 restarts");
}

// ---- versions and frame rate ------------------------------------------------------------
TEST(SwVersion, three_questions) {
  ScriptedBoard board;
  board.add_question(28, 1);
  board.add_question(28, 12);
  board.add_question(28, 3);
  const Outcome outcome = run(board, {"sw-version"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(outcome.out, "1.12.3\n");
}

TEST(Fps, high_byte_then_low_byte) {
  ScriptedBoard board;
  board.add_question(35, 0xE1);  // 0xE100 = 57600; 1 440 000 / 57600 = 25
  board.add_question(35, 0x00);
  const Outcome outcome = run(board, {"fps"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(outcome.out, "25.000 frames/s (frame period 57600)\n");
}

TEST(Fps, blocked_by_a_half_read_version) {
  ScriptedBoard board;
  board.add({{35}});  // the shared counter stands at 2: no answer
  const Outcome outcome = run(board, {"fps"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.err, "melk raw 28"));
}

TEST(Fps, swapped_bytes_are_hinted) {
  ScriptedBoard board;
  board.add_question(35, 0x00);  // the shared counter stood at 1: low byte first
  board.add_question(35, 0xE1);
  const Outcome outcome = run(board, {"fps"});
  EXPECT_TRUE(contains(outcome.err, "melk raw 35")) << outcome.err;
}

// ---- status record ------------------------------------------------------------------------
TEST(Registers, prepare_then_51_bytes_by_name) {
  ScriptedBoard board;
  board.add({{10}});
  for (std::uint8_t i = 0; i < 51; ++i) board.add_question(9, i);
  const Outcome outcome = run(board, {"--json", "registers"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  // Bytes hold their own index: 2, 3 high first = 0x0203; 5 to 8 low first = 0x08070605.
  EXPECT_TRUE(contains(outcome.out, "\"fpga_hw_version\":515,")) << outcome.out;
  EXPECT_TRUE(contains(outcome.out, "\"vs_overall\":134678021,"));
  EXPECT_TRUE(contains(outcome.out, "\"vi_buff\":3597,"));         // 0x0E0D
  EXPECT_TRUE(contains(outcome.out, "\"ts_mux_status\":12849}"));  // 0x3231, the last field
}

TEST(Registers, full_record_asks_for_104_first) {
  ScriptedBoard board;
  board.add({{36}, {10}});
  for (std::uint8_t i = 0; i < 104; ++i) board.add_question(9, i);
  const Outcome outcome = run(board, {"registers", "--full"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.out, "encode_284"));
  EXPECT_TRUE(contains(outcome.out, "0x67666564"));  // bytes 100 to 103
}

TEST(Registers, silence_in_the_record_is_incomplete) {
  ScriptedBoard board;
  board.add({{10}});
  board.add_question(9, 1);
  board.add({{9}});
  const Outcome outcome = run(board, {"registers"});
  EXPECT_EQ(outcome.code, 5);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.err, "after 1 of 51 bytes"));
}

// ---- uploads ----------------------------------------------------------------------------------
// The command and the poll for the first byte; each poll then collects one byte
// and asks for the next, and one poll more collects the last.
void add_upload(ScriptedBoard& board, std::uint8_t code, const Bytes& bytes) {
  board.add({{code}});
  for (const std::uint8_t byte : bytes) board.add({{0xA5, {byte}}});
  board.add({{0xA5}});
}

TEST(Log, five_byte_file) {
  const HostFile file;
  ScriptedBoard board;
  add_upload(board, 8, {0, 0, 0, 5, 'h', 'e', 'l', 'l', 'o'});
  const Outcome outcome = run(board, {"log", "1", "-o", file.path()});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(HostFile::content_of(file.path()), "hello");
}

TEST(Log, second_log_has_its_own_code) {
  const HostFile file;
  ScriptedBoard board;
  add_upload(board, 13, {0, 0, 0, 1, 'x'});
  EXPECT_EQ(run(board, {"log", "2", "-o", file.path()}).code, 0);
  EXPECT_TRUE(board.finished());
}

TEST(Log, size_is_high_byte_first) {
  const HostFile file;
  ScriptedBoard board;
  Bytes bytes = {0, 0, 1, 2};  // 258
  bytes.resize(4 + 258, 'z');
  add_upload(board, 8, bytes);
  EXPECT_EQ(run(board, {"log", "1", "-o", file.path()}).code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(HostFile::content_of(file.path()), std::string(258, 'z'));
}

TEST(Log, empty_file_is_done) {
  const HostFile file("old");
  ScriptedBoard board;
  add_upload(board, 8, {0, 0, 0, 0});
  EXPECT_EQ(run(board, {"log", "1", "-o", file.path()}).code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(HostFile::content_of(file.path()), "");
}

TEST(Log, missing_on_the_board) {
  const HostFile file("old");
  ScriptedBoard board;
  add_upload(board, 8, {0xFF, 0xFF, 0xFF, 0xFF});
  const Outcome outcome = run(board, {"log", "1", "-o", file.path()});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.err, "0xFFFFFFFF"));
  EXPECT_EQ(HostFile::content_of(file.path()), "old");
}

TEST(Log, short_upload_keeps_the_part) {
  const HostFile file("old");
  ScriptedBoard board;
  add_upload(board, 8, {0, 0, 0, 5, 'h', 'e'});
  const Outcome outcome = run(board, {"log", "1", "-o", file.path()});
  EXPECT_EQ(outcome.code, 5);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.err, "after 2 of 5 bytes")) << outcome.err;
  EXPECT_EQ(HostFile::content_of(file.path()), "old");
  EXPECT_EQ(HostFile::content_of(file.path() + ".part"), "he");
}

TEST(Log, silence_in_the_size) {
  const HostFile file;
  ScriptedBoard board;
  add_upload(board, 8, {0, 0});
  EXPECT_EQ(run(board, {"log", "1", "-o", file.path()}).code, 5);
  EXPECT_TRUE(board.finished());
}

TEST(Log, silence_before_the_size) {
  const HostFile file;
  ScriptedBoard board;
  board.add({{8}, {0xA5}});
  EXPECT_EQ(run(board, {"log", "1", "-o", file.path()}).code, 3);
  EXPECT_TRUE(board.finished());
}

TEST(Log, unwritable_output_is_noticed_before_the_fetch) {
  for (const char* path : {"/nowhere/log", "/tmp"}) {
    ScriptedBoard board;
    const Outcome outcome = run(board, {"log", "1", "-o", path});
    EXPECT_EQ(outcome.code, 4);
    EXPECT_TRUE(board.finished());  // nothing was sent
    EXPECT_TRUE(contains(outcome.err, std::string("melk: log: ") + path)) << outcome.err;
    EXPECT_EQ(run(board, {"monitor-file", "-o", path}).code, 4);
    EXPECT_TRUE(board.finished());
  }
}

TEST(Log, silent_board_leaves_no_empty_file) {
  const HostFile file;
  const std::string path = file.path() + ".new";
  ScriptedBoard board;
  board.add({{8}, {0xA5}});
  EXPECT_EQ(run(board, {"log", "1", "-o", path}).code, 3);
  EXPECT_NE(access(path.c_str(), F_OK), 0);
}

TEST(MonitorFile, printed_without_an_output) {
  ScriptedBoard board;
  add_upload(board, 19, {0, 0, 0, 3, 'o', 'k', '\n'});
  const Outcome outcome = run(board, {"monitor-file"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(outcome.out, "ok\n");
}

// ---- updates
// -------------------------------------------------------------------------------------
TEST(Update, over_the_link) {
  const HostFile file("abc");
  ScriptedBoard board;
  board.add({{11}, {0}, {0}, {0}, {3}, {'a'}, {'b'}, {'c'}});
  EXPECT_EQ(run(board, {"update", file.path()}).code, 0);
  EXPECT_TRUE(board.finished());
}

TEST(Update, wait_asks_for_the_result) {
  const HostFile file("abc");
  for (const std::uint8_t result : Bytes{1, 0}) {
    ScriptedBoard board;
    board.add({{11}, {0}, {0}, {0}, {3}, {'a'}, {'b'}, {'c'}});
    board.add_question(34, result);
    EXPECT_EQ(run(board, {"update", file.path(), "--wait"}).code, result == 1 ? 0 : 1);
    EXPECT_TRUE(board.finished());
  }
}

TEST(Update, even_size_through_the_fpga_is_its_own_words) {
  const HostFile file("abcd");
  ScriptedBoard board;
  board.add({{43}, {0}, {0}, {0}, {4}});
  EXPECT_EQ(run(board, {"update", "--via-fpga", file.path()}).code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(board.fifo, (Bytes{'a', 'b', 'c', 'd'}));
}

TEST(Update, odd_size_through_the_fpga_has_a_word_more) {
  // The board reads words at 0, 2 and 4, and one more: 8 bytes for 5.
  const HostFile file("abcde");
  ScriptedBoard board;
  board.add({{43}, {0}, {0}, {0}, {5}});
  EXPECT_EQ(run(board, {"update", "--via-fpga", file.path()}).code, 0);
  EXPECT_EQ(board.fifo, (Bytes{'a', 'b', 'c', 'd', 'e', 0, 0, 0}));
}

TEST(Update, last_words_enter_the_fifo_together) {
  // 1023 bytes: 1026 with the words after them, as 512 and 514.
  const HostFile file(std::string(1023, 'p'));
  ScriptedBoard board;
  board.add({{43}, {0}, {0}, {3}, {0xFF}});
  EXPECT_EQ(run(board, {"update", "--via-fpga", file.path()}).code, 0);
  EXPECT_EQ(board.fifo_blocks, (std::vector<std::size_t>{512, 514}));
}

TEST(Update, rate_paces_the_fifo) {
  const HostFile file(std::string(1000, 'p'));
  ScriptedBoard board;
  board.add({{43}, {0}, {0}, {3}, {0xE8}});
  EXPECT_EQ(run(board, {"update", "--via-fpga", "--rate", "500", file.path()}).code, 0);
  EXPECT_EQ(board.clock_us, 2000000);  // 1000 bytes at 500 a second
}

TEST(Update, full_fifo_is_incomplete) {
  const HostFile file(std::string(2000, 'p'));
  ScriptedBoard board;
  board.fifo_room = 600;
  board.add({{43}, {0}, {0}, {7}, {0xD0}});
  const Outcome outcome = run(board, {"update", "--via-fpga", file.path()});
  EXPECT_EQ(outcome.code, 5);
  EXPECT_TRUE(contains(outcome.err, "after 512 of 2000 bytes")) << outcome.err;
}

TEST(Update, empty_package_is_a_size_of_0) {
  const HostFile file;
  ScriptedBoard board;
  board.add({{11}, {0}, {0}, {0}, {0}});
  EXPECT_EQ(run(board, {"update", file.path()}).code, 0);
  EXPECT_TRUE(board.finished());
}

TEST(Update, too_large_is_refused_unless_forced) {
  const HostFile file;
  ASSERT_EQ(truncate(file.path().c_str(), 5000001), 0);
  ScriptedBoard board;
  EXPECT_EQ(run(board, {"update", file.path()}).code, 4);
  EXPECT_EQ(run(board, {"update", "--via-fpga", file.path()}).code, 4);
  board.add({{11}, {0x00}, {0x4C}, {0x4B}, {0x41}});  // 5 000 001 = 0x004C4B41
  EXPECT_EQ(run(board, {"update", "--force", file.path()}).code, 0);
  EXPECT_TRUE(board.finished());
}

// ---- silence and leftovers ----------------------------------------------------------------------
TEST(Silence, command_not_taken) {
  ScriptedBoard board;
  board.add({{0, {}, false}});
  const Outcome outcome = run(board, {"keep-alive"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(board.clock_us, 20000000);
  EXPECT_TRUE(contains(outcome.err, "did not take KEEP_ALIVE within 20 s"));
}

TEST(Silence, question_not_answered) {
  ScriptedBoard board;
  board.add({{1}});
  const Outcome outcome = run(board, {"--timeout", "3", "hd-version"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(board.clock_us, 3000000);
  EXPECT_TRUE(contains(outcome.err, "did not answer within 3 s"));
}

TEST(Silence, json_names_the_error) {
  ScriptedBoard board;
  board.add({{1}});
  const Outcome outcome = run(board, {"hd-version", "--json"});
  EXPECT_TRUE(contains(outcome.out, "{\"command\":\"hd-version\",\"error\":\"silent: "));
  EXPECT_TRUE(contains(outcome.out, "\"exit\":3}\n"));
}

TEST(Leftovers, stale_byte_is_dropped_and_told) {
  ScriptedBoard board;
  board.queued.push_back(0x77);
  board.add({{0xA5}});
  board.add_question(1, 0x2D);
  const Outcome outcome = run(board, {"hd-version"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.out, "version 2.13"));
  EXPECT_TRUE(contains(outcome.err, "1 bytes of an earlier conversation"));
}

TEST(Leftovers, unread_byte_is_waited_for) {
  ScriptedBoard board;
  board.add({{3, {}, false}});
  EXPECT_EQ(run(board, {"status"}).code, 3);
  // The board has still not read it: nothing more goes out.
  const Outcome outcome = run(board, {"hd-version"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.err, "has not read what was sent")) << outcome.err;
}

TEST(Leftovers, running_upload_is_left_alone) {
  ScriptedBoard board;
  board.queued.push_back(0x77);
  for (int i = 0; i < 40; ++i) board.add({{0xA5, {0x77}}});
  const Outcome outcome = run(board, {"hd-version"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_TRUE(board.unexpected.empty());
  EXPECT_TRUE(contains(outcome.err, "middle of an upload"));
}

// ---- raw, shell, usage -----------------------------------------------------------------
TEST(Raw, no_answer_no_poll) {
  ScriptedBoard board;
  board.add({{200}});
  const Outcome outcome = run(board, {"raw", "200"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(outcome.out, "no answer\n");
}

TEST(Raw, answer_is_collected) {
  ScriptedBoard board;
  board.add_question(28, 0x0C);
  const Outcome outcome = run(board, {"raw", "28"});
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(outcome.out, "0c\n");
}

TEST(Raw, several_bytes_and_answers) {
  ScriptedBoard board;
  add_upload(board, 8, {0, 0, 0, 5});
  const Outcome outcome = run(board, {"raw", "8", "0xA5", "--answers", "4"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(outcome.out, "00 00 00 05\n");
}

TEST(Shell, runs_lines_and_keeps_the_first_failure) {
  ScriptedBoard board;
  board.add({{0}});
  board.add_question(34, 0);
  board.add_question(1, 0x2D);
  char lines[] = "keep-alive\n\n# a comment\nupdate-result # failed\n'hd-version'\nquit\ntemp\n";
  melk::Options options;
  options.in = fmemopen(lines, sizeof lines - 1, "r");
  const Outcome outcome = run(board, {"shell"}, options);
  fclose(options.in);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_TRUE(board.finished());
  EXPECT_TRUE(contains(outcome.out, "version 2.13"));
}

// ---- long transfers: the bar, and ^C -----------------------------------------------
melk::Options on_a_terminal() {
  melk::Options options;
  options.err_is_terminal = true;
  return options;
}

TEST(Progress, bar_moves_on_a_terminal_and_ends_its_line) {
  ScriptedBoard board;
  board.add({{11}, {0}, {0}, {0}, {2}, {'A'}, {'B'}});
  const HostFile package("AB");
  const Outcome outcome = run(board, {"update", package.path()}, on_a_terminal());
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(board.finished());
  // 25 places: 50 % are 12 of them.
  EXPECT_EQ(outcome.err,
            "\r[############             ]  50%  1/2 bytes"
            "\r[#########################] 100%  2/2 bytes\n");
}

TEST(Progress, bar_of_a_stopped_transfer_leaves_its_line) {
  ScriptedBoard board;
  board.add({{11}, {0}, {0}, {0}, {2}, {'A'}, {'B', {}, false}});
  const HostFile package("AB");
  const Outcome outcome = run(board, {"update", package.path()}, on_a_terminal());
  EXPECT_EQ(outcome.code, 5);
  EXPECT_TRUE(contains(outcome.err, " 50%  1/2 bytes\nmelk: update: UPDATE_VERSION stopped"));
}

TEST(Progress, none_beside_a_terminal) {
  ScriptedBoard board;
  board.add({{11}, {0}, {0}, {0}, {1}, {'A'}});
  const HostFile package("A");
  EXPECT_EQ(run(board, {"update", package.path()}).err, "");
}

// A link that is asked to stop once `bytes` have moved.
melk::Link stopping_after(ScriptedBoard& board, std::size_t bytes, std::size_t& moved) {
  melk::Link link{board};
  link.progress = [&moved](std::size_t done, std::size_t) { moved = done; };
  link.stop_asked = [&moved, bytes] { return moved >= bytes; };
  return link;
}

TEST(StopByHand, download_ends_between_two_bytes_and_warns) {
  ScriptedBoard board;
  board.add({{11}, {0}, {0}, {0}, {3}, {'A'}, {'B'}});
  std::size_t moved = 0;
  melk::Link link = stopping_after(board, 2, moved);
  const Bytes package = {'A', 'B', 'C'};
  const auto reply = melk::send_update(link, package);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(reply.failure.trouble, melk::Trouble::kIncomplete);
  EXPECT_EQ(reply.failure.text,
            "UPDATE_VERSION stopped by hand after 2 of 3 bytes; the board waits for the rest, and "
            "takes what is sent next for it");
}

TEST(StopByHand, fifo_is_filled_no_further) {
  ScriptedBoard board;
  board.add({{43}, {0}, {0}, {4}, {2}});  // 1026 bytes
  std::size_t moved = 0;
  melk::Link link = stopping_after(board, 512, moved);
  const auto reply = melk::send_update_by_fpga(link, Bytes(1026, 'A'), 0);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(board.fifo.size(), 512u);
  EXPECT_EQ(reply.failure.trouble, melk::Trouble::kIncomplete);
}

TEST(StopByHand, upload_keeps_what_came) {
  ScriptedBoard board;
  board.add(
      {{8}, {0xA5, {0}}, {0xA5, {0}}, {0xA5, {0}}, {0xA5, {3}}, {0xA5, {'x'}}, {0xA5, {'y'}}});
  std::size_t moved = 0;
  melk::Link link = stopping_after(board, 1, moved);
  const auto reply = melk::fetch_file(link, Code::kGetLogFile1);
  EXPECT_TRUE(board.finished());
  EXPECT_EQ(reply.value, Bytes{'x'});
  EXPECT_EQ(reply.failure.text,
            "the upload stopped by hand after 1 of 3 bytes; the board gives up 15 s later");
}

TEST(Output, that_cannot_be_written_is_a_local_fault) {
  ScriptedBoard board;
  board.add_question(1, 0x2D);
  FILE* full = fopen("/dev/full", "w");
  char text[256] = {};
  FILE* err = fmemopen(text, sizeof text, "w");
  EXPECT_EQ(melk::melk_command(board, {"hd-version"}, full, err, {}), 4);
  fclose(full);
  fclose(err);
  EXPECT_TRUE(contains(text, "the output could not be written: No space left on device")) << text;
}

TEST(Usage, rate_without_the_fpga_is_refused) {
  ScriptedBoard board;
  const Outcome outcome = run(board, {"update", "/dev/null", "--rate", "10"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_TRUE(contains(outcome.err, "--via-fpga")) << outcome.err;
  EXPECT_TRUE(board.finished());
}

TEST(Usage, wrong_words_exit_2) {
  ScriptedBoard board;
  EXPECT_EQ(run(board, {}).code, 2);
  EXPECT_EQ(run(board, {"fly"}).code, 2);
  EXPECT_EQ(run(board, {"status", "extra"}).code, 2);
  EXPECT_EQ(run(board, {"read-reg", "256", "0"}).code, 2);
  EXPECT_EQ(run(board, {"log", "3", "-o", "x"}).code, 2);
  EXPECT_EQ(run(board, {"set-spts", "4294967296"}).code, 2);
  EXPECT_EQ(run(board, {"--timeout", "nan", "status"}).code, 2);
  EXPECT_EQ(run(board, {"watch", "--interval", "inf"}).code, 2);
  EXPECT_EQ(run(board, {"watch", "--count", "-1"}).code, 2);
  EXPECT_TRUE(board.finished());
}

TEST(Usage, unknown_words_are_named) {
  ScriptedBoard board;
  EXPECT_TRUE(contains(run(board, {"fly"}).err, "melk: 'fly' is none of its commands"));
  EXPECT_TRUE(contains(run(board, {"--fly"}).err, "melk: '--fly' is none of its options"));
  EXPECT_TRUE(contains(run(board, {}).err, "melk: a command is wanted"));
  EXPECT_TRUE(board.finished());
}

TEST(Usage, every_sub_command_has_help_with_an_example) {
  ScriptedBoard board;
  for (const std::string& word : sub_command_words()) {
    const Outcome outcome = run(board, {word, "--help"});
    EXPECT_EQ(outcome.code, 0) << word;
    EXPECT_TRUE(contains(outcome.out, "Usage: melk " + word)) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "Example: melk " + word)) << outcome.out;
  }
  EXPECT_TRUE(board.finished());
}

// An example that its own command refuses would be a bad one.
TEST(Usage, every_example_is_understood) {
  for (const std::string& word : sub_command_words()) {
    ScriptedBoard silent;
    const std::string help = run(silent, {word, "--help"}).out;
    const std::string mark = "Example: melk ";
    std::string example = help.substr(help.find(mark) + mark.size());
    example = example.substr(0, example.find_first_of("<\n"));
    std::vector<std::string> words;
    for (std::size_t at = 0, end = 0; at < example.size(); at = end + 1) {
      end = std::min(example.find(' ', at), example.size());
      if (end > at) words.push_back(example.substr(at, end - at));
    }
    char nothing[] = "\n";
    melk::Options options;
    options.in = fmemopen(nothing, 1, "r");
    EXPECT_NE(run(silent, words, options).code, 2) << example;
    fclose(options.in);
  }
  unlink("log1.tar.gz");
  unlink("monitor.txt");
}

TEST(Usage, json_tells_error_hint_and_exit_code) {
  ScriptedBoard board;
  EXPECT_EQ(run(board, {"--json", "statsu"}).out,
            "{\"error\":\"'statsu' is none of its commands\",\"hint\":\"did you mean "
            "status?\",\"exit\":2}\n");
  EXPECT_EQ(run(board, {"status", "extra", "--json"}).out,
            "{\"command\":\"status\",\"error\":\"The following argument was not expected: "
            "extra\",\"hint\":\"melk status --help tells what it takes\",\"exit\":2}\n");
  EXPECT_EQ(run(board, {"set-rtc", "1", "--json"}).out,
            "{\"command\":\"set-rtc\",\"error\":\"the clock text has 12 characters "
            "(DDMMYYhhmmss)\",\"hint\":\"leave it out to send the local time\",\"exit\":2}\n");
  EXPECT_EQ(run(board, {"--json"}).out,
            "{\"error\":\"a command is wanted\",\"hint\":\"melk --help lists them\","
            "\"exit\":2}\n");
  EXPECT_TRUE(board.finished());
}

TEST(Usage, misspelt_word_is_guessed_and_a_strange_one_not) {
  ScriptedBoard board;
  EXPECT_EQ(run(board, {"wath"}).err,
            "melk: 'wath' is none of its commands\nmelk: hint: did you mean watch?\n");
  EXPECT_EQ(run(board, {"aardvark"}).err,
            "melk: 'aardvark' is none of its commands\nmelk: hint: melk --help lists them\n");
}

// Every trouble of a conversation says what to do, and keeps its exit code.
TEST(Hints, each_trouble_has_one) {
  const auto told = [](ScriptedBoard& board, const std::vector<std::string>& words, int code) {
    const Outcome outcome = run(board, words);
    EXPECT_EQ(outcome.code, code) << words[0];
    EXPECT_TRUE(contains(outcome.err, "\nmelk: hint: ")) << outcome.err;
  };
  ScriptedBoard silent;
  told(silent, {"keep-alive"}, 3);
  ScriptedBoard without;
  add_upload(without, 19, {0xFF, 0xFF, 0xFF, 0xFF});
  told(without, {"monitor-file"}, 1);
  ScriptedBoard short_upload;
  add_upload(short_upload, 19, {0, 0, 0, 3, 'o'});
  told(short_upload, {"monitor-file"}, 5);
  ScriptedBoard nonsense;
  for (int i = 0; i < 4; ++i) nonsense.add_question(3, 0x11);
  told(nonsense, {"status"}, 1);
  const HostFile tiny("a=1");
  ScriptedBoard unasked;
  told(unasked, {"send-config", tiny.path()}, 4);
  told(unasked, {"send-config", "/nowhere/hd.ini"}, 4);
}

}  // namespace
