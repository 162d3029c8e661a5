// A board directory: where a board lives, and how a fresh one is created.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "vboard/core/board.h"

namespace vboard {

// What a board directory holds: board.state, and home/ which the program sees
// as /home/tovin.
class BoardDirectory {
 public:
  explicit BoardDirectory(const std::filesystem::path& directory);

  std::filesystem::path path() const { return directory_; }
  std::filesystem::path state_file() const { return directory_ / "board.state"; }
  std::filesystem::path home() const { return directory_ / "home"; }

  // Makes a fresh board where there is none yet: home with its furnishings, then
  // the state. One process does, others wait for it; the board is there whole or,
  // on a full disk, not at all. Returns false with a text in `problem`.
  bool prepare(std::string* problem) const;

  // The mapped state; null with a text in `problem`.
  Board* map(std::string* problem) const;

 private:
  bool furnish(std::string* problem) const;

  std::filesystem::path directory_;
};

// A file that a fresh board has in its home.
struct Furnishing {
  std::string name;
  std::string content;
  bool executable;
};

// version.ini, DSP firmware, the resident update script. Empty with a text in
// `problem` when the script does not lie beside this program.
std::vector<Furnishing> furnishings(std::string* problem);

// The bytes of a file; "" when it cannot be read.
std::string read_file(const std::filesystem::path& path);

// Where the program's own helpers lie (preload library, encode, vantorig): beside this
// executable, or in lib/vboard of an installation. "" when missing.
std::filesystem::path helper(const std::string& name);

}  // namespace vboard
