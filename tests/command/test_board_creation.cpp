// Fresh boards: made by many at once, and on a disk that is full.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "tests/command/command_case.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

const std::string kVboard = BUILD_DIRECTORY "/vboard";

// Starts them together, waits for all and adds their statuses up.
std::string together(int count, const std::string& command) {
  return "all=; for i in $(seq " + std::to_string(count) + "); do " + command +
         " & all=\"$all $!\"; done; failed=0; for one in $all; do wait $one || "
         "failed=$((failed + 1)); done; exit $failed";
}

void expect_whole(const fs::path& board) {
  EXPECT_EQ(fs::file_size(board / "home/version.ini"), strlen("1.12.3\n"));
  EXPECT_EQ(fs::file_size(board / "home/MELK_spi.bin"), 60000u);
  EXPECT_EQ(fs::file_size(board / "home/update.sh"), fs::file_size(BUILD_DIRECTORY "/update.sh"));
  EXPECT_TRUE(fs::is_symlink(board / "home/encode"));
  EXPECT_FALSE(fs::exists(board / "board.state.new"));
}

// No command sees a half-made board.
TEST(VboardCreation, is_done_once_when_many_begin_at_once) {
  BoardRun place;
  for (int round = 0; round < 15; ++round) {
    const std::string board = place.path("fresh" + std::to_string(round));
    const Result world = shell(together(8, kVboard + " --board " + board + " source none"));
    EXPECT_EQ(world.status, 0) << world.err;
    EXPECT_EQ(world.err, "");
    expect_whole(board);
  }
}

TEST(VboardCreation, lets_one_of_many_programs_run) {
  BoardRun place;
  for (int round = 0; round < 6; ++round) {
    const std::string board = place.path("fresh" + std::to_string(round));
    const Result run = shell(together(
        5, kVboard + " --board " + board + " run -- sh -c 'sleep 0.2; wc -c MELK_spi.bin'"));
    EXPECT_THAT(run.out, HasSubstr("60000 MELK_spi.bin\n"));
    EXPECT_THAT(run.err, Not(HasSubstr("version")));
    for (const std::string& line : lines_of(run.err))
      EXPECT_THAT(line, HasSubstr("a program runs on this board already"));
  }
}

// In a file system of 400 KB of which only so much is left. The state takes 250 KB,
// the firmware 60.
class VboardCreationOnAFullDisk : public testing::TestWithParam<int> {};

TEST_P(VboardCreationOnAFullDisk, is_told_and_done_when_there_is_room) {
  BoardRun place;
  const std::string disk = place.path("disk");
  fs::create_directories(disk);
  const std::string vboard = kVboard + " --board " + disk + "/board run --virtual -- true";
  const std::string filled = std::to_string(400 - GetParam());
  const Result result =
      shell("bwrap --dev-bind / / --size 409600 --tmpfs " + disk + " sh -c 'head -c " + filled +
            "k /dev/zero >" + disk + "/filled; " + vboard + "; echo $?; find " + disk +
            " -name *.new; rm " + disk + "/filled; " + vboard + "; echo $?; wc -c <" + disk +
            "/board/home/MELK_spi.bin'");
  EXPECT_EQ(result.out, "125\n0\n60000\n") << result.err;
  EXPECT_THAT(result.err, testing::MatchesRegex("vboard: cannot create " + disk +
                                                "/board.*: No space left on device\n"));
}

INSTANTIATE_TEST_SUITE_P(with_kilobytes_left, VboardCreationOnAFullDisk,
                         testing::Values(8, 40, 120, 240));

}  // namespace
