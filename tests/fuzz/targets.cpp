// The table of fuzz targets.
#include "tests/fuzz/targets.h"

namespace fuzz {

constexpr Target kTargets[] = {
    {"hd_ini", hd_ini},       {"command_line", command_line},
    {"host_link", host_link}, {"parsers", parsers},
    {"update", update},
};

const Target* find_target(std::string_view name) {
  for (const Target& one : kTargets)
    if (name == one.name) return &one;
  return nullptr;
}

}  // namespace fuzz
