// Fuzz targets: what each makes of one input, and the process it does it in.
//
// Every input runs in a process of its own, on a fresh board in virtual time, so
// that a stored input alone reproduces its finding: no state of an earlier input
// remains. The process ends at the end of the input; a crash, a
// sanitizer's report, a broken expectation or no end at all is a finding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

struct Target {
  const char* name;
  void (*run)(std::string_view input);  // expectations that break end the process
};

// The target of this name, or null.
const Target* find_target(std::string_view name);

// Runs the target on one input in a child process. Returns "" when it ended well,
// else what went wrong. Edges that the child covered count as this process's own.
std::string run_in_own_process(const Target& target, std::string_view input);

// Reports a broken expectation and ends the process.
[[noreturn]] void finding(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Takes an input apart, front to back; what is not there reads as zero.
class Reader {
 public:
  explicit Reader(std::string_view input) : left_(input) {}
  bool empty() const { return left_.empty(); }
  std::uint8_t byte();
  std::string_view bytes(std::size_t count);  // as many as are there
  // Everything up to the separator, which is passed over, or to the end.
  std::string_view up_to(char separator);

 private:
  std::string_view left_;
};

}  // namespace fuzz
