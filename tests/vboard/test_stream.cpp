// The bench's one stream: output, files, memory and device operations in the order
// in which they happen.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "hw/fpga.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;

TEST(Stream, output_stands_at_its_place_among_the_operations) {
  Bench bench;
  bench.follow();
  usleep(1);
  puts("one");
  printf("two\nthree\n");
  usleep(2);
  usleep(3);
  puts("four");
  EXPECT_THAT(bench.stream(), ElementsAre("wait 1", "say one", "say two", "say three", "wait 2",
                                          "wait 3", "say four"));
}

TEST(Stream, text_without_line_end_is_shown_as_far_as_it_goes) {
  Bench bench;
  bench.follow();
  printf("half");
  usleep(1);
  printf(" whole\nrest");
  EXPECT_THAT(bench.stream(), ElementsAre("say... half", "wait 1", "say  whole", "say... rest"));
}

TEST(Stream, file_written_and_closed) {
  Bench bench;
  bench.follow();
  FILE* file = fopen("/home/tovin/hd.ini", "wb");
  fwrite("abc", 1, 3, file);
  usleep(1);
  fclose(file);
  EXPECT_THAT(bench.stream(),
              ElementsAre("file /home/tovin/hd.ini wb", "file /home/tovin/hd.ini <- 3 bytes",
                          "wait 1", "file /home/tovin/hd.ini closed"));
  EXPECT_EQ(bench.get_file("hd.ini"), "abc");
}

TEST(Stream, write_that_fails_writes_nothing) {
  Bench bench;
  bench.follow();
  vboard::seam::fail_call("fwrite", "", 0, 1, ENOSPC);
  FILE* file = fopen("some.txt", "w");
  fwrite("abc", 1, 3, file);
  fclose(file);
  EXPECT_THAT(bench.stream(),
              ElementsAre("file some.txt w", "fwrite  = ENOSPC", "file some.txt closed"));
}

TEST(Stream, file_that_is_none_of_the_boards_does_not_appear) {
  Bench bench;
  bench.follow();
  FILE* file = fopen("/dev/null", "w");
  fwrite("abc", 1, 3, file);
  fclose(file);
  EXPECT_THAT(bench.stream(), IsEmpty());
}

TEST(Stream, changes_stand_before_what_came_behind_them) {
  Bench bench;
  Relaxed<std::int32_t> word{7};
  Relaxed<std::uint8_t> byte{8};
  bench.follow();
  bench.watch("word", word);
  bench.watch("byte", byte);
  puts("one");
  byte = 200;
  word = -1;
  puts("two");
  word = 3;
  usleep(1);
  word = 4;
  EXPECT_THAT(bench.stream(), ElementsAre("say one", "word = -1", "byte = 200", "say two",
                                          "word = 3", "wait 1", "word = 4"));
}

TEST(Stream, output_of_a_shell_command_follows_it) {
  Bench bench;
  bench.follow();
  puts("before");
  EXPECT_EQ(system("echo inside"), 0);
  puts("behind");
  EXPECT_THAT(bench.stream(),
              ElementsAre("say before", "shell echo inside", "say inside", "say behind"));
}

TEST(Stream, trace_and_output_go_on_beside_it) {
  Bench bench;
  puts("earlier");
  usleep(1);
  bench.follow();
  puts("later");
  usleep(2);
  EXPECT_THAT(bench.stream(), ElementsAre("say later", "wait 2"));
  EXPECT_THAT(bench.trace(), ElementsAre("wait 1", "wait 2"));
  EXPECT_EQ(bench.output(), "earlier\nlater\n");
}

TEST(Stream, begins_anew_with_each_bench) {
  {
    Bench bench;
    bench.follow();
    bench.watch("gone", [] { return 1LL; });
    puts("one");
  }
  puts("between");
  Bench bench;
  bench.follow();
  puts("two");
  EXPECT_THAT(bench.stream(), ElementsAre("say two"));
}

TEST(Stream, abandoned_run_shows_what_it_had_done) {
  Bench bench;
  bench.follow();
  EXPECT_FALSE(bench.run_for(100, [] {
    puts("before the wait");
    usleep(1000);
    puts("never");
  }));
  EXPECT_THAT(bench.stream(), ElementsAre("say before the wait", "wait 1000"));
}

}  // namespace
