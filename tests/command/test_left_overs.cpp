// Commands with a board of their own that are ended from outside: nothing of them
// stays in the temporary folder, and none of their processes lives on.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/command/command_case.h"

namespace {

namespace fs = std::filesystem;

const std::string kVboard = BUILD_DIRECTORY "/vboard";

// Something that ends a command, in words of a shell: COMMAND stands for it.
struct End {
  const char* name;
  std::string words;
  int status;
};

// The command has begun when its board has a lock.
const std::string kBegun = "until find $TMPDIR -name lock | grep -q .; do sleep 0.05; done; ";

std::string ended_by(const std::string& signal) {
  return "env --default-signal COMMAND & command=$!; " + kBegun + "kill -" + signal +
         " $command; wait $command";
}

std::vector<End> ends() {
  return {
      {"interrupted", ended_by("INT"), 130},
      {"terminated", ended_by("TERM"), 143},
      {"hung_up", ended_by("HUP"), 129},
      {"by_control_c",
       "{ " + kBegun + "printf '\\003'; until [ -e over ]; do sleep 0.05; done; } | " +
           "{ script -qec 'COMMAND' /dev/null; status=$?; touch over; exit $status; }",
       130},
      {"with_a_closed_pipe", "{ COMMAND; echo $? >status; } | true; exit $(cat status)", 141},
  };
}

struct Case {
  End end;
  const char* command;
};
void PrintTo(const Case& one, std::ostream* out) { *out << one.command << ' ' << one.end.name; }

class VboardLeftOvers : public testing::TestWithParam<Case> {};

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

TEST_P(VboardLeftOvers, are_none) {
  BoardRun board;
  const std::string folder = board.path("temporary");
  const std::string record = board.path("record");
  fs::create_directories(folder);
  ASSERT_EQ(board.vboard("record --virtual --for 1 -o " + record + " -- true").status, 0);
  const bool at_once = GetParam().end.status == 141;
  const std::string command =
      GetParam().command == std::string("demo") ? kVboard + " demo --speed 1"
      : at_once                                 ? kVboard + " replay " + record
                : kVboard + " replay " + record + " -- sh -c \"sleep 300; true " + folder + "\"";
  const Result result = shell("cd " + board.path("") + "; export TMPDIR=" + folder + "; " +
                              replaced(GetParam().end.words, "COMMAND", command));
  EXPECT_EQ(result.status, GetParam().end.status) << result.out << result.err;
  EXPECT_TRUE(fs::is_empty(folder));
  EXPECT_EQ(shell("pgrep -f '[t]rue " + folder + "|bind [^ ]*" + folder + "'").out, "");
}

std::vector<Case> cases() {
  std::vector<Case> all;
  for (const char* command : {"demo", "replay"})
    for (const End& end : ends()) all.push_back({end, command});
  return all;
}

INSTANTIATE_TEST_SUITE_P(of, VboardLeftOvers, testing::ValuesIn(cases()), [](const auto& one) {
  return std::string(one.param.command) + "_" + one.param.end.name;
});

}  // namespace
