// The configuration file's syntax and its one lookup operation.
//
// Lines beginning with ';' or '#' are comments, "[name]" opens a section, and
// everything before the first '=' of another line is its key, blanks included.
#include "config/cfg_reader.h"

#include <strings.h>

#include <cstring>

#include "hw/fpga.h"

struct LineReader {
  FILE* file;
  int count = 0;            // lines read by this lookup
  std::size_t length = 0;   // of the last one
  char text[kCfgLineSize];  // the last one
  explicit LineReader(FILE* from) : file(from) {}
};

// Reads the next line without its last character, whatever that is. False at the
// end of the file: a line that runs into the end is dropped with it.
static bool next_line(LineReader& line) {
  const bool read = read_line(line.file, line.text, sizeof line.text) == 1;
  ++line.count;
  if (!read || feof(line.file) != 0) return false;
  line.length = strlen(line.text);
  if (line.length > 0) line.text[--line.length] = '\0';
  return true;
}

static bool is_blank_or_comment(const char* text) {
  return text[0] == '\0' || text[0] == ';' || text[0] == '#';
}

// True for "[section]".
static bool is_header_of(char* text, const char* section) {
  const std::size_t length = strlen(text);
  if (text[0] != '[' || text[length - 1] != ']') return false;
  text[length - 1] = '\0';
  return strcasecmp(text + 1, section) == 0;
}

static bool find_section(LineReader& line, const char* section) {
  while (next_line(line)) {
    if (is_blank_or_comment(line.text)) continue;
    if (is_header_of(line.text, section)) return true;
  }
  return false;
}

// True when everything before the line's first '=' is the key. Most lines are
// told apart by the place of their '='.
static bool is_entry_of(const LineReader& line, const char* key, std::size_t length) {
  return length < line.length && line.text[length] == '=' &&
         strncasecmp(line.text, key, length) == 0 && memchr(line.text, '=', length) == nullptr;
}

// Returns the text behind the key's '=', or null when the key is not there
// before the end of the file or the next section.
static const char* find_value(LineReader& line, const char* key) {
  const std::size_t length = strlen(key);
  while (next_line(line)) {
    if (is_blank_or_comment(line.text)) continue;
    if (line.text[0] == '[') return nullptr;
    if (is_entry_of(line, key, length)) return line.text + length + 1;
  }
  return nullptr;
}

int ReadCfg(FILE* file, const char* section, const char* key, void* out, const char* format,
            long* position_cache) {
  LineReader line(file);
  if (position_cache != nullptr && *position_cache != 0) {
    fseek(file, *position_cache, SEEK_SET);
  } else {
    fseek(file, 0, SEEK_SET);
    if (section != nullptr) {
      if (!find_section(line, section)) return kCfgNoSection;
      if (position_cache != nullptr) *position_cache = ftell(file);
    }
  }

  const char* value = find_value(line, key);
  if (value == nullptr) return kCfgNoKey;
  if (strcmp(format, "line") == 0) {
    strcpy(static_cast<char*>(out), value);
    return kCfgFound;
  }
  return sscanf(value, format, out) == 1 ? kCfgFound : -line.count;
}
