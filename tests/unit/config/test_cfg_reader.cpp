// The reader of "key=value" files: syntax, sections, results.
#include "config/cfg_reader.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

// A file with this content.
class File {
 public:
  explicit File(const std::string& text) : stream_(tmpfile()) {
    fwrite(text.data(), 1, text.size(), stream_);
    rewind(stream_);
  }
  ~File() { fclose(stream_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  operator FILE*() const { return stream_; }

 private:
  FILE* stream_;
};

constexpr std::int32_t kUntouched = -777;

// ---- one number without a section ---------------------------------------------------

struct Lookup {
  const char* name;
  std::string text;
  int result;
  std::int32_t value;  // kUntouched when nothing is stored
};

// The key looked for is "key".
const std::vector<Lookup>& lookups() {
  static const std::vector<Lookup> all = {
      {"plain_entry", "key=5\n", 0, 5},
      {"negative_value", "key=-5\n", 0, -5},
      {"key_in_capitals", "KEY=5\n", 0, 5},
      {"blank_before_the_equals_sign_belongs_to_the_key", "key =5\n", 2, kUntouched},
      {"blank_before_the_key_belongs_to_it", " key=5\n", 2, kUntouched},
      {"blank_before_the_value_is_skipped", "key= 5\n", 0, 5},
      {"text_behind_the_number_is_ignored", "key=5 ; five\n", 0, 5},
      {"carriage_return_behind_the_number_is_ignored", "key=5\r\n", 0, 5},
      {"longer_key_is_another_key", "keys=5\n", 2, kUntouched},
      {"shorter_key_is_another_key", "ke=5\n", 2, kUntouched},
      {"first_equals_sign_ends_the_key", "key=5=6\n", 0, 5},
      {"value_of_letters_gives_minus_its_line", "key=abc\n", -1, kUntouched},
      {"value_missing_gives_minus_its_line", "a=1\n\n;c\nkey=\n", -4, kUntouched},
      {"bad_value_counts_every_line_read", "; one\n# two\nthree\n\na=5\nkey=x\n", -6, kUntouched},
      {"first_of_two_wins", "key=5\nkey=6\n", 0, 5},
      {"first_of_two_wins_though_it_is_bad", "key=x\nkey=6\n", -1, kUntouched},
      {"absent_key", "a=1\nb=2\n", 2, kUntouched},
      {"empty_file", "", 2, kUntouched},
      {"semicolon_comment", ";key=4\nkey=5\n", 0, 5},
      {"hash_comment", "#key=4\nkey=5\n", 0, 5},
      {"comment_sign_behind_a_blank_is_no_comment", " ;key=4\nkey=5\n", 0, 5},
      {"empty_line_is_skipped", "a=1\n\nkey=5\n", 0, 5},
      {"line_without_equals_sign_is_skipped", "key\nkey=5\n", 0, 5},
      {"section_header_hides_what_follows", "[a]\nkey=5\n", 2, kUntouched},
      {"section_header_behind_the_key_does_not_matter", "key=5\n[a]\n", 0, 5},
      {"open_bracket_alone_ends_the_search", "[\nkey=5\n", 2, kUntouched},
      {"unfinished_header_ends_the_search", "[a\nkey=5\n", 2, kUntouched},
      {"last_line_without_line_end_is_not_seen", "a=1\nkey=5", 2, kUntouched},
      {"last_line_with_line_end_is_seen", "a=1\nkey=5\n", 0, 5},
      {"line_beginning_with_a_zero_byte_is_empty", std::string("\0key=4\n", 7) + "key=5\n", 0, 5},
  };
  return all;
}

class ReadCfgNumber : public testing::TestWithParam<Lookup> {};

TEST_P(ReadCfgNumber, gives) {
  const Lookup& one = GetParam();
  const File file(one.text);
  std::int32_t value = kUntouched;
  EXPECT_EQ(ReadCfg(file, nullptr, "key", &value, "%d", nullptr), one.result);
  EXPECT_EQ(value, one.value);
}

INSTANTIATE_TEST_SUITE_P(ReadCfg, ReadCfgNumber, testing::ValuesIn(lookups()),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(ReadCfg, key_asked_for_in_capitals_matches) {
  const File file("mpgVidRes=3\n");
  std::int32_t value = 0;
  EXPECT_EQ(ReadCfg(file, nullptr, "MPGVIDRES", &value, "%d", nullptr), 0);
  EXPECT_EQ(value, 3);
}

TEST(ReadCfg, key_with_an_equals_sign_is_on_no_line) {
  const File file("a=b=5\na=6\n");
  std::int32_t value = kUntouched;
  EXPECT_EQ(ReadCfg(file, nullptr, "a=b", &value, "%d", nullptr), 2);
  EXPECT_EQ(value, kUntouched);
}

TEST(ReadCfg, every_lookup_starts_at_the_top) {
  const File file("a=1\nb=2\n");
  std::int32_t value = 0;
  EXPECT_EQ(ReadCfg(file, nullptr, "b", &value, "%d", nullptr), 0);
  EXPECT_EQ(ReadCfg(file, nullptr, "a", &value, "%d", nullptr), 0);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(ReadCfg(file, nullptr, "c", &value, "%d", nullptr), 2);
  EXPECT_EQ(ReadCfg(file, nullptr, "b", &value, "%d", nullptr), 0);
  EXPECT_EQ(value, 2);
}

TEST(ReadCfg, format_is_the_callers) {
  const File file("key=1f\n");
  unsigned value = 0;
  EXPECT_EQ(ReadCfg(file, nullptr, "key", &value, "%x", nullptr), 0);
  EXPECT_EQ(value, 0x1Fu);
}

TEST(ReadCfg, read_error_counts_as_the_end) {
  FILE* directory = fopen("/", "r");
  ASSERT_NE(directory, nullptr);
  std::int32_t value = kUntouched;
  EXPECT_EQ(ReadCfg(directory, nullptr, "key", &value, "%d", nullptr), 2);
  EXPECT_EQ(ReadCfg(directory, "section", "key", &value, "%d", nullptr), 1);
  EXPECT_EQ(value, kUntouched);
  fclose(directory);
}

// ---- raw text -------------------------------------------------------------------------

std::string raw(const std::string& text, const char* key = "key") {
  const File file(text);
  char value[kCfgLineSize] = "untouched";
  const int result = ReadCfg(file, nullptr, key, value, "line", nullptr);
  return result == 0 ? value : "result " + std::to_string(result);
}

TEST(ReadCfgLine, copies_the_text_as_it_stands) {
  EXPECT_EQ(raw("key= a b ; c = d \n"), " a b ; c = d ");
  EXPECT_EQ(raw("key=\n"), "");
  EXPECT_EQ(raw("key=5\r\n"), "5\r");
  EXPECT_EQ(raw("other=5\n"), "result 2");
}

// "key=" and values that fill exactly one read of 4095 characters.
struct FullRead {
  std::string value = std::string(4091, 'v');
  std::string line = "key=";
  FullRead() { line += value; }
};

std::string filled(std::size_t size, const char* tail) {
  std::string text(size, 'x');
  text.append(tail);
  return text;
}

// A longer line is read in pieces, and each piece loses its last character.
TEST(ReadCfgLine, long_line_is_read_in_pieces) {
  FullRead full;
  full.line.append("tail\n");
  EXPECT_EQ(raw(full.line), full.value.substr(1));
}

TEST(ReadCfgLine, second_piece_of_a_long_line_is_a_line) {
  EXPECT_EQ(raw(filled(4095, "key=7\n")), "7");
  EXPECT_EQ(raw(filled(4094, "key=7\n")), "result 2");
}

// A read that is full stops before it meets the end of the file.
TEST(ReadCfgLine, piece_that_ends_with_the_file_is_seen_when_full) {
  FullRead full;
  EXPECT_EQ(raw(full.line), full.value.substr(1));
  full.line.pop_back();
  EXPECT_EQ(raw(full.line), "result 2");
}

// ---- sections --------------------------------------------------------------------------

constexpr char kSections[] =
    "key=1\n"      // 1
    "[first]\n"    // 2
    "key=2\n"      // 3
    "; note\n"     // 4
    "[Second]\n"   // 5
    "other=4\n"    // 6
    "key=bad\n"    // 7
    "[third] \n"   // 8: a blank behind the bracket, so no header for a search
    "[fourth]\n";  // 9

TEST(ReadCfgSection, key_of_the_section_is_found) {
  const File file(kSections);
  std::int32_t value = 0;
  EXPECT_EQ(ReadCfg(file, "first", "key", &value, "%d", nullptr), 0);
  EXPECT_EQ(value, 2);
}

TEST(ReadCfgSection, name_ignores_letter_case) {
  const File file(kSections);
  std::int32_t value = 0;
  EXPECT_EQ(ReadCfg(file, "SECOND", "other", &value, "%d", nullptr), 0);
  EXPECT_EQ(value, 4);
}

TEST(ReadCfgSection, next_header_ends_the_section) {
  const File file(kSections);
  std::int32_t value = kUntouched;
  EXPECT_EQ(ReadCfg(file, "first", "other", &value, "%d", nullptr), 2);
  EXPECT_EQ(ReadCfg(file, "fourth", "key", &value, "%d", nullptr), 2);
  EXPECT_EQ(value, kUntouched);
}

TEST(ReadCfgSection, bad_value_counts_the_lines_of_both_searches) {
  const File file(kSections);
  std::int32_t value = kUntouched;
  EXPECT_EQ(ReadCfg(file, "second", "key", &value, "%d", nullptr), -7);
}

TEST(ReadCfgSection, absent_section_gives_1) {
  const File file(kSections);
  std::int32_t value = kUntouched;
  long cache = 0;
  EXPECT_EQ(ReadCfg(file, "fifth", "key", &value, "%d", &cache), 1);
  EXPECT_EQ(ReadCfg(file, "third", "key", &value, "%d", &cache), 1);
  EXPECT_EQ(ReadCfg(file, "key=1", "key", &value, "%d", &cache), 1);
  EXPECT_EQ(cache, 0);
  EXPECT_EQ(value, kUntouched);
}

TEST(ReadCfgSection, header_without_line_end_is_not_seen) {
  const File file("[a]");
  std::int32_t value = 0;
  EXPECT_EQ(ReadCfg(file, "a", "key", &value, "%d", nullptr), 1);
}

TEST(ReadCfgSection, header_of_a_bracket_alone_is_none) {
  const File file("[\n]\n[]\nkey=3\n");
  std::int32_t value = 0;
  EXPECT_EQ(ReadCfg(file, "", "key", &value, "%d", nullptr), 0);
  EXPECT_EQ(value, 3);
}

TEST(ReadCfgCache, section_found_stores_the_offset_behind_its_header) {
  const File file(kSections);
  std::int32_t value = 0;
  long cache = 0;
  EXPECT_EQ(ReadCfg(file, "first", "key", &value, "%d", &cache), 0);
  EXPECT_EQ(cache, 14);  // "key=1\n" and "[first]\n"
}

TEST(ReadCfgCache, offset_kept_skips_the_section_search_and_its_lines) {
  const File file(kSections);
  std::int32_t value = 0;
  long cache = 0;
  EXPECT_EQ(ReadCfg(file, "second", "other", &value, "%d", &cache), 0);
  // Two lines from the offset on; the section's name no longer matters.
  EXPECT_EQ(ReadCfg(file, "nowhere", "key", &value, "%d", &cache), -2);
  EXPECT_EQ(ReadCfg(file, nullptr, "other", &value, "%d", &cache), 0);
  EXPECT_EQ(value, 4);
}

TEST(ReadCfgCache, without_section_the_top_is_searched_and_nothing_kept) {
  const File file(kSections);
  std::int32_t value = 0;
  long cache = 0;
  EXPECT_EQ(ReadCfg(file, nullptr, "key", &value, "%d", &cache), 0);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(cache, 0);
}

TEST(ReadCfgCache, section_found_without_the_key_is_kept_all_the_same) {
  const File file(kSections);
  std::int32_t value = 0;
  long cache = 0;
  EXPECT_EQ(ReadCfg(file, "first", "absent", &value, "%d", &cache), 2);
  EXPECT_EQ(cache, 14);
}

}  // namespace
