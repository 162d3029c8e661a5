// melk: the host's client, talking to the board of a directory or at the end of a wire.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <ctime>
#include <exception>

#include "melk/arguments.h"
#include "melk/spidev_transport.h"
#include "melk/terminal.h"
#include "vboard/host/board_transport.h"

namespace {

constexpr const char* kFooter =
    "Each command has --help, with an example.\n"
    "Exit codes: 0 done, 1 the board answered and something is wrong, 2 usage,\n"
    "3 the board is silent, 4 a local file, the board's directory or the SPI device,\n"
    "5 incomplete transfer.";

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

// Where the board is, as the command line says.
struct Place {
  std::string directory = default_board();
  melk::SpidevOptions spi;
};

void add_place(CLI::App& app, Place& place) {
  CLI::Option* board = app.add_option("--board", place.directory,
                                      "directory of a virtual board ($VBOARD_BOARD or ./board)")
                           ->option_text("DIR");
  CLI::Option* spi =
      app.add_option("--spi", place.spi.device, "SPI master of a real board, as /dev/spidev0.0")
          ->excludes(board)
          ->option_text("DEVICE");
  app.add_option("--speed", place.spi.speed_hz, "with --spi: clock in Hz (1000000)")
      ->check(CLI::Range(std::uint32_t{1}, std::uint32_t{200000000}))
      ->needs(spi)
      ->option_text("HZ");
  app.add_option("--spi-mode", place.spi.mode, "with --spi: clock mode, 0 to 3 (0)")
      ->check(CLI::Range(0, 3))
      ->needs(spi)
      ->option_text("MODE");
  app.add_option("--gap", place.spi.gap_ms, "with --spi: milliseconds after each byte (10)")
      ->check(CLI::Range(0.0, 1000.0))
      ->needs(spi)
      ->option_text("MS");
  app.add_option("--data-gap", place.spi.data_gap_ms,
                 "with --spi: milliseconds after each byte of file data (1)")
      ->check(CLI::Range(0.0, 1000.0))
      ->needs(spi)
      ->option_text("MS");
}

// Null with a complaint.
std::unique_ptr<melk::Transport> open_wire(const Place& place, melk::Complaint* complaint) {
  melk::SpidevTransport::Refusal refusal;
  std::unique_ptr<melk::SpidevTransport> transport =
      melk::SpidevTransport::open(place.spi, &refusal);
  if (transport == nullptr) *complaint = {"", refusal.text, refusal.hint, melk::kLocalFile};
  return transport;
}

std::unique_ptr<melk::Transport> open_board(const Place& place, melk::Complaint* complaint) {
  std::string problem;
  std::unique_ptr<vboard::BoardTransport> transport =
      vboard::BoardTransport::open(place.directory, &problem);
  if (transport == nullptr) {
    *complaint = {"", problem, "name the board's directory with --board, or a wire with --spi",
                  melk::kLocalFile};
  } else if (!transport->reachable(place.directory, &problem)) {
    *complaint = {
        "", "the board is silent: " + problem,
        "start the service on it: vboard --board " + place.directory + " run -- vantorig -602",
        melk::kBoardSilent};
    transport.reset();
  }
  return transport;
}

// For what is done without a board.
class NoBoard : public melk::Transport {
 public:
  bool transfer(std::uint8_t, std::uint8_t*) override { return false; }
  bool wait_taken(std::int64_t) override { return false; }
  bool wait_answer(std::int64_t) override { return false; }
  void pause(std::int64_t) override {}
  std::int64_t now_us() override { return 0; }
  bool push_update(const std::uint8_t*, std::size_t, std::int64_t) override { return false; }
};

int run(int argc, char** argv) {
  CLI::App app("Host side of the encoder board's link.", "melk");
  app.footer(kFooter);
  app.set_version_flag("--version", "melk " MELK_VERSION);
  Place place;
  add_place(app, place);
  melk::Request request;
  melk::add_sub_commands(app, request);
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (const std::optional<int> code = melk::parse_words(app, words, stdout, stderr)) return *code;

  melk::Complaint complaint;
  const bool wire = !place.spi.device.empty();
  const std::unique_ptr<melk::Transport> transport = !melk::wants_board(request)
                                                         ? std::make_unique<NoBoard>()
                                                     : wire ? open_wire(place, &complaint)
                                                            : open_board(place, &complaint);
  if (transport == nullptr) {
    complaint.word = request.word;
    return melk::complain(complaint, request.json, stdout, stderr);
  }

  melk::Terminal terminal;
  melk::Options options;
  options.out_is_terminal = isatty(STDOUT_FILENO) != 0;
  options.err_is_terminal = isatty(STDERR_FILENO) != 0;
  if (melk::Terminal::usable()) options.screen = &terminal;
  options.board_name = wire ? place.spi.device : place.directory;
  options.stoppable = true;
  options.in = stdin;
  options.local_clock = local_clock;
  options.make_update = melk::make_update;
  options.command = melk::melk_command;
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
