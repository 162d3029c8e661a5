// Prints every table of the programs as JSON, for what documents and checks are
// made from: options, host commands of both sides, words of melk, configuration
// keys, registers, fields of the shared block, restart causes, operations of the
// world, chips.
#include <cxxabi.h>
#include <elf.h>
#include <link.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "config/hd_params.h"
#include "hostlink/dispatcher.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "melk/commands.h"
#include "melk/protocol.h"
#include "supervision/restart_causes.h"
#include "vboard/core/board.h"
#include "vboard/world/world.h"

namespace {

using Json = nlohmann::ordered_json;

// ---- names of functions ----------------------------------------------------------

// "SetGopSize" of "SetGopSize(int const*, int)".
std::string bare_name(const char* symbol) {
  int status = 0;
  char* whole = abi::__cxa_demangle(symbol, nullptr, nullptr, &status);
  std::string name = status == 0 ? whole : symbol;
  free(whole);
  return name.substr(0, name.find('('));
}

// Of every function of this program, by its address: static ones too.
std::map<std::uintptr_t, std::string> read_names() {
  std::ifstream file("/proc/self/exe", std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(bytes.data());
  const auto* sections = reinterpret_cast<const ElfW(Shdr)*>(bytes.data() + header->e_shoff);
  std::map<std::uintptr_t, std::string> names;
  for (int i = 0; i < header->e_shnum; ++i) {
    if (sections[i].sh_type != SHT_SYMTAB) continue;
    const auto* first = reinterpret_cast<const ElfW(Sym)*>(bytes.data() + sections[i].sh_offset);
    const char* texts = bytes.data() + sections[sections[i].sh_link].sh_offset;
    for (std::size_t k = 0; k < sections[i].sh_size / sizeof *first; ++k)
      if (ELF64_ST_TYPE(first[k].st_info) == STT_FUNC)
        names[first[k].st_value] = bare_name(texts + first[k].st_name);
  }
  return names;
}

// "" for null. The program is linked to a fixed address.
template <class Result, class... Arguments>
std::string name_of(Result (*function)(Arguments...)) {
  static const std::map<std::uintptr_t, std::string> names = read_names();
  if (function == nullptr) return "";
  const auto found = names.find(reinterpret_cast<std::uintptr_t>(function));
  return found == names.end() ? "?" : found->second;
}

// ---- the product -----------------------------------------------------------------

Json option_rows() {
  const auto act = [](Act one) {
    return one == Act::kAtOnce ? "at once" : one == Act::kGoOn ? "go on" : "end";
  };
  Json rows = Json::array();
  for (const Option& one : options())
    rows.push_back({{"text", one.text},
                    {"look", one.look == Look::kFirst ? "first" : "each"},
                    {"act", act(one.act)},
                    {"skip", one.skip}});
  return rows;
}

Json host_command_rows() {
  Json rows = Json::array();
  for (const HostCommand& one : host_commands())
    rows.push_back({{"code", one.code},
                    {"name", one.name},
                    {"follows", one.follows},
                    {"handler", name_of(one.handler)}});
  return rows;
}

Json key_rows() {
  Json rows = Json::array();
  for (const HdParam* one = hd_params; one->key != nullptr; ++one)
    rows.push_back({{"key", one->key},
                    {"format", one->format},
                    {"encoder", name_of(one->encoder)},
                    {"video_input", name_of(one->video_input)},
                    {"audio_input", name_of(one->audio_input)},
                    {"fpga", name_of(one->fpga)}});
  return rows;
}

const char* access_name(RegAccess access) {
  if (access == RegAccess::kLatch) return "latch";
  if (access == RegAccess::kReadWrite) return "RW";
  return access == RegAccess::kRead ? "R" : "W";
}

Json register_rows() {
  Json rows = Json::array();
  for (const FpgaRegister& one : kFpgaRegisters)
    rows.push_back({{"address", one.address},
                    {"name", one.name},
                    {"access", access_name(one.access)},
                    {"meaning", one.meaning}});
  return rows;
}

Json field_rows() {
  Json rows = Json::array();
  for (const SharedFieldRow& one : kSharedFields)
    rows.push_back({{"name", one.name},
                    {"offset", one.offset},
                    {"size", one.size},
                    {"width", one.width},
                    {"meaning", one.meaning}});
  return rows;
}

Json cause_rows() {
  Json rows = Json::array();
  for (const RestartCause& one : kRestartCauses)
    rows.push_back({{"code", one.code}, {"message", one.message}});
  return rows;
}

// ---- the host's side -------------------------------------------------------------

Json melk_command_rows() {
  Json rows = Json::array();
  for (const melk::HostCommand& one : melk::host_commands())
    rows.push_back({{"code", static_cast<int>(one.code)},
                    {"name", one.name},
                    {"word", one.word},
                    {"out", one.out},
                    {"back", one.back},
                    {"help", one.help}});
  return rows;
}

Json melk_word_rows() {
  Json rows = Json::array();
  for (const melk::SubCommand& one : melk::sub_commands()) {
    Json takes = Json::array();
    for (const melk::Argument& argument : one.takes) takes.push_back(argument.name);
    rows.push_back({{"word", one.word},
                    {"group", one.group},
                    {"takes", takes},
                    {"example", one.example},
                    {"help", melk::help_of(one)}});
  }
  return rows;
}

Json melk_cause_rows() {
  Json rows = Json::array();
  for (const melk::RestartCause& one : melk::restart_causes())
    rows.push_back({{"code", one.code}, {"text", one.text}});
  return rows;
}

// ---- the virtual board -----------------------------------------------------------

template <class Rows>
Json operation_rows(const Rows& table) {
  Json rows = Json::array();
  for (const auto& one : table)
    rows.push_back({{"name", one.name}, {"usage", one.usage}, {"meaning", one.meaning}});
  return rows;
}

Json standard_rows() {
  Json rows = Json::array();
  for (const vboard::VideoStandard& one : vboard::world_standards())
    rows.push_back({{"name", one.name}, {"bit", one.bit}, {"fps_milli", one.fps_milli}});
  return rows;
}

Json chip_rows() {
  Json rows = Json::array();
#define VBOARD_CHIP_ROW(chip_address, chip_name, model) \
  rows.push_back({{"address", chip_address}, {"name", chip_name}});
  VBOARD_CHIPS(VBOARD_CHIP_ROW)
#undef VBOARD_CHIP_ROW
  return rows;
}

}  // namespace

int main() {
  const Json all = {{"options", option_rows()},
                    {"host_commands", host_command_rows()},
                    {"keys", key_rows()},
                    {"registers", register_rows()},
                    {"shared_block", field_rows()},
                    {"restart_causes", cause_rows()},
                    {"melk_commands", melk_command_rows()},
                    {"melk_words", melk_word_rows()},
                    {"melk_causes", melk_cause_rows()},
                    {"world_commands", operation_rows(vboard::world_commands())},
                    {"faults", operation_rows(vboard::world_faults())},
                    {"standards", standard_rows()},
                    {"chips", chip_rows()}};
  return puts(all.dump(1).c_str()) < 0 ? 1 : 0;
}
