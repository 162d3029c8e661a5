// What is measured: pairs of a job of the product and its peer, by name.
//
// The peer of a job makes the same system calls, or reads the same file with
// another reader, in the least code possible.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

struct Workload {
  std::string name;              // "apply/product"
  std::function<void()> run;     // measured
  std::function<void()> settle;  // after each run, not measured; may be empty
};

// config/ applied whole: "apply/product", "apply/calls", "apply/calls+messages".
std::vector<Workload> apply_workloads();

// An upload to the host and a bitstream load of this many bytes: "upload/product",
// "upload/loop", "bitstream/product", "bitstream/loop".
std::vector<Workload> transfer_workloads(int bytes);

// The keys of the table looked up in an hd.ini of this many lines:
// "lookup-40/product" and the readers beside it. Ends the program when the
// readers do not agree.
std::vector<Workload> lookup_workloads(int lines);

// Ends the program with a message.
[[noreturn]] void give_up(const std::string& why);

}  // namespace bench
