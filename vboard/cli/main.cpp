// `vboard`: runs programs on a virtual board and changes the world around it.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "vboard/cli/demo.h"
#include "vboard/cli/dump.h"
#include "vboard/cli/keeper.h"
#include "vboard/cli/recording.h"
#include "vboard/cli/sandbox.h"
#include "vboard/cli/show.h"
#include "vboard/cli/timeline.h"
#include "vboard/core/clock.h"
#include "vboard/core/text.h"
#include "vboard/world/world.h"

namespace {

using namespace vboard;
namespace fs = std::filesystem;

constexpr int kUsage = 2;
constexpr int kNoBoard = 125;

int complain(const std::string& problem) {
  fprintf(stderr, "vboard: %s\n", problem.c_str());
  return kNoBoard;
}

int misused(const std::string& problem) {
  fprintf(stderr, "vboard: %s\nRun with --help for more information.\n", problem.c_str());
  return kUsage;
}

// A number alone means seconds.
bool board_time(const std::string& text, std::int64_t* us) { return parse_time(text, us, "s"); }

const CLI::Validator kBoardTime(
    [](const std::string& text) {
      std::int64_t us = 0;
      return board_time(text, &us) ? std::string()
                                   : "'" + text + "' is no time such as 90, 5min or 2h";
    },
    "TIME");

// A number of board seconds per real second that a clock can follow.
const CLI::Validator kSpeed(
    [](const std::string& text) {
      constexpr double kLowest = 0.001;
      constexpr double kHighest = 10000;
      char* end = nullptr;
      const double speed = strtod(text.c_str(), &end);
      const bool number = end != text.c_str() && *end == '\0' && std::isfinite(speed);
      return number && speed >= kLowest && speed <= kHighest
                 ? std::string()
                 : "'" + text + "' is no speed from 0.001 to 10000";
    },
    "0.001..10000");

// A run that was killed could not say that it was over.
void let_rest(const BoardDirectory& place, Board& board) {
  if (board.clock.running > 0 && !board_in_use(place.path().c_str())) come_to_rest(board);
}

int run_program(const BoardDirectory& directory, const RunOptions& options,
                const std::vector<std::string>& command) {
  const OutliveSignals until_the_board_rests;
  Run program(directory, options, as_seen_from_here(command));
  if (!program.problem().empty()) return complain(program.problem());
  const int status = program.wait();
  return program.problem().empty() ? status : complain(program.problem());
}

// A shell on the board: `vantorig` in it is the program on the virtual board.
int shell(const fs::path& directory, RunOptions options, const std::string& name) {
  options.shell = true;
  const std::string program = fs::absolute(as_seen_from_here({name})[0]);
  if (access(program.c_str(), X_OK) != 0)
    return complain("cannot run " + program + ": " + strerror(errno));
  const std::string script = "vantorig() { LD_PRELOAD=\"$VBOARD_LIBRARY\" '" + program +
                             "' \"$@\"; }\n"
                             "PS1='board:\\w\\$ '\n";
  const fs::path start = BoardDirectory(directory).path() / "shellrc";
  std::string problem;
  if (!BoardDirectory(directory).prepare(&problem)) return complain(problem);
  std::ofstream file(start);
  if (!(file << script) || !file.flush())
    return complain("cannot write " + start.string() + ": " + strerror(errno));
  return run_program(BoardDirectory(directory), options, {"bash", "--rcfile", start, "-i"});
}

int change_world(const fs::path& directory, const std::vector<std::string>& words) {
  const BoardDirectory place(directory);
  std::string problem;
  if (!place.prepare(&problem)) return complain(problem);
  Board* board = place.map(&problem);
  if (board == nullptr) return complain(problem);
  clock_attach(board);
  let_rest(place, *board);
  const std::string command = joined(words);
  Locked hold(*board);
  if (!world_command(*board, command, problem)) {
    fprintf(stderr, "vboard: %s\n", problem.c_str());
    return kUsage;
  }
  printf("%s\n", command.c_str());
  return 0;
}

// Everything that a command line can say.
struct Arguments {
  std::string board;
  RunOptions run;
  std::string for_text;
  std::vector<std::string> command;
  std::string record_file;
  ReplayOptions replay;
  TimelineOptions timeline;
  std::string shell_program = kProgram;
  RunOptions shell;
  DemoOptions demo;
  std::string trace_file;
  std::string dump_file;
  bool hold = false;
  bool markdown = false;
  bool json = false;
  std::vector<std::string> world_words;
  std::string ac3_list;
};

// A sub-command with an example of its use.
CLI::App* declare(CLI::App& app, const char* name, const char* meaning, const char* example) {
  CLI::App* one = app.add_subcommand(name, meaning);
  one->footer(std::string("Example:\n  vboard ") + example);
  return one;
}

void take_run_options(CLI::App* one, Arguments& arguments) {
  RunOptions& run = arguments.run;
  CLI::Option* speed =
      one->add_option("--speed", run.speed, "board seconds per real second")->check(kSpeed);
  one->add_flag("--virtual", run.virtual_time,
                "virtual time: waits cost nothing, every run is the same")
      ->excludes(speed);
  one->add_option("--for", arguments.for_text,
                  "stop the program after this board time (90, 5min, 2h); needs --virtual")
      ->check(kBoardTime);
  one->add_option("--script", run.script, "host and world, scripted; needs --virtual")
      ->check(CLI::ExistingFile);
  one->add_option("--host-log", run.host_log, "what the scripted host saw");
  one->add_option("command", arguments.command, "program and arguments, after --")->required();
}

void declare_runs(CLI::App& app, Arguments& arguments) {
  CLI::App* run =
      declare(app, "run", "run a program on the board", "run --speed 5 -- vantorig -602");
  run->add_option("--trace", arguments.run.trace, "append every device operation to this file");
  take_run_options(run, arguments);

  CLI::App* record = declare(app, "record", "run a program and record it, host and world included",
                             "record -o run.trace -- vantorig -602");
  record->add_option("-o,--output", arguments.run.trace, "the record")->required();
  take_run_options(record, arguments);

  CLI::App* replay = declare(app, "replay", "replay a record and compare what the program does now",
                             "replay run.trace -- ./vantorig -602");
  replay->add_option("record", arguments.replay.record, "what vboard record made")
      ->required()
      ->check(CLI::ExistingFile);
  replay->add_option("-o,--output", arguments.replay.output, "keep the record of the replay");
  replay->add_flag("--json", arguments.replay.json, "print the outcome as JSON");
  replay->add_option("command", arguments.replay.command,
                     "program and arguments, after --, instead of the recorded ones");

  CLI::App* timeline =
      declare(app, "timeline", "draw a record as a picture", "timeline run.trace -o run.svg");
  timeline->add_option("record", arguments.timeline.record, "what vboard record made")
      ->required()
      ->check(CLI::ExistingFile);
  timeline->add_option("-o,--output", arguments.timeline.output, "the picture, SVG")->required();
  timeline->add_option("--title", arguments.timeline.title, "the heading of the picture");

  CLI::App* shell = declare(app, "shell", "an interactive shell on the board", "shell --speed 5");
  shell
      ->add_option("--program", arguments.shell_program,
                   "what `vantorig` runs there, its own without a path")
      ->capture_default_str();
  shell->add_option("--speed", arguments.shell.speed, "board seconds per real second")
      ->check(kSpeed);

  CLI::App* demo = declare(app, "demo", "the main job, step by step", "demo --speed 10");
  demo->add_option("--speed", arguments.demo.speed, "board seconds per real second")
      ->check(kSpeed)
      ->capture_default_str();
  demo->add_option("--program", arguments.demo.program, "the program under demonstration")
      ->capture_default_str();
  demo->add_option("--config", arguments.demo.config, "the hd.ini that the host sends")
      ->capture_default_str();
}

void declare_views(CLI::App& app, Arguments& arguments) {
  CLI::App* show =
      declare(app, "show", "the state of the board: world, chips, encode, faults", "show --json");
  CLI::App* stream = declare(
      app, "stream", "the stream that leaves the board, as an analyser shows it", "stream --json");
  CLI::App* registers =
      declare(app, "registers", "FPGA registers by name", "registers | grep VIDEO");
  registers->add_flag("--markdown", arguments.markdown,
                      "the register map as a Markdown table, without values");
  CLI::App* operations = declare(
      app, "operations", "the tables of operations, faults and video standards", "operations");
  operations->add_flag("--markdown", arguments.markdown, "as Markdown tables");
  for (CLI::App* one : {show, stream, registers, operations})
    one->add_flag("--json", arguments.json, "as JSON");

  CLI::App* clean =
      declare(app, "clean", "a trace without times, threads and notes, to compare runs",
              "clean run.trace >run.clean");
  clean->add_option("trace", arguments.trace_file, "a trace file")
      ->required()
      ->check(CLI::ExistingFile);

  CLI::App* save =
      declare(app, "save", "write the FPGA registers to a dump file", "save board.dump");
  CLI::App* load = declare(app, "load", "set the FPGA registers from a dump, of a board or of save",
                           "load --hold board.dump");
  for (CLI::App* one : {save, load})
    one->add_option("file", arguments.dump_file,
                    "lines of \"0xADDRESS 0xVALUE\", or what -rdreg prints")
        ->required();
  load->add_flag("--hold", arguments.hold,
                 "freeze also the registers that the FPGA updates, until the next load without it");
}

void declare_operations(CLI::App& app, Arguments& arguments) {
  for (const WorldCommand& operation : world_commands()) {
    CLI::App* one = declare(app, operation.name, operation.meaning, operation.example);
    one->footer(std::string("Operation:\n  vboard ") + operation.name + " " + operation.usage +
                "\n\n" + one->get_footer());
    one->add_option("words", arguments.world_words, operation.usage);
    if (one->get_name() == "fault" || one->get_name() == "set-standard")
      one->footer(one->get_footer() + "\n\nNames: vboard operations");
    if (one->get_name() == "audio")
      one->add_option("--ac3", arguments.ac3_list, "the source's AC-3 stream, as name=value,...");
  }
}

// ---- doing what was said ---------------------------------------------------------------

int run_or_record(Arguments& arguments, bool record) {
  RunOptions& run = arguments.run;
  if (!arguments.for_text.empty()) board_time(arguments.for_text, &run.for_us);
  if (!run.virtual_time && (run.for_us >= 0 || !run.script.empty()))
    return misused("--for and --script need --virtual");
  const BoardDirectory directory(arguments.board);
  if (!record) return run_program(directory, run, arguments.command);
  const OutliveSignals until_the_board_rests;
  std::string problem;
  const int status = make_record(directory, run, arguments.command, &problem);
  return problem.empty() ? status : complain(problem);
}

int save_or_load(Arguments& arguments, Board& board, bool save) {
  std::string problem;
  if (!save && recording(board))
    return complain("the run on this board is recorded, and a load would not be; load before it");
  const bool done = save ? save_registers(board, arguments.dump_file, &problem)
                         : load_registers(board, arguments.dump_file, arguments.hold, &problem);
  return done ? 0 : complain(problem);
}

// The commands that look at a board or set its registers.
int with_board(const std::string& word, Arguments& arguments) {
  std::string problem;
  const BoardDirectory place(arguments.board);
  if (word == "load" && !place.prepare(&problem)) return complain(problem);
  if (word != "load" && !fs::exists(place.state_file()))
    return complain("no board in " + place.path().string() +
                    "; name one with --board, or make one there with vboard run");
  Board* board = place.map(&problem);
  if (board == nullptr) return complain(problem);
  clock_attach(board);
  let_rest(place, *board);
  Locked hold(*board);
  if (word == "show") return show_board(*board, arguments.json);
  if (word == "stream") return show_stream(*board, arguments.json);
  if (word == "registers") return show_registers(*board, arguments.json);
  return save_or_load(arguments, *board, word == "save");
}

int replay_record(const ReplayOptions& options, const fs::path& scratch) {
  std::string problem;
  const int status = replay(options, scratch, &problem);
  return problem.empty() ? status : complain(problem);
}

int timeline(const TimelineOptions& options) {
  std::string problem;
  const int status = draw_timeline(options, &problem);
  return problem.empty() ? status : complain(problem);
}

// What could not be printed was not done.
int when_printed(int status) {
  errno = 0;
  if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
  const std::string why = errno != 0 ? std::string(": ") + strerror(errno) : "";
  return complain("cannot write standard output" + why);
}

int safely(const std::function<int()>& work) {
  try {
    return when_printed(work());
  } catch (const std::exception& problem) {
    return complain(problem.what());
  }
}

// Runs of programs: whatever ends them, nothing of them lives on.
int kept_run(const std::function<int()>& work) {
  return kept([&work] { return safely(work); });
}

// The same with a temporary directory, which goes with the work unless that ends
// with the status `left`.
int kept_in_scratch(const char* name, const std::function<int(const fs::path&)>& work,
                    int left = -1) {
  Scratch scratch(name);
  return kept([&] { return safely([&] { return work(scratch.path()); }); },
              [&](int status) { status == left ? scratch.keep() : scratch.remove(); });
}

int follow(const std::string& word, Arguments& arguments) {
  if (word == "run" || word == "record")
    return kept_run([&] { return run_or_record(arguments, word == "record"); });
  if (word == "shell")
    return kept_run(
        [&] { return shell(arguments.board, arguments.shell, arguments.shell_program); });
  if (word == "replay")
    return kept_in_scratch("vboard-replay", [&](const fs::path& place) {
      return replay_record(arguments.replay, place);
    });
  if (word == "demo")
    return kept_in_scratch(
        "vboard-demo", [&](const fs::path& place) { return demo(arguments.demo, place); },
        kDemoFailed);
  if (word == "timeline") return timeline(arguments.timeline);
  if (word == "clean") return show_clean_trace(arguments.trace_file);
  if (word == "operations") return print_operations(arguments.markdown, arguments.json);
  if (word == "registers" && arguments.markdown) return print_register_map();
  if (word == "show" || word == "stream" || word == "registers" || word == "save" || word == "load")
    return with_board(word, arguments);
  std::vector<std::string> words = arguments.world_words;
  words.insert(words.begin(), word);
  if (!arguments.ac3_list.empty()) words.insert(words.end(), {"--ac3", arguments.ac3_list});
  return change_world(arguments.board, words);
}

constexpr char kOverview[] =
    "Example:\n"
    "  vboard run --speed 5 -- vantorig -602           # in one terminal\n"
    "  vboard source none                              # in another: pull the plug\n"
    "\n"
    "Each command has --help, with an example. Exit status: that of the program for run,\n"
    "record and shell; 0 success, 1 demo or a step of a script failed, or replay found a\n"
    "difference, 2 usage, 125 vboard itself failed.";

int run_vboard(int argc, char** argv) {
  CLI::App app{"A virtual encoder board: runs the unmodified control program on any Linux PC."};
  app.fallthrough();  // --board may stand behind the sub-command too
  app.footer(kOverview);
  app.set_version_flag("--version", "vboard " VBOARD_VERSION);
  Arguments arguments;
  const char* default_board = getenv("VBOARD_BOARD");
  arguments.board = default_board != nullptr ? default_board : "board";
  app.add_option("-b,--board", arguments.board, "the board's directory")->capture_default_str();
  declare_runs(app, arguments);
  declare_views(app, arguments);
  declare_operations(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const std::vector<std::string> strangers = app.remaining();
    if (app.get_subcommands().empty() && !strangers.empty())
      return misused("'" + strangers[0] + "' is none of its " +
                     (strangers[0].starts_with('-') ? "options" : "commands"));
    return app.exit(error) == 0 ? 0 : kUsage;
  }
  if (app.get_subcommands().empty()) return misused("a command is wanted");
  if (arguments.board.empty()) return misused("--board wants a directory");
  return follow(app.get_subcommands()[0]->get_name(), arguments);
}

}  // namespace

int main(int argc, char** argv) {
  return safely([=] { return run_vboard(argc, argv); });
}
