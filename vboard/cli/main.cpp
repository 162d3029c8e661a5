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
#include <string>
#include <vector>

#include "vboard/cli/demo.h"
#include "vboard/cli/dump.h"
#include "vboard/cli/sandbox.h"
#include "vboard/cli/show.h"
#include "vboard/core/clock.h"
#include "vboard/core/world.h"

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

// "90", "90s", "5min", "2h", "3d" of board time.
bool seconds_of(const std::string& text, std::int64_t* us) {
  char* unit = nullptr;
  const double number = strtod(text.c_str(), &unit);
  const std::string name = unit;
  const double scale = name.empty() || name == "s" ? 1
                       : name == "ms"              ? 1e-3
                       : name == "min"             ? 60
                       : name == "h"               ? 3600
                       : name == "d"               ? 86400
                                                   : 0;
  *us = static_cast<std::int64_t>(number * scale * 1e6);
  return unit != text.c_str() && scale > 0 && number >= 0;
}

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

// A program named by a path is meant where the user stands, not on the board.
std::vector<std::string> resolved(std::vector<std::string> command) {
  if (!command.empty() && command[0].find('/') != std::string::npos)
    command[0] = fs::absolute(command[0]);
  return command;
}

int run(const fs::path& directory, const RunOptions& options,
        const std::vector<std::string>& command) {
  Run program(BoardDirectory(directory), options, resolved(command));
  if (!program.problem().empty()) return complain(program.problem());
  const int status = program.wait();
  return program.problem().empty() ? status : complain(program.problem());
}

// A shell on the board: `vantorig` in it is the program on the virtual board.
int shell(const fs::path& directory, RunOptions options, const std::string& program) {
  options.shell = true;
  if (access(program.c_str(), X_OK) != 0)
    return complain("cannot run " + program + ": " + strerror(errno));
  const std::string script = "vantorig() { LD_PRELOAD=\"$VBOARD_LIBRARY\" '" +
                             fs::absolute(program).string() +
                             "' \"$@\"; }\n"
                             "PS1='board:\\w\\$ '\n";
  const fs::path start = BoardDirectory(directory).path() / "shellrc";
  std::string problem;
  if (!BoardDirectory(directory).prepare(&problem)) return complain(problem);
  if (FILE* file = fopen(start.c_str(), "w")) {
    fputs(script.c_str(), file);
    fclose(file);
  }
  return run(directory, options, {"bash", "--rcfile", start, "-i"});
}

int change_world(const fs::path& directory, const std::vector<std::string>& words) {
  const BoardDirectory place(directory);
  std::string problem;
  if (!place.prepare(&problem)) return complain(problem);
  Board* board = place.map(&problem);
  if (board == nullptr) return complain(problem);
  clock_attach(board);
  let_rest(place, *board);
  std::string command;
  for (const std::string& word : words) command += (command.empty() ? "" : " ") + word;
  Locked hold(*board);
  if (!world_command(*board, command, problem)) {
    fprintf(stderr, "vboard: %s\n", problem.c_str());
    return kUsage;
  }
  printf("%s\n", command.c_str());
  return 0;
}

int run_vboard(int argc, char** argv) {
  CLI::App app{"A virtual encoder board: runs the unmodified control program on any Linux PC."};
  app.fallthrough();  // --board may stand behind the sub-command too
  const char* default_board = getenv("VBOARD_BOARD");
  std::string directory = default_board != nullptr ? default_board : "board";
  app.add_option("-b,--board", directory, "the board's directory")->capture_default_str();

  RunOptions options;
  std::string for_text;
  std::vector<std::string> command;
  auto* run_command = app.add_subcommand("run", "run a program on the board");
  run_command->add_option("--speed", options.speed, "board seconds per real second")->check(kSpeed);
  run_command->add_flag("--virtual", options.virtual_time,
                        "virtual time: waits cost nothing, every run is the same");
  run_command->add_option("--for", for_text,
                          "stop the program after this board time (90, 5min, 2h); needs --virtual");
  run_command->add_option("--trace", options.trace, "append every device operation to this file");
  run_command->add_option("--script", options.script, "host and world, scripted; needs --virtual")
      ->check(CLI::ExistingFile);
  run_command->add_option("--host-log", options.host_log, "what the scripted host saw");
  run_command->add_option("command", command, "program and arguments, after --")->required();

  std::string shell_program = "build/vantorig";
  RunOptions shell_options;
  auto* shell_command = app.add_subcommand("shell", "an interactive shell on the board");
  shell_command->add_option("--program", shell_program, "the program that `vantorig` runs")
      ->capture_default_str();
  shell_command->add_option("--speed", shell_options.speed, "board seconds per real second")
      ->check(kSpeed);

  DemoOptions demo_options;
  auto* demo_command = app.add_subcommand("demo", "the main job, told step by step");
  demo_command->add_option("--speed", demo_options.speed, "board seconds per real second")
      ->check(kSpeed)
      ->capture_default_str();
  demo_command->add_option("--program", demo_options.program, "the program under demonstration")
      ->capture_default_str();
  demo_command->add_option("--config", demo_options.config, "the hd.ini that the host sends")
      ->capture_default_str();

  std::string trace_file;
  auto* clean_command =
      app.add_subcommand("clean", "a trace without times, threads and notes, to compare runs by");
  clean_command->add_option("trace", trace_file, "a trace file")
      ->required()
      ->check(CLI::ExistingFile);

  auto* show_command = app.add_subcommand("show", "the board as it stands: world, chips, encode");
  bool register_map = false;
  auto* registers_command = app.add_subcommand("registers", "FPGA registers by name");
  registers_command->add_flag("--markdown", register_map,
                              "the register map as a Markdown table, without values");
  std::string dump_file;
  auto* save_command = app.add_subcommand("save", "write the FPGA registers to a dump file");
  auto* load_command =
      app.add_subcommand("load", "set the FPGA registers from a dump, of a board or of save");
  for (CLI::App* one : {save_command, load_command})
    one->add_option("file", dump_file, "lines of \"0xADDRESS 0xVALUE\", or what -rdreg prints")
        ->required();
  bool hold_registers = false;
  load_command->add_flag("--hold", hold_registers,
                         "keep also the registers that the FPGA fills as they are then, until the "
                         "next load without it");
  bool operations_markdown = false;
  auto* operations_command =
      app.add_subcommand("operations", "what the world can do: commands, faults, standards");
  operations_command->add_flag("--markdown", operations_markdown, "as Markdown tables");

  std::vector<std::string> world_words;
  std::string ac3_list;
  std::vector<CLI::App*> world_apps;
  for (const WorldCommand& operation : world_commands()) {
    auto* one = app.add_subcommand(operation.name, operation.meaning);
    one->footer(std::string("usage: vboard ") + operation.name + " " + operation.usage);
    one->add_option("words", world_words, operation.usage);
    if (one->get_name() == "audio")
      one->add_option("--ac3", ac3_list, "the source's AC-3 stream, as name=value,...");
    world_apps.push_back(one);
  }
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
  if (directory.empty()) return misused("--board wants a directory");

  if (run_command->parsed()) {
    if (!for_text.empty() && !seconds_of(for_text, &options.for_us))
      return complain("--for wants a time such as 90, 5min or 2h");
    if (!options.virtual_time && (options.for_us >= 0 || !options.script.empty()))
      return complain("--for and --script need --virtual");
    return run(directory, options, command);
  }
  if (shell_command->parsed()) return shell(directory, shell_options, shell_program);
  if (demo_command->parsed()) return demo(demo_options);
  if (clean_command->parsed()) return show_clean_trace(trace_file);
  if (operations_command->parsed()) return print_operations(operations_markdown);
  if (registers_command->parsed() && register_map) return print_register_map();
  if (show_command->parsed() || registers_command->parsed() || save_command->parsed() ||
      load_command->parsed()) {
    std::string problem;
    const BoardDirectory place(directory);
    if (load_command->parsed() && !place.prepare(&problem)) return complain(problem);
    if (!load_command->parsed() && !fs::exists(place.state_file()))
      return complain("no board in " + place.path().string());
    Board* board = place.map(&problem);
    if (board == nullptr) return complain(problem);
    clock_attach(board);
    let_rest(place, *board);
    Locked hold(*board);
    if (show_command->parsed()) return show_board(*board);
    if (registers_command->parsed()) return show_registers(*board);
    const bool done = save_command->parsed()
                          ? save_registers(*board, dump_file, &problem)
                          : load_registers(*board, dump_file, hold_registers, &problem);
    return done ? 0 : complain(problem);
  }
  for (CLI::App* one : world_apps) {
    if (!one->parsed()) continue;
    world_words.insert(world_words.begin(), one->get_name());
    if (!ac3_list.empty()) world_words.insert(world_words.end(), {"--ac3", ac3_list});
    return change_world(directory, world_words);
  }
  return kUsage;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run_vboard(argc, argv);
  } catch (const std::exception& problem) {
    return complain(problem.what());
  }
}
