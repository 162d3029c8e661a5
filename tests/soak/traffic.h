// The result of a run: a digest of its trace and output, and counts of both.
#pragma once

#include <cstddef>
#include <cstdint>

class Digest {
 public:
  void add(const char* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
      value_ = (value_ ^ static_cast<unsigned char>(data[i])) * 1099511628211u;
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 14695981039346656037u;
};

// Counts taken from the trace on its way into the digest.
struct Traffic {
  Digest digest;
  long line_actions = 0;
  long set_ups = 0;  // of the TVP7002
  long links = 0;    // opened
  long latches = 0;
};
extern Traffic traffic;

// A line of the trace, without its time.
void take_trace(const char* clean);
