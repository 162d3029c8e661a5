// melk: the host's client, talking to the board of a directory.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <ctime>
#include <exception>

#include "melk/board_transport.h"
#include "melk/commands.h"

namespace {

constexpr const char* kExitCodes =
    "Exit codes: 0 done, 1 the board answered and something is wrong, 2 usage,\n"
    "3 the board is silent, 4 local file error, 5 incomplete transfer.";

std::string default_board() {
  const char* named = getenv("VBOARD_BOARD");
  return named != nullptr && named[0] != '\0' ? named : "./board";
}

// The local time as SEND_RTC carries it.
std::string local_clock() {
  const time_t now = time(nullptr);
  tm parts = {};
  localtime_r(&now, &parts);
  char text[16];
  return {text, strftime(text, sizeof text, "%d%m%y%H%M%S", &parts)};
}

int complain(const std::string& text, int code) {
  fprintf(stderr, "melk: %s\n", text.c_str());
  return code;
}

int run(int argc, char** argv) {
  CLI::App app("Host side of the encoder board's link.", "melk");
  app.footer(kExitCodes);
  std::string directory = default_board();
  app.add_option("--board", directory, "directory of the board ($VBOARD_BOARD or ./board)");
  melk::Request request;
  melk::add_sub_commands(app, request);
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (const std::optional<int> code = melk::parse_words(app, words, stdout, stderr)) return *code;

  std::string problem;
  const std::unique_ptr<melk::BoardTransport> transport =
      melk::BoardTransport::open(directory, &problem);
  if (transport == nullptr) return complain(problem, melk::kLocalFile);
  if (!transport->reachable(directory, &problem))
    return complain("the board is silent: " + problem, melk::kBoardSilent);

  melk::Options options;
  options.out_is_terminal = isatty(STDOUT_FILENO) != 0;
  options.err_is_terminal = isatty(STDERR_FILENO) != 0;
  options.stoppable = true;
  options.in = stdin;
  options.local_clock = local_clock;
  return melk::run_request(*transport, request, stdout, stderr, options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "melk: %s\n", error.what());
    return melk::kLocalFile;
  }
}
