// Runs the real binaries: a program on a virtual board of its own, the launcher,
// the host client; and gives back what they printed and did.
#pragma once

#include <string>
#include <vector>

struct Result {
  int status = -1;  // exit status as a shell shows it
  std::string out;  // standard output
  std::string err;  // standard error
};

// Runs a command line of the machine's shell.
Result shell(const std::string& command);

// The command that stands for vantorig: VANTORIG_PROGRAM from the environment, so
// that the same tests run against a build for another processor, or else the
// program of this build.
std::string program_under_test();

// A virtual board in a temporary directory.
class BoardRun {
 public:
  BoardRun();
  ~BoardRun();
  BoardRun(const BoardRun&) = delete;
  BoardRun& operator=(const BoardRun&) = delete;

  // `vboard ARGUMENTS` on this board: vboard("source none").
  Result vboard(const std::string& arguments) const;

  // vantorig with these arguments in virtual time, stopped after `seconds` of
  // board time (0: no limit).
  Result vantorig(const std::string& arguments, double seconds = 0);

  // The same beside a script (see vboard/host/script.h); what the host saw is
  // host_log() afterwards.
  Result service(const std::string& arguments, const std::string& script, double seconds = 0);

  // Clean trace lines of the last run: all, or those with one of the prefixes;
  // without thread and time.
  std::vector<std::string> trace(const std::vector<std::string>& prefixes = {}) const;
  // The same as "thread line", for reading who did what.
  std::vector<std::string> trace_with_threads() const;
  std::string host_log() const;

  std::string path(const std::string& name) const { return directory_ + "/home/" + name; }
  void put_file(const std::string& name, const std::string& content) const;
  std::string get_file(const std::string& name) const;

 private:
  Result run(const std::string& options, const std::string& arguments, double seconds);
  std::string directory_;
};
