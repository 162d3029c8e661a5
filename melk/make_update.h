// Update packages: the archive that UPDATE_VERSION and NEW_UPDATE_VERSION carry,
// made from a directory of files for the board.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "melk/protocol.h"

namespace melk {

struct UpdatePackage {
  std::vector<std::string> files;  // names on the board, in the order of installation
  Bytes archive;
};

// Packs the files of `directory`, among them the program `vantorig`, with the
// script that checks and installs them. The same files give the same bytes. Empty
// with a text in `problem` when the board could not take or install the package.
std::optional<UpdatePackage> make_update(const std::string& directory, std::string* problem);

}  // namespace melk
