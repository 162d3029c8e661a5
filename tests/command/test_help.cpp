// The help text, byte for byte, and how often it comes.
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <string>

#include "tests/command/command_case.h"

namespace {

std::string help_text() {
  std::ifstream file(SOURCE_DIRECTORY "/tests/command/help.txt", std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string times(int count, const std::string& text) {
  std::string all;
  for (; count > 0; --count) all += text;
  return all;
}

struct HelpCase {
  const char* name;
  const char* arguments;
  int prints;
};

void PrintTo(const HelpCase& one, std::ostream* out) { *out << one.arguments; }

class Help : public testing::TestWithParam<HelpCase> {};

TEST_P(Help, is_printed_once_a_pass) {
  BoardRun board;
  const Result result = board.vantorig(GetParam().arguments);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, times(GetParam().prints, help_text()));
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(board.trace().empty());
}

// "-ts" passes over two arguments, and over the passes that they would have been.
INSTANTIATE_TEST_SUITE_P(counts, Help,
                         testing::Values(HelpCase{"alone", "-help", 1},
                                         HelpCase{"one_argument", "-help x", 2},
                                         HelpCase{"two_arguments", "-help x y", 3},
                                         HelpCase{"twice", "-help -help", 2},
                                         HelpCase{"second_position", "x -help", 0},
                                         HelpCase{"before_ts", "-help -ts a b", 2},
                                         HelpCase{"before_ts_and_one_more", "-help -ts a b c", 3},
                                         HelpCase{"before_ts_at_the_end", "-help -ts", 2}),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(HelpText, has_37_lines_between_rules) {
  const Lines lines = lines_of(help_text());
  ASSERT_EQ(lines.size(), 37u);
  EXPECT_EQ(lines.front(), std::string(58, '-'));
  EXPECT_EQ(lines.back(), std::string(58, '-'));
}

TEST(HelpText, comes_before_a_command_of_the_same_line) {
  BoardRun board;
  const Result result = board.vantorig("-help -rdreg");
  EXPECT_EQ(result.out, times(2, help_text()) + "addr 0x0: 0x117\n");
}

}  // namespace
