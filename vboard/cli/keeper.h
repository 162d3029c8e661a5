// Keeps together what belongs together: processes with the one that started them,
// temporary directories with the work they were made for.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace vboard {

// The exit status of a process as a shell shows it, from what wait gave.
int shell_status(int wait_status);

// From now on a process whose parent has died becomes a child of this one, if this
// one is above it.
void adopt_orphans();

// Kills every child of this process, then theirs, which it has adopted, and waits
// until all are gone. The processes of a sandbox are gone with its first one.
void end_descendants();

// While one lives, this process outlives the signals that end its program: what
// another process sends it is passed on to the program, from its start on. A
// terminal sends its own to the program as well; what was ignored stays ignored.
class OutliveSignals {
 public:
  OutliveSignals();
  ~OutliveSignals();
  OutliveSignals(const OutliveSignals&) = delete;
  OutliveSignals& operator=(const OutliveSignals&) = delete;
};

// Starts a program that gets no signal of this process's before it stands on its
// own feet, and dies with it. Its standard output and error become output_fd unless
// that is negative; passed_fds stay open in it. Returns its process, negative with
// errno set when there is none.
pid_t start_program(const std::vector<std::string>& words, int output_fd,
                    const std::vector<int>& passed_fds = {});

// Tells that the program is gone to which signals were passed on.
void program_ended();

// Does `work` in a process of its own and gives back its exit status. Whatever ends
// that process, none of its descendants lives on, and `after` is called with its
// status as a shell shows it. Signals go to that process; when one ended it, so does
// it this one.
int kept(const std::function<int()>& work, const std::function<void(int status)>& after = {});

// A directory in the temporary folder that goes with the object.
class Scratch {
 public:
  // `name` begins the directory's. Throws when there is no room for it.
  explicit Scratch(const std::string& name);
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::filesystem::path path() const { return path_; }
  // The directory stays.
  void keep() { path_.clear(); }
  void remove();

 private:
  std::filesystem::path path_;
};

}  // namespace vboard
