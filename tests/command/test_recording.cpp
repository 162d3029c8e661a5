// Recording a run, playing it again, drawing it; and the launcher's answers in JSON.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/command/command_case.h"
#include "vboard/core/record_reader.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using vboard::RecordKind;
using vboard::RecordLine;

const std::string kVantorig = BUILD_DIRECTORY "/vantorig";
const std::string kVboard = BUILD_DIRECTORY "/vboard";

std::string text_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write_text(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::vector<RecordLine> lines_of_record(const std::string& path) {
  std::string problem;
  std::vector<RecordLine> lines = vboard::read_record(path.c_str(), &problem);
  EXPECT_EQ(problem, "");
  return lines;
}

// A board and a record beside it.
struct VboardRecord : testing::Test {
  BoardRun board;
  std::string record = board.path("../run.trace");
  std::string script = board.path("../script");

  // The service with a host that configures it, a plug that is pulled and put back,
  // and a status record that is read.
  static constexpr char kScript[] =
      "at 3s melk send-config /home/tovin/send.ini\n"
      "at 50s melk status\n"
      "at 60s world source none\n"
      "at 66s world source component\n"
      "at 110s melk registers --full\n"
      "after 1s link 03 03 03\n"
      "collect 3\n";

  Result run(const std::string& how, const std::string& program) const {
    return board.vboard(how + " -- " + program);
  }
  Result record_service() {
    board.put_file("send.ini", text_of(SOURCE_DIRECTORY "/packaging/hd.ini"));
    write_text(script, kScript);
    return run(
        "record -o " + record + " --virtual --for 2min --host-log /dev/null --script " + script,
        kVantorig + " -602");
  }
  static Result replay(const std::string& arguments) {
    return shell(kVboard + " replay " + arguments);
  }

  // Changes a piece of the record.
  void forge(const std::string& from, const std::string& to) const {
    std::string text = text_of(record);
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    write_text(record, text.replace(at, from.size(), to));
  }
};

// ---- recording -----------------------------------------------------------------------

TEST_F(VboardRecord, does_not_change_the_run) {
  record_service();
  BoardRun other;
  other.put_file("send.ini", text_of(SOURCE_DIRECTORY "/packaging/hd.ini"));
  other.service("-602", kScript, 120);
  Lines operations;
  for (const RecordLine& line : lines_of_record(record))
    if (line.kind == RecordKind::kOperation) operations.push_back(line.who + " " + line.what);
  EXPECT_GT(operations.size(), 1000u);
  EXPECT_EQ(operations, other.trace_with_threads());
}

TEST_F(VboardRecord, holds_host_world_words_and_levels) {
  record_service();
  std::map<std::string, std::int64_t> first;
  for (const RecordLine& line : lines_of_record(record))
    first.try_emplace(line.who + " " + line.what, line.time_us);
  EXPECT_EQ(first.at("host link 02 -> --"), 3000000);
  EXPECT_EQ(first.at("world source none"), 60000000);
  EXPECT_EQ(first.at("board video none"), 60000000);
  EXPECT_TRUE(first.contains("t1 get SEND_HD_CONFIGURATION command"));
  EXPECT_TRUE(first.contains("board levels 40.0 24.0"));
  EXPECT_TRUE(first.contains("board encode streams"));
  EXPECT_EQ(first.at("board stopped"), 120000000);
}

TEST_F(VboardRecord, passes_on_output_and_status_of_the_program) {
  const Result plain = run("run --virtual", kVantorig + " -rdreg 0");
  const Result recorded = run("record --virtual -o " + record, kVantorig + " -rdreg 0");
  EXPECT_EQ(recorded.out, plain.out);
  EXPECT_EQ(recorded.status, plain.status);
  EXPECT_EQ(run("record --virtual -o " + record, "sh -c 'exit 7'").status, 7);
}

TEST_F(VboardRecord, is_over_with_the_run) {
  run("record --virtual -o " + record, kVantorig + " -rdreg 0");
  const std::string recorded = text_of(record);
  board.vboard("source none");
  board.vantorig("-rdreg 0");
  EXPECT_EQ(text_of(record), recorded);
}

TEST_F(VboardRecord, refuses_a_load_that_it_would_miss) {
  board.vboard("save " + board.path("../dump"));
  const Result result =
      shell(kVboard + " --board " + board.path("..") + " record -o " + record +
            " -- sleep 3 >/dev/null & p=$!; sleep 1; " + kVboard + " --board " + board.path("..") +
            " load " + board.path("../dump") + "; s=$?; wait $p; exit $s");
  EXPECT_EQ(result.status, 125);
  EXPECT_THAT(result.err, HasSubstr("load before it"));
}

// ---- playing it again ------------------------------------------------------------------

TEST_F(VboardRecord, of_virtual_time_repeats_operation_by_operation) {
  record_service();
  const Result result = replay(record);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_THAT(result.out,
              testing::MatchesRegex("equal: [0-9]+ operations in 120.0 s of board time\n"));
}

TEST_F(VboardRecord, of_a_board_in_use_repeats_with_its_state_and_files) {
  board.vantorig("-wrreg 0x102 0x4000");
  board.vboard("fault stuck 5d 28 0a");
  board.put_file("board.rbf", std::string(40, 'U'));
  std::filesystem::remove(board.path("MELK_spi.bin"));
  for (const char* arguments : {" -rdreg 0x102", " -5150rw 1 0x28", " -f=board.rbf", " -loadbf"}) {
    run("record --virtual -o " + record, kVantorig + arguments);
    const Result result = replay(record);
    EXPECT_EQ(result.status, 0) << arguments << result.out << result.err;
  }
}

TEST_F(VboardRecord, with_an_update_through_the_fpga_repeats) {
  board.put_file("package.tar.gz", std::string(5000, 'x'));
  write_text(script, "at 3s melk update --via-fpga /home/tovin/package.tar.gz\n");
  run("record -o " + record + " --virtual --for 40s --host-log /dev/null --script " + script,
      kVantorig + " -602");
  EXPECT_THAT(text_of(record), HasSubstr(" host fifo 78 78 78"));
  const Result result = replay(record);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

// What melk and vboard do in other terminals is recorded too. The answers are such
// as do not hang on the moment.
TEST_F(VboardRecord, of_a_live_run_repeats_by_what_it_changed) {
  const std::string place = board.path("..");
  const std::string melk = BUILD_DIRECTORY "/melk --board " + place + " ";
  shell(kVboard + " --board " + place + " record --speed 20 -o " + record + " -- " + kVantorig +
        " -602 >/dev/null & p=$!; until " + melk + "hd-version; do sleep 0.1; done; " + kVboard +
        " --board " + place + " source vga; " + melk + "set-spts 300; " + melk +
        "hd-version; kill $p; wait $p");
  const std::string text = text_of(record);
  EXPECT_THAT(text, HasSubstr(" host link 01 -> --\n"));
  EXPECT_THAT(text, HasSubstr(" world source vga\n"));
  EXPECT_THAT(text, HasSubstr(" t1 spi wr 2d\n"));
  const Result result = replay(record);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_THAT(result.out, HasSubstr(" changes in "));
  forge("t1 spi wr 2d", "t1 spi wr 2e");
  EXPECT_EQ(replay(record).status, 1);
}

TEST_F(VboardRecord, shows_the_first_difference) {
  run("record --virtual -o " + record, kVantorig + " -wrreg 0x102 0x4000");
  forge("fpga wr 0x0204 <- 0x4000", "fpga wr 0x0204 <- 0x4001");
  const Result result = replay(record);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("different after "));
  EXPECT_THAT(result.out, HasSubstr("main  fpga wr 0x0204 <- 0x4001  # VIDEO_CONTROL\n"));
  EXPECT_THAT(result.out, HasSubstr("main  fpga wr 0x0204 <- 0x4000  # VIDEO_CONTROL\n"));
}

TEST_F(VboardRecord, tells_a_program_that_does_less_and_one_that_does_more) {
  run("record --virtual -o " + record, kVantorig + " -wrreg 0x102 0x4000");
  const Result less = replay(record + " -- true");
  EXPECT_EQ(less.status, 1);
  EXPECT_THAT(less.out, HasSubstr("different after 0 equal operations"));
  EXPECT_THAT(less.out, HasSubstr("+ (nothing more)\n"));
  run("record --virtual -o " + record, "true");
  const Result more = replay(record + " -- " + kVantorig + " -wrreg 0x102 0x4000");
  EXPECT_EQ(more.status, 1);
  EXPECT_THAT(more.out, HasSubstr("- (nothing more)\n"));
}

TEST_F(VboardRecord, tells_another_exit_status) {
  run("record --virtual -o " + record, "sh -c 'exit 7'");
  EXPECT_EQ(replay(record).status, 0);
  const Result result = replay(record + " -- sh -c 'exit 8'");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "different after 0 equal operations: the recorded program ended with status 7, the "
            "replayed one ended with status 8\n");
}

TEST_F(VboardRecord, tells_the_outcome_as_json) {
  run("record --virtual -o " + record, kVantorig + " -wrreg 0x102 0x4000");
  const json equal = json::parse(replay("--json " + record).out);
  EXPECT_EQ(equal["equal"], true);
  EXPECT_TRUE(equal["difference"].is_null());
  forge("fpga wr 0x0204 <- 0x4000", "fpga wr 0x0204 <- 0x4001");
  const json different = json::parse(replay("--json " + record).out);
  EXPECT_EQ(different["equal"], false);
  EXPECT_EQ(different["difference"]["recorded"]["operation"], "fpga wr 0x0204 <- 0x4001");
  EXPECT_EQ(different["difference"]["replayed"]["operation"], "fpga wr 0x0204 <- 0x4000");
}

TEST_F(VboardRecord, of_a_replay_can_be_kept_and_replayed) {
  run("record --virtual -o " + record, kVantorig + " -wrreg 0x102 0x4000");
  const std::string kept = board.path("../kept.trace");
  EXPECT_EQ(replay("-o " + kept + " " + record).status, 0);
  EXPECT_EQ(replay(kept).status, 0);
}

// ---- records that are none ------------------------------------------------------------

TEST_F(VboardRecord, that_is_only_a_trace_is_refused_with_what_to_do) {
  run("run --virtual --trace " + record, kVantorig + " -rdreg 0");
  for (const std::string& words : {"replay " + record, "timeline -o /dev/null " + record}) {
    const Result result = shell(kVboard + " " + words);
    EXPECT_EQ(result.status, 125);
    EXPECT_THAT(result.err, HasSubstr("is a trace and no record; vboard record makes one"));
  }
}

// A start that failed leaves what was recorded before.
TEST_F(VboardRecord, of_a_program_that_never_starts_is_not_made) {
  for (const char* program : {"nonexistent", "/no/such/program"}) {
    const Result result = run("record --virtual -o " + record, program);
    EXPECT_EQ(result.status, 125);
    EXPECT_THAT(result.err, HasSubstr(std::string("cannot run ") + program));
    EXPECT_FALSE(std::filesystem::exists(record)) << program;
  }
  run("record --virtual -o " + record, kVantorig + " -rdreg 0");
  const std::string before = text_of(record);
  run("record --virtual -o " + record, "nonexistent");
  EXPECT_EQ(text_of(record), before);
}

TEST_F(VboardRecord, of_a_program_that_only_the_sandbox_finds_faulty_is_not_kept) {
  board.put_file("program", "#!/no/such/interpreter\n");
  std::filesystem::permissions(board.path("program"), std::filesystem::perms::owner_all);
  EXPECT_EQ(run("record --virtual -o " + record, "/home/tovin/program").status, 125);
  EXPECT_FALSE(std::filesystem::exists(record));
  write_text(script, "dance\n");
  EXPECT_EQ(run("record --virtual -o " + record + " --script " + script, "true").status, 125);
  EXPECT_FALSE(std::filesystem::exists(record));
}

TEST_F(VboardRecord, whose_program_never_started_is_refused) {
  write_text(record,
             "# vboard trace 1\n"
             "# record {\"command\":[\"true\"],\"started_us\":0,\"time\":\"virtual\"}\n");
  for (const std::string& words : {"replay " + record, "timeline -o /dev/null " + record}) {
    const Result result = shell(kVboard + " " + words);
    EXPECT_EQ(result.status, 125);
    EXPECT_THAT(result.err, HasSubstr("holds no run: its program never started"));
  }
}

TEST_F(VboardRecord, is_not_replayed_by_a_program_that_does_not_start) {
  run("record --virtual -o " + record, "true");
  const Result result = replay(record + " -- nonexistent");
  EXPECT_EQ(result.status, 125);
  EXPECT_THAT(result.err, HasSubstr("vboard: cannot run nonexistent"));
}

TEST_F(VboardRecord, that_is_no_trace_is_refused_with_its_line) {
  write_text(record, "once upon a time\n");
  EXPECT_THAT(replay(record).err, HasSubstr("its first line is not \"# vboard trace 1\""));
  write_text(record, "# vboard trace 1\nonce upon a time\n");
  const Result result = replay(record);
  EXPECT_EQ(result.status, 125);
  EXPECT_THAT(result.err, HasSubstr("line 2 is no line of a trace"));
}

TEST_F(VboardRecord, with_a_state_of_another_version_is_refused) {
  board.vantorig("-wrreg 0x102 0x4000");
  run("record --virtual -o " + record, kVantorig + " -rdreg 0");
  forge("# state ", "# state 9");
  const Result result = replay(record);
  EXPECT_EQ(result.status, 125);
  EXPECT_THAT(result.err, HasSubstr("record it anew"));
}

TEST_F(VboardRecord, that_names_files_outside_of_the_home_is_refused) {
  run("record --virtual -o " + record, kVantorig + " -rdreg 0");
  const std::string whole = text_of(record);
  for (const char* line :
       {"# file 644 00 ../out\n", "# gone ../../out\n", "# directory /tmp/out\n"}) {
    write_text(record, whole + line);
    const Result result = replay(record);
    EXPECT_EQ(result.status, 125) << line;
    EXPECT_THAT(result.err, HasSubstr("outside of the board's home"));
  }
}

TEST_F(VboardRecord, that_cannot_be_written_is_told) {
  const Result result = run("record --virtual -o /no/such/trace", "true");
  EXPECT_EQ(result.status, 125);
  EXPECT_THAT(result.err, HasSubstr("cannot write /no/such/trace: No such file or directory"));
}

// ---- the picture ------------------------------------------------------------------------

std::string picture_of(const std::string& record, const std::string& svg) {
  const Result result = shell(kVboard + " timeline " + record + " -o " + svg);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(
      shell("python3 -c 'import sys, xml.dom.minidom as x; x.parse(sys.argv[1])' " + svg).status,
      0);
  return text_of(svg);
}

// The plug is pulled at 60 s and put back at 66 s; the service sees it and restarts.
TEST_F(VboardRecord, is_drawn_with_host_world_states_and_the_cause_of_a_restart) {
  record_service();
  const std::string svg = picture_of(record, board.path("../run.svg"));
  const std::string sent = std::to_string(text_of(SOURCE_DIRECTORY "/packaging/hd.ini").size());
  EXPECT_THAT(svg, HasSubstr(">send-config " + sent + " bytes<"));
  for (const char* text :
       {">vantorig -602<", ">120 s of board time, recorded in virtual time; 1 restart of encode<",
        ">status 91 80 00<", ">source none<", ">source component<", ">component<", ">digital<",
        ">applies<", ">watches<", ">restarts<", ">streams<", "input came back after a loss (85)<",
        "polyline class=\"video-level\"", "polyline class=\"audio-level\"",
        "prefers-color-scheme: dark"})
    EXPECT_THAT(svg, HasSubstr(text));
}

TEST_F(VboardRecord, is_drawn_with_the_title_that_is_given) {
  run("record --virtual -o " + record, kVantorig + " -rdreg 0");
  const Result result =
      shell(kVboard + " timeline " + record + " --title 'a < b & c' -o " + board.path("../a.svg"));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(text_of(board.path("../a.svg")), HasSubstr(">a &lt; b &amp; c<"));
}

TEST_F(VboardRecord, picture_that_cannot_be_written_is_told) {
  run("record --virtual -o " + record, "true");
  const Result result = shell(kVboard + " timeline " + record + " -o /no/such/run.svg");
  EXPECT_EQ(result.status, 125);
  EXPECT_THAT(result.err, HasSubstr("cannot write /no/such/run.svg"));
}

// Every line that the program prints before a restart, and the cause byte of the host.
struct CauseCase {
  const char* name;
  const char* message;
  const char* cause;
};
void PrintTo(const CauseCase& one, std::ostream* out) { *out << one.name; }

class VboardTimelineCause : public testing::TestWithParam<CauseCase> {};

TEST_P(VboardTimelineCause, is_told_beside_its_restart) {
  BoardRun board;
  const std::string record = board.path("../run.trace");
  write_text(record,
             std::string("# vboard trace 1\n"
                         "# record {\"command\":[\"x\"],\"started_us\":0,\"time\":\"real\"}\n"
                         "1 10.0 main says ") +
                 GetParam().message +
                 "\n2 12.0 main shell killall encode\n"
                 "3 12.0 main shell killall encode\n4 40.0 board ended 0\n");
  EXPECT_THAT(picture_of(record, board.path("../run.svg")),
              HasSubstr(std::string(">restart at 12.0 s: ") + GetParam().cause + "<"));
}

INSTANTIATE_TEST_SUITE_P(
    each, VboardTimelineCause,
    testing::Values(CauseCase{"video_overflow", "RESTART - video buffer overflow!!",
                              "video buffer overflow (81)"},
                    CauseCase{"audio_overflow", "RESTART - audio buffer overflow!!",
                              "audio buffer overflow (82)"},
                    CauseCase{"audio_overflow_without_input", "restart!! - audio ovf!!!",
                              "audio buffer overflow (82)"},
                    CauseCase{"stalled", "tvp is o.k. , and There is no video_buf",
                              "input locked but the video buffer did not move (83)"},
                    CauseCase{"no_audio", "RESTART!! - no audio!!",
                              "audio missing, or audio appeared after a start without it (84)"},
                    CauseCase{"audio_appeared", "audio after no audio!!",
                              "audio missing, or audio appeared after a start without it (84)"},
                    CauseCase{"input_back", "restart - tvp is back!!",
                              "input came back after a loss (85)"},
                    CauseCase{"input_frozen", "restart!! - no_tvp", "input lost and frozen (86)"},
                    CauseCase{"level_far_away", "restart - video_buf is far away from vid_buf_init",
                              "video buffer far from its settled level (87)"}),
    [](const auto& one) { return std::string(one.param.name); });

// ---- help and JSON ------------------------------------------------------------------------

TEST(VboardHelp, of_every_command_has_an_example) {
  for (const char* word : {"",         "run",   "record", "replay",    "timeline",
                           "shell",    "demo",  "show",   "registers", "operations",
                           "clean",    "save",  "load",   "source",    "set-standard",
                           "captions", "audio", "encode", "fault",     "faults"}) {
    const Result result = shell(kVboard + " " + word + " --help");
    EXPECT_EQ(result.status, 0) << word;
    EXPECT_THAT(result.out, HasSubstr(std::string("Example:\n  vboard ") + (*word ? word : "run")));
  }
}

TEST(VboardJson, of_show_tells_the_board) {
  BoardRun board;
  board.vboard("source vga");
  board.vantorig("-blk");  // a second
  const json shown = json::parse(board.vboard("show --json").out);
  EXPECT_EQ(shown["video"]["source"], "vga");
  EXPECT_EQ(shown["audio"]["source"], "digital");
  EXPECT_EQ(shown["encode"]["running"], false);
  EXPECT_EQ(shown["violations"]["count"], 0);
  EXPECT_GE(shown["time_s"].get<double>(), 1.0);
}

TEST(VboardJson, of_registers_tells_values_by_name) {
  BoardRun board;
  board.vantorig("-wrreg 0x102 0x55");
  for (const json& one : json::parse(board.vboard("registers --json").out))
    if (one["name"] == "VIDEO_CONTROL") {
      EXPECT_EQ(one["address"], 0x204);
      EXPECT_EQ(one["value"], 0x55);
      return;
    }
  FAIL() << "no VIDEO_CONTROL";
}

TEST(VboardJson, of_operations_lists_what_the_tables_hold) {
  const json all = json::parse(shell(kVboard + " operations --json").out);
  EXPECT_EQ(all["operations"][0]["name"], "source");
  EXPECT_EQ(all["faults"][0]["name"], "video-loss");
  EXPECT_EQ(all["standards"][0]["name"], "480i");
  EXPECT_EQ(all["standards"][0]["frames_per_second"], 29.97);
}

}  // namespace
