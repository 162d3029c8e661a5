// The interposer's set-up and its queries.
//
// The same overrides serve two settings: preloaded into the unmodified program
// inside a sandbox, where files, shell commands and System V calls are real, and
// linked into a test executable, where they are kept off the machine.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "hw/shared_memory_davinci.h"
#include "vboard/core/board.h"
#include "vboard/models/request_effect.h"

namespace vboard::seam {

struct Settings {
  // A test keeps the board's files in this directory instead of /home/tovin.
  std::string home;
  // System V memory and semaphores of the test's own instead of the machine's.
  bool own_ipc = false;
  // The program's process runs the encoder's side of the board.
  bool encoder_in_process = false;
};

// Identifier of the semaphore set of a test's own. Whole numbers from 0 on are valid.
void set_semaphore_id(int id);

// Starts interposing for this process. Until then every call passes through.
void start(Board& board, const Settings& settings);
void stop();

// The shared block as the program attached it; null before that.
SharedBlock* shared_block();

// Makes `call` fail on a subject (path, command, …) containing `match`: skip the
// first `skip` of them, then fail `times` (-1: for ever) with `error`. With error 0 a
// `read` of a device finds the end.
// Calls: fopen open fclose close read write fread fwrite fgets select ioctl
// system shmget shmat semget semop pthread_create, and those of should_fail.
void fail_call(const std::string& call, const std::string& match, int skip, int times, int error);
void clear_call_faults();

// How a call of the sweep fails: alone, with all calls after it, by moving only a
// part of what it was asked to move; or it claims success, and a write does nothing,
// a read brings another value.
enum class Failing { kOnce, kSticky, kShort, kLost, kLie };

// Counts every call that could fail, from now on, and makes the fail_at-th of them
// fail (0: none), with an error that the call can give.
void start_sweep(long fail_at, Failing how);
void stop_sweep();
std::string sweep_failed_call();  // "call subject" of the first failed one, "" for none

// The calls counted since start_sweep, in order.
struct SweptCall {
  const char* call;
  bool can_be_short;              // a read or write that may move less than asked for
  Effect effect = Effect::kNone;  // of a request on a device
};
const std::vector<SweptCall>& swept_calls();

// True when a call of this name is to fail now; for overrides that live elsewhere.
bool should_fail(const char* call);

// The handles that are open on board devices now, as "path" lines.
std::string open_handles();

}  // namespace vboard::seam
