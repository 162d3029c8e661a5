// LinkBench: an open host link on a bench board, and the host's end of it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "vboard/testing/bench.h"

inline constexpr char kSilent[] = "SPI: No data for XX seconds...\n";
inline constexpr char kSilentByte[] = "SPI: No data for XX seconds (get_byte_send_byte func)...\n";
inline constexpr char kSelectError[] = "SPI: select error\n";

class LinkBench {
 public:
  LinkBench();
  ~LinkBench();
  LinkBench(const LinkBench&) = delete;
  LinkBench& operator=(const LinkBench&) = delete;

  vboard::Bench bench;
  FILE* link;

  // Bytes of one host transfer: all of them wait in the link at once.
  void gulp(const std::vector<int>& bytes);
  // A host thread that waits `seconds` before each of these bytes and sends each
  // once the board is done with the one before.
  void host_sends(std::vector<int> bytes, double seconds = 0);
  // A host thread that clocks out this many bytes, one poll byte each.
  void host_polls(int count);
  // Runs `body` on a thread of its own. True when it still runs after so many
  // board seconds; it is left there, with all that it holds.
  bool still_runs_after(double seconds, std::function<void()> body);
  // What the board has written to the link since last asked.
  std::vector<int> written();
  // The `skip`th select from now fails once.
  void fail_select(int skip);
};

// How many files the process has open.
int open_files();

// Lets the process open as many files as the machine allows it.
void raise_descriptor_limit();

// Occupies every descriptor that fits into a descriptor set, so that the next
// one opened does not.
class DescriptorsUsedUp {
 public:
  DescriptorsUsedUp();
  ~DescriptorsUsedUp();
  DescriptorsUsedUp(const DescriptorsUsedUp&) = delete;
  DescriptorsUsedUp& operator=(const DescriptorsUsedUp&) = delete;

 private:
  std::vector<int> taken_;
};
