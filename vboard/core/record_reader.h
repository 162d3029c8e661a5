// Reading traces and records; vboard/core/record.h describes their lines.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vboard/core/record.h"

namespace vboard {

enum class RecordKind { kOperation, kSays, kHost, kWorld, kBoard };

struct RecordLine {
  RecordKind kind = RecordKind::kOperation;
  unsigned long long sequence = 0;
  std::int64_t time_us = 0;
  std::string who;
  std::string what;  // clean; of kSays what was said
};

// What stands behind "# " in a line of a record's head.
using RecordHead = std::vector<std::string>;

// The lines of a record in the order of their sequence. `problem` says why it is
// none, or stays empty.
std::vector<RecordLine> read_record(const char* file, std::string* problem,
                                    RecordHead* head = nullptr);

}  // namespace vboard
