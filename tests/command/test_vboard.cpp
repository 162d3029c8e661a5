// The launcher with real processes: what lasts between them, runs that repeat to
// the byte, and what it says to a command it cannot follow.
#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/command/command_case.h"

namespace {

std::string vboard_program() { return std::string(BUILD_DIRECTORY) + "/vboard"; }

// ---- state ------------------------------------------------------------------------

TEST(VboardState, lasts_between_processes) {
  BoardRun board;
  board.vantorig("-5150rw 0 0x28 0x0A");
  EXPECT_EQ(board.vantorig("-5150rw 1 0x28").out, "reg 0x28=0xa\n");
  board.vantorig("-gpio 26");  // reset
  EXPECT_EQ(board.vantorig("-5150rw 1 0x28").out, "reg 0x28=0x0\n");
  EXPECT_EQ(board.trace({"i2c"}), Lines{"i2c 5d rd 28 = EREMOTEIO"});
  board.vantorig("-gpio 27");
  board.vantorig("-5150rw 1 0x28");
  EXPECT_EQ(board.trace({"i2c"}), Lines{"i2c 5d rd 28 -> 00"});
}

TEST(VboardState, boards_are_apart) {
  BoardRun one;
  BoardRun other;
  one.vantorig("-wrreg 0x102 0x55");
  EXPECT_EQ(other.vantorig("-rdreg 0x102").out, "addr 0x102: 0x0\n");
}

TEST(VboardState, world_lasts_until_it_is_changed) {
  BoardRun board;
  EXPECT_EQ(board.vboard("fault missing i2c").out, "fault missing i2c\n");
  EXPECT_EQ(board.vantorig("-blk").out, "Y prog_blk\nCannot access I2C device1 \n");
  EXPECT_EQ(board.vboard("faults clear").status, 0);
  EXPECT_EQ(board.vantorig("-blk").out, "Y prog_blk\nrc = 0\n");
}

TEST(VboardState, faults_that_are_on_are_shown) {
  BoardRun board;
  board.vboard("faults clear");
  EXPECT_THAT(board.vboard("show").out, testing::HasSubstr("\nfaults    none\n"));
  board.vboard("fault missing i2c");
  board.vboard("fault stall");
  EXPECT_THAT(board.vboard("show").out, testing::HasSubstr("\nfaults    stall, missing i2c\n"));
  EXPECT_THAT(board.vboard("show --json").out,
              testing::ContainsRegex("\"faults\": \\[\n +\"stall\",\n +\"missing i2c\"\n"));
}

TEST(VboardState, clock_goes_on_from_run_to_run) {
  BoardRun board;
  board.vantorig("-blk");  // a second
  board.vantorig("-blk");
  const std::string shown = board.vboard("show").out;
  EXPECT_EQ(shown.substr(0, 14), "time      2.00") << shown;
}

TEST(VboardState, encode_does_not_outlive_its_run) {
  BoardRun board;
  board.put_file("send.ini", "portActiveEnable=1\n; enough bytes to be a file\n");
  board.service("-602", "at 3s melk send-config /home/tovin/send.ini\n", 20);
  EXPECT_THAT(board.vboard("show").out, testing::HasSubstr("not running, launched 1 times"));
}

// ---- determinism -------------------------------------------------------------------

TEST(VboardDeterminism, scripted_service_repeats_to_the_byte) {
  const char script[] =
      "at 3s melk send-config /home/tovin/send.ini\n"
      "at 40s melk status\n"
      "after 1s world source none\n"
      "after 20s melk status\n"
      "world source component\n"
      "after 60s link 03 03 03\n"
      "collect 3\n";
  std::ifstream example(SOURCE_DIRECTORY "/packaging/hd.ini");
  const std::string config{std::istreambuf_iterator<char>(example), {}};
  struct Seen {
    std::string out;
    std::string log;
    Lines trace;
  };
  const auto run = [&] {
    BoardRun board;
    board.put_file("send.ini", config);
    const Result result = board.service("-602", script, 150);
    return Seen{result.out, board.host_log(), board.trace_with_threads()};
  };
  const Seen first = run();
  const Seen second = run();
  EXPECT_EQ(first.out, second.out);
  EXPECT_EQ(first.log, second.log);
  EXPECT_EQ(first.trace, second.trace);
  EXPECT_GT(first.trace.size(), 1000u);
  EXPECT_THAT(first.log, testing::HasSubstr("world source none"));
}

// ---- time --------------------------------------------------------------------------

TEST(VboardTime, limit_takes_its_units) {
  for (const char* limit : {"2", "2s", "2000ms", "0.03333334min", "0.000555556h"}) {
    BoardRun board;
    const Result result = board.vboard(std::string("run --virtual --for ") + limit + " -- " +
                                       BUILD_DIRECTORY + "/vantorig -5150");
    EXPECT_EQ(result.status, 0) << limit << result.err;
    EXPECT_EQ(board.vboard("show").out.substr(0, 15), "time      2.000") << limit;
  }
}

TEST(VboardTime, status_of_the_program_is_passed_on) {
  BoardRun board;
  EXPECT_EQ(board.vboard("run --virtual -- sh -c 'exit 7'").status, 7);
  EXPECT_EQ(board.vboard("run --virtual -- sh -c 'kill -9 $$'").status, 128 + 9);
}

// ---- the sandbox ----------------------------------------------------------------------

TEST(VboardSandbox, home_is_the_boards_own_and_starts_furnished) {
  BoardRun board;
  const Result result = board.vboard("run --virtual -- ls /home/tovin");
  EXPECT_EQ(lines_of(result.out), (Lines{"MELK_spi.bin", "encode", "update.sh", "version.ini"}));
  EXPECT_EQ(board.vboard("run --virtual -- pwd").out, "/home/tovin\n");
}

TEST(VboardSandbox, shell_has_the_program_on_the_board) {
  BoardRun board;
  const Result result =
      shell("printf 'vantorig -wrreg 0x102 0x55\\nvantorig -rdreg 0x102\\npwd\\n' | " +
            vboard_program() + " --board " + board.path("..") + " shell --speed 20 --program " +
            BUILD_DIRECTORY + "/vantorig");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, testing::HasSubstr("addr 0x102: 0x55\n/home/tovin\n"));
}

TEST(VboardSandbox, blanks_in_the_path_do_no_harm) {
  BoardRun board;
  const std::string place = board.path("two words");
  const Result result =
      shell(vboard_program() + " --board '" + place + "' run --virtual --trace '" + place +
            ".trace file' -- " + BUILD_DIRECTORY + "/vantorig -rdreg 0x102");
  EXPECT_EQ(result.out, "addr 0x102: 0x0\n") << result.err;
  EXPECT_TRUE(std::filesystem::exists(place + ".trace file"));
}

// The loader takes a list of libraries apart at blanks and colons.
TEST(VboardSandbox, blanks_and_colons_in_the_path_of_the_programs_do_no_harm) {
  BoardRun board;
  const std::string place = board.path("two words:one colon");
  std::filesystem::create_directories(place);
  for (const char* program : {"vboard", "libvboard.so", "vantorig", "vboard-encode", "update.sh"})
    std::filesystem::copy(std::string(BUILD_DIRECTORY) + "/" + program, place);
  const std::string run = "'" + place + "/vboard' --board '" + place +
                          "/board' run --virtual -- '" + place + "/vantorig' ";
  const Result result = shell(run + "-wrreg 0x102 0x55; " + run + "-rdreg 0x102");
  EXPECT_THAT(result.out, testing::EndsWith("addr 0x102: 0x55\n"));
  EXPECT_EQ(result.err, "");
}

// `vboard` on this board with a bwrap that fails with these words.
std::string vboard_without_sandbox(const BoardRun& board, const std::string& words) {
  board.put_file("bin/bwrap", "#!/bin/sh\necho '" + words + "' >&2\nexit 1\n");
  std::filesystem::permissions(board.path("bin/bwrap"), std::filesystem::perms::owner_all);
  return "PATH=" + board.path("bin") + ":$PATH " + vboard_program() + " --board " +
         board.path("..");
}

TEST(VboardSandbox, refused_namespaces_are_told_and_what_to_do) {
  BoardRun board;
  const std::string vboard =
      vboard_without_sandbox(board, "bwrap: No permissions to create new namespace");
  for (const char* arguments : {" run --virtual -- true", " demo"}) {
    const Result result = shell(vboard + arguments);
    EXPECT_EQ(result.status, 125) << arguments;
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, testing::HasSubstr("No permissions to create new namespace\n"));
    EXPECT_THAT(result.err, testing::HasSubstr("user namespaces are switched off"));
    EXPECT_THAT(result.err, testing::HasSubstr("kernel.unprivileged_userns_clone=1"));
  }
}

TEST(VboardSandbox, other_failures_are_told_in_the_words_of_bwrap_alone) {
  BoardRun board;
  const std::string words = "bwrap: Failed to make / slave: Invalid argument";
  const std::string vboard = vboard_without_sandbox(board, words);
  for (const char* arguments : {" run --virtual -- true", " demo"}) {
    const Result result = shell(vboard + arguments);
    EXPECT_EQ(result.status, 125) << arguments;
    EXPECT_THAT(result.err,
                testing::HasSubstr("vboard: the sandbox cannot be set up: " + words + "\n"));
    EXPECT_THAT(result.err, testing::Not(testing::HasSubstr("user namespaces")));
  }
}

TEST(VboardSandbox, program_without_a_path_is_the_one_beside_it) {
  BoardRun board;
  EXPECT_EQ(board.vboard("run --virtual -- vantorig -wrreg 0x102 0x55").status, 0);
  EXPECT_EQ(board.vboard("run --virtual -- vantorig -rdreg 0x102").out, "addr 0x102: 0x55\n");
  const Result result = shell("cd / && echo 'vantorig -rdreg 0x102' | " + vboard_program() +
                              " --board " + board.path("..") + " shell --speed 20");
  EXPECT_THAT(result.out, testing::HasSubstr("addr 0x102: 0x55\n")) << result.err;
}

TEST(VboardSandbox, missing_bubblewrap_is_told_with_its_package) {
  BoardRun board;
  const Result result = shell("PATH=/no/such/directory " + vboard_program() + " --board " +
                              board.path("..") + " run --virtual -- /bin/true");
  EXPECT_EQ(result.status, 125);
  EXPECT_THAT(result.err, testing::HasSubstr("package bubblewrap"));
}

// ---- runs that are ended from outside ---------------------------------------------

class VboardEnded : public testing::TestWithParam<const char*> {};

TEST_P(VboardEnded, leaves_a_board_at_rest) {
  BoardRun board;
  const std::string place = board.path("..");
  const std::string vboard = vboard_program() + " --board " + place;
  const Result ended =
      shell(vboard + " run --speed 20 -- " + BUILD_DIRECTORY +
            "/vantorig -602 >/dev/null & p=$!; sleep 1; kill -" + GetParam() +
            " $p; wait $p; sleep 0.3; " + BUILD_DIRECTORY + "/melk --board " + place + " status");
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, testing::HasSubstr("the board is silent: no program runs on the board"));
  const std::string shown = board.vboard("show").out;
  EXPECT_EQ(board.vboard("show").out, shown);  // the clock stands
  EXPECT_EQ(board.vantorig("-rdreg 0x102").out, "addr 0x102: 0x0\n");
}

INSTANTIATE_TEST_SUITE_P(each, VboardEnded, testing::Values("TERM", "KILL"),
                         [](const auto& one) { return std::string("by_") + one.param; });

// ---- two clients --------------------------------------------------------------------

// Without turns the questions would end up in the configuration.
TEST(VboardClients, take_turns_on_the_link) {
  BoardRun board;
  const std::string place = board.path("..");
  const std::string melk = std::string(BUILD_DIRECTORY) + "/melk --board " + place;
  std::ofstream(board.path("../sent.ini")) << std::string(20000, ';') << '\n';
  const Result result =
      shell(vboard_program() + " --board " + place + " run --speed 20 -- " + BUILD_DIRECTORY +
            "/vantorig -602 >/dev/null & p=$!; sleep 1; " + melk +
            " --timeout 200 watch --count 40 --interval 0.01 & w=$!; " + melk + " send-config " +
            place + "/sent.ini >/dev/null; s=$?; wait $w; r=$?; kill $p; wait $p; " + "cmp " +
            place + "/sent.ini " + board.path("hd.ini") + " && exit $s$r");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(result.err, "");
}

// ---- the demonstration ---------------------------------------------------------------

// A demonstration that failed leaves its board for a look.
void remove_left_board(const std::string& out) {
  const std::string said = "A virtual board in ";
  const std::size_t at = out.find(said);
  ASSERT_NE(at, std::string::npos);
  const std::size_t place = at + said.size();
  std::filesystem::remove_all(out.substr(place, out.find(',', place) - place));
}

TEST(VboardDemo, verifies_every_step_within_a_minute_and_without_colours) {
  const Result result = shell("timeout 60 " + vboard_program() + " demo");
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(result.out.find('\033'), std::string::npos);
  EXPECT_THAT(result.out, testing::HasSubstr(" steps verified, 0 failed.\n"));
  EXPECT_THAT(result.out, testing::Not(testing::HasSubstr("FAIL")));
}

// What cannot be loaded into the program leaves a board whose clock stands.
TEST(VboardDemo, gives_up_when_the_program_never_reaches_the_board) {
  BoardRun board;
  for (const char* file : {"vboard", "vantorig", "vboard-encode", "demo.ini"})
    std::filesystem::copy(std::string(BUILD_DIRECTORY) + "/" + file, board.path(file));
  board.put_file("libvboard.so", "not a library\n");
  const Result result = shell("timeout 100 " + board.path("vboard") + " demo");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, testing::HasSubstr("FAIL the service answers on the SPI link"));
  remove_left_board(result.out);
}

// A program that does nothing passes no check; the board stays for a look.
TEST(VboardDemo, fails_with_a_program_that_does_nothing_in_colours_on_a_terminal) {
  const Result result =
      shell("timeout 60 script -qec '" + vboard_program() + " demo --program /bin/true' /dev/null");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, testing::HasSubstr("\033[1;31mFAIL\033[0m"));
  remove_left_board(result.out);
}

// ---- what it cannot follow --------------------------------------------------------------

struct Complaint {
  const char* name;
  const char* arguments;
  int status;
  const char* message;  // a piece of standard error
};
void PrintTo(const Complaint& one, std::ostream* out) { *out << one.arguments; }

class VboardComplaint : public testing::TestWithParam<Complaint> {};

TEST_P(VboardComplaint, goes_to_standard_error_with_its_status) {
  BoardRun board;
  const Result result = board.vboard(GetParam().arguments);
  EXPECT_EQ(result.status, GetParam().status);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, testing::HasSubstr(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    each, VboardComplaint,
    testing::Values(
        Complaint{"limit_without_virtual_time", "run --for 5 -- true", 2,
                  "vboard: --for and --script need --virtual"},
        Complaint{"script_without_virtual_time", "run --script /dev/null -- true", 2,
                  "vboard: --for and --script need --virtual"},
        Complaint{"limit_is_no_time", "run --virtual --for soon -- true", 2,
                  "'soon' is no time such as 90, 5min or 2h"},
        Complaint{"limit_in_unknown_unit", "run --virtual --for 5x -- true", 2,
                  "'5x' is no time such as 90, 5min or 2h"},
        Complaint{"limit_without_end", "run --virtual --for inf -- true", 2,
                  "'inf' is no time such as 90, 5min or 2h"},
        Complaint{"limit_is_not_a_number", "run --virtual --for nan -- true", 2,
                  "'nan' is no time such as 90, 5min or 2h"},
        Complaint{"limit_beyond_all_clocks", "run --virtual --for 1e300d -- true", 2,
                  "'1e300d' is no time such as 90, 5min or 2h"},
        Complaint{"limit_before_the_start", "run --virtual --for=-5 -- true", 2,
                  "'-5' is no time such as 90, 5min or 2h"},
        Complaint{"limit_is_empty", "run --virtual --for '' -- true", 2,
                  "'' is no time such as 90, 5min or 2h"},
        Complaint{"speed_of_virtual_time", "run --virtual --speed 3 -- true", 2,
                  "--speed excludes --virtual"},
        Complaint{"speed_of_a_record_in_virtual_time",
                  "record -o /dev/null --virtual --speed 1 -- true", 2,
                  "--speed excludes --virtual"},
        Complaint{"script_missing", "run --virtual --script /no/such/file -- true", 2,
                  "File does not exist"},
        Complaint{"program_missing", "run --virtual -- /no/such/program", 125,
                  "vboard: cannot run /no/such/program: No such file or directory"},
        Complaint{"program_is_a_directory", "run --virtual -- /tmp", 125,
                  "vboard: cannot run /tmp: Is a directory"},
        Complaint{"program_missing_on_the_board", "run --virtual -- /home/tovin/none", 125,
                  "vboard: cannot run /home/tovin/none: No such file or directory\n"},
        Complaint{"program_missing_on_the_path", "run -- nonexistent", 125,
                  "vboard: cannot run nonexistent: No such file or directory\n"},
        Complaint{"program_that_is_none", "run -- /home/tovin/version.ini", 125,
                  "vboard: cannot run /home/tovin/version.ini: Permission denied\n"},
        Complaint{"trace_on_a_full_device", "run --virtual --trace /dev/full -- true", 125,
                  "vboard: cannot write all of /dev/full: No space left on device\n"},
        Complaint{"record_on_a_full_device", "record --virtual -o /dev/full -- true", 125,
                  "vboard: cannot write all of /dev/full: No space left on device\n"},
        Complaint{"trace_cannot_be_written", "run --virtual --trace /no/such/trace -- true", 125,
                  "vboard: cannot write /no/such/trace: No such file or directory"},
        Complaint{"host_log_cannot_be_written",
                  "run --virtual --script /dev/null --host-log /tmp -- true", 125,
                  "vboard: cannot write /tmp: Is a directory"},
        Complaint{"speed_nought", "run --speed 0 -- true", 2, "'0' is no speed"},
        Complaint{"speed_is_no_number", "run --speed nan -- true", 2, "'nan' is no speed"},
        Complaint{"speed_beyond_all_clocks", "run --speed 1e300 -- true", 2, "'1e300' is no speed"},
        Complaint{"speed_with_a_tail", "demo --speed 5x", 2, "'5x' is no speed"},
        Complaint{"shell_program_missing", "shell --program /no/such/program", 125,
                  "vboard: cannot run /no/such/program: No such file or directory"},
        Complaint{"demo_program_missing", "demo --program /no/such/program", 125,
                  "vboard: cannot run /no/such/program: No such file or directory"},
        Complaint{"demo_configuration_is_a_directory", "demo --config /tmp", 125,
                  "or no configuration (/tmp)"},
        Complaint{"world_word_unknown", "source hdmi", 2,
                  "vboard: source: source 'hdmi' is none of component, vga, composite, none"},
        Complaint{"fault_unknown", "fault fire", 2, "vboard: fault: fault 'fire' is none of"},
        Complaint{"nothing_asked", "", 2, "vboard: a command is wanted"},
        Complaint{"command_unknown", "explode", 2, "vboard: 'explode' is none of its commands"},
        Complaint{"option_unknown", "--explode", 2, "vboard: '--explode' is none of its options"},
        Complaint{"argument_unknown", "show all", 2, "was not expected: all"}),
    [](const auto& one) { return std::string(one.param.name); });

// A shell script whose interpreter is missing stands there, but does not start.
TEST(VboardErrors, program_that_does_not_start_is_told) {
  BoardRun board;
  board.put_file("program", "#!/no/such/interpreter\n");
  std::filesystem::permissions(board.path("program"), std::filesystem::perms::owner_all);
  const Result result = board.vboard("run --virtual -- /home/tovin/program");
  EXPECT_EQ(result.status, 125);
  EXPECT_THAT(result.err, testing::EndsWith("vboard: cannot run /home/tovin/program\n"));
}

TEST(VboardErrors, full_standard_output_is_told) {
  BoardRun board;
  for (const char* words : {"show", "show --json", "registers", "registers --json", "operations",
                            "registers --markdown", "source none", "--help"}) {
    const Result result = board.vboard(std::string(words) + " >/dev/full");
    EXPECT_EQ(result.status, 125) << words;
    EXPECT_THAT(result.err, testing::StartsWith("vboard: cannot write standard output")) << words;
  }
}

TEST(VboardHelp, version_is_told_as_the_host_client_tells_it) {
  const Result result = shell(vboard_program() + " --version");
  EXPECT_EQ(result.status, 0);
  const Result host = shell(std::string(BUILD_DIRECTORY) + "/melk --version");
  EXPECT_EQ(result.out, "vboard " + host.out.substr(strlen("melk ")));
}

TEST(VboardErrors, board_of_another_version_is_refused) {
  BoardRun board;
  const std::string state = board.path("../board.state");
  std::filesystem::resize_file(state, std::filesystem::file_size(state) + 1);
  for (const char* arguments : {"run --virtual -- true", "faults clear", "show"}) {
    const Result result = board.vboard(arguments);
    EXPECT_EQ(result.status, 125);
    EXPECT_THAT(result.err, testing::HasSubstr("it is of another version of vboard"));
  }
}

TEST(VboardErrors, state_that_is_none_is_refused) {
  BoardRun board;
  const std::string state = board.path("../board.state");
  std::fstream file(state, std::ios::in | std::ios::out | std::ios::binary);
  file.write("none", 4);  // over the magic word
  file.close();
  EXPECT_EQ(board.vboard("run --virtual -- true").status, 125);
}

TEST(VboardErrors, show_wants_a_board) {
  const Result result = shell(vboard_program() + " --board /tmp/no/such/board show");
  EXPECT_EQ(result.status, 125);
  EXPECT_THAT(result.err, testing::HasSubstr("vboard: no board in /tmp/no/such/board"));
}

TEST(VboardErrors, second_program_on_a_board_is_refused) {
  BoardRun board;
  const std::string vboard = vboard_program() + " --board " + board.path("..");
  const Result result = shell(vboard + " run -- sleep 2 & sleep 0.5; " + vboard +
                              " run --virtual -- true; status=$?; wait; exit $status");
  EXPECT_EQ(result.status, 125);
  EXPECT_EQ(
      result.err,
      "vboard: a program runs on this board already; end it, or name another board with --board\n");
}

// ---- scripts that are none ---------------------------------------------------------------

struct ScriptCase {
  const char* name;
  const char* script;
  const char* message;
};
void PrintTo(const ScriptCase& one, std::ostream* out) { *out << one.name; }

class VboardScript : public testing::TestWithParam<ScriptCase> {};

TEST_P(VboardScript, is_refused_with_its_line) {
  BoardRun board;
  const Result result = board.service("-602", GetParam().script, 5);
  EXPECT_EQ(result.status, 125);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, testing::EndsWith(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    faults, VboardScript,
    testing::Values(
        ScriptCase{"unknown_step", "print one\ndance\n", "script:2: unknown step dance\n"},
        ScriptCase{"no_time", "at\n", "script:1: a time such as 2s, 500ms or 3min is wanted\n"},
        ScriptCase{"time_without_a_unit", "at 5 print x\n",
                   "script:1: a time such as 2s, 500ms or 3min is wanted\n"},
        ScriptCase{"time_before_the_start", "at -5s print x\n",
                   "script:1: a time such as 2s, 500ms or 3min is wanted\n"},
        ScriptCase{"time_without_end", "at infs print x\n",
                   "script:1: a time such as 2s, 500ms or 3min is wanted\n"},
        ScriptCase{"link_with_no_byte", "print x\nlink 0g zz\n",
                   "script:2: link: bytes of one or two hexadecimal digits are wanted\n"},
        ScriptCase{"link_with_a_byte_too_long", "link 02 100\n",
                   "script:1: link: bytes of one or two hexadecimal digits are wanted\n"},
        ScriptCase{"link_without_bytes", "at 3s link\n",
                   "script:1: link: bytes of one or two hexadecimal digits are wanted\n"},
        ScriptCase{"collect_less_than_nothing", "collect -1\n",
                   "script:1: collect: a number of bytes from 1 to 65536 is wanted\n"},
        ScriptCase{"collect_nothing", "collect 0\n",
                   "script:1: collect: a number of bytes from 1 to 65536 is wanted\n"},
        ScriptCase{"collect_no_number", "collect abc\n",
                   "script:1: collect: a number of bytes from 1 to 65536 is wanted\n"},
        ScriptCase{"collect_number_with_a_tail", "collect 3x\n",
                   "script:1: collect: a number of bytes from 1 to 65536 is wanted\n"},
        ScriptCase{"collect_more_than_any_answer", "collect 99999999999\n",
                   "script:1: collect: a number of bytes from 1 to 65536 is wanted\n"},
        ScriptCase{"collect_two_numbers", "collect 1 2\n",
                   "script:1: collect: a number of bytes from 1 to 65536 is wanted\n"},
        ScriptCase{"melk_without_command", "melk\n",
                   "script:1: melk: a command of melk is wanted\n"},
        ScriptCase{"world_without_operation", "world # source none\n",
                   "script:1: world: an operation is wanted\n"},
        ScriptCase{"end_with_a_time", "end 5s\n", "script:1: end: nothing is wanted behind it\n"},
        ScriptCase{"time_in_unknown_unit", "# a comment\n\nafter 5y print x\n",
                   "script:3: a time such as 2s, 500ms or 3min is wanted\n"}),
    [](const auto& one) { return std::string(one.param.name); });

TEST(VboardScriptSteps, run_at_their_times_and_are_logged) {
  BoardRun board;
  board.service("-602",
                "print first   words  # not this\n"
                "at 1500ms world source none\n"
                "after 500ms print at two\n"
                "world source hdmi\n"
                "end\n"
                "print never\n",
                60);
  EXPECT_EQ(board.host_log(),
            "first words\n"
            "[1.500] world source none\n"
            "at two\n"
            "[2.000] world source hdmi: source: source 'hdmi' is none of component, vga, "
            "composite, none\n");
  const std::string shown = board.vboard("show").out;
  EXPECT_EQ(shown.substr(0, 15), "time      2.000") << shown;
}

TEST(VboardScriptSteps, that_fail_are_told_and_fail_the_run) {
  BoardRun board;
  const Result world = board.service("-602", "world source none\nworld source hdmi\n", 5);
  EXPECT_EQ(world.status, 1);
  EXPECT_THAT(world.err, testing::EndsWith("script:2: world source hdmi: source: source 'hdmi' is "
                                           "none of component, vga, composite, none\n"));
  const Result melk = board.service("-602", "at 3s melk status\nmelk dance\n", 10);
  EXPECT_EQ(melk.status, 1);
  EXPECT_THAT(melk.err, testing::EndsWith("script:2: melk dance: exit status 2\n"));
  EXPECT_EQ(board.service("-602", "at 3s melk status\n", 10).status, 0);  // the next begins anew
}

TEST(VboardScriptSteps, whose_log_is_lost_fail_the_run) {
  BoardRun board;
  std::ofstream(board.path("../script")) << "print x\n";
  const Result result =
      board.vboard("run --virtual --for 5 --host-log /dev/full --script " +
                   board.path("../script") + " -- " + BUILD_DIRECTORY + "/vantorig -602");
  EXPECT_EQ(result.status, 125);
  EXPECT_EQ(result.err, "vboard: cannot write all of /dev/full: No space left on device\n");
}

TEST(VboardScriptSteps, leave_the_programs_own_failure_as_it_is) {
  BoardRun board;
  EXPECT_EQ(board.vboard("run --virtual --script /dev/null -- sh -c 'exit 7'").status, 7);
  std::ofstream(board.path("../script")) << "world source hdmi\n";
  const std::string script = board.path("../script");
  EXPECT_EQ(
      board.vboard("run --virtual --script " + script + " -- " + BUILD_DIRECTORY + "/vantorig -blk")
          .status,
      1);
}

TEST(VboardScriptSteps, may_be_longer_than_a_kilobyte) {
  BoardRun board;
  std::string script = "at 3s link";
  for (int i = 0; i < 500; ++i) script += " a5";
  EXPECT_EQ(board.service("-602", script + "\n", 60).status, 0);
  EXPECT_EQ(lines_of(board.host_log()).size(), 1u);
}

TEST(VboardScriptSteps, register_of_a_board_without_a_bus_is_no_configuration) {
  BoardRun board;
  board.vboard("fault missing i2c");
  board.service("-602", "at 3s melk read-reg 0x38 2\nmelk monitor-state\nend\n", 60);
  EXPECT_THAT(board.host_log(), testing::HasSubstr("read-reg: the board cannot open its I2C bus"));
  EXPECT_THAT(board.host_log(), testing::HasSubstr("0 (0x00)  watching"));
}

TEST(VboardScriptSteps, link_shows_what_comes_back) {
  BoardRun board;
  // 0x03 asks for a status byte; its answer comes with a later transfer. Before
  // any command the link has nothing to give.
  board.service("-602", "at 3s link 03\nafter 1s collect 1\n", 10);
  const Lines log = lines_of(board.host_log());
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0], "link 03>--");
  EXPECT_EQ(log[1].substr(0, 8), "link a5>");
  EXPECT_NE(log[1].substr(8), "--");
}

}  // namespace
