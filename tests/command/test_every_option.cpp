// Every option against every device that may be missing, and against operands of
// every wrong kind. What each prints and does in detail is in test_options.cpp;
// here no pair of option and condition is left out.
#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/command/command_case.h"

namespace {

const Lines kDevices = {"fpga", "fpga2", "spislave", "i2c", "video0", "gpio"};

struct OptionRow {
  std::string option;
  std::set<std::string> devices;  // it fails without each of these
  double seconds = 0;             // of board time, for those that last long or never end
  bool takes_numbers = true;      // false: its words count, or how many there are
  bool quiet = true;              // false: tools of the shell miss their files
};

std::string name_of(const testing::TestParamInfo<OptionRow>& info) {
  std::string name = info.param.option;
  name.erase(0, 1);
  if (name.back() == '=') name.pop_back();
  return name;
}
void PrintTo(const OptionRow& one, std::ostream* out) { *out << one.option; }

std::vector<OptionRow> agreed_options() {
  std::ifstream file(SOURCE_DIRECTORY "/tests/contract/options.json");
  std::vector<OptionRow> rows;
  for (const nlohmann::json& row : nlohmann::json::parse(file))
    rows.push_back({row.at("text"), row.at("devices"), row.value("seconds", 0.0),
                    row.value("numbers", true), row.value("quiet", true)});
  return rows;
}

// What an option printed, how it ended, and what it did to the devices.
struct Seen {
  int status;
  std::string out;
  Lines trace;
  bool operator==(const Seen&) const = default;
};
void PrintTo(const Seen& one, std::ostream* out) {
  *out << "status " << one.status << "\n" << one.out;
  for (std::size_t i = 0; i < one.trace.size() && i < 20; ++i) *out << one.trace[i] << "\n";
}

Seen run(const OptionRow& row, const std::string& operands, const std::string& world = {}) {
  BoardRun board;
  if (!world.empty()) {
    EXPECT_EQ(board.vboard(world).status, 0) << world;
  }
  const Result result = board.vantorig(row.option + operands, row.seconds);
  EXPECT_EQ(result.err.empty(), row.quiet) << row.option << operands << ", " << world;
  return {result.status, result.out, board.trace()};
}

class EveryOption : public testing::TestWithParam<OptionRow> {};

// Exit status 0 whatever is missing, but for the report of the decoder.
TEST_P(EveryOption, fails_without_its_devices_and_minds_no_other) {
  const OptionRow& row = GetParam();
  const Seen whole = run(row, "");
  EXPECT_EQ(whole.status, 0);
  for (const std::string& device : kDevices) {
    const Seen without = run(row, "", "fault missing " + device);
    if (row.devices.count(device) == 0) {
      EXPECT_EQ(without, whole) << "without " << device;
      continue;
    }
    EXPECT_NE(without, whole) << "without " << device;
    EXPECT_EQ(without.status, row.option == "-5150" ? 255 : 0) << device;
    EXPECT_THAT(without.out,
                testing::AnyOf(testing::HasSubstr("Cannot"), testing::HasSubstr("i2c error"),
                               testing::HasSubstr("Y prog4192")))
        << "without " << device;
  }
}

TEST_P(EveryOption, takes_what_is_no_number_as_0) {
  const OptionRow& row = GetParam();
  if (!row.takes_numbers) return;
  const Seen zeros = run(row, " 0 0 0 0");
  EXPECT_EQ(zeros.status, 0);
  for (const char* operands :
       {"", " zero", " '' '' '' ''", " 0x 0x 0x 0x", " - + . x", " 00 0x0 -0 +0", " 0 0 0 0 9 9 9"})
    EXPECT_EQ(run(row, operands), zeros) << operands;
}

INSTANTIATE_TEST_SUITE_P(rows, EveryOption, testing::ValuesIn(agreed_options()), name_of);

}  // namespace
