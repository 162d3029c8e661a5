// The keys of the configuration table looked up in an hd.ini, by the product's
// reader and by two libraries.
//
// "once" reads the file a single time for all keys, as those libraries are meant
// to be used; "each" reads it again for every key, as the product must.
#include <ini.h>
#include <iniparser.h>
#include <strings.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <set>

#include "config/cfg_reader.h"
#include "config/hd_params.h"
#include "tests/bench/seam.h"
#include "tests/bench/workload.h"

namespace bench {

namespace {

using Values = std::vector<int>;  // by row of the table

constexpr int kMissing = -1;

// A file of so many lines: every key of the table once, spread evenly, between
// comments and entries that are never looked up.
std::string write_ini(int lines) {
  std::vector<std::string> keys;
  std::set<std::string> seen;
  for (const HdParam* row = hd_params; row->key != nullptr; ++row)
    if (seen.insert(row->key).second) keys.emplace_back(row->key);
  std::string path = home() + "/lookup-" + std::to_string(lines) + ".ini";
  std::ofstream file(path);
  const int count = static_cast<int>(keys.size());
  int next = 0;
  for (int line = 0; line < lines; ++line) {
    if (next < count && line * count / lines >= next) {
      file << keys[static_cast<std::size_t>(next)] << '=' << 100 + next << '\n';
      ++next;
    } else if (line % 2 == 0) {
      file << "; what stands here is for people\n";
    } else {
      file << "otherSetting" << line << '=' << line << '\n';
    }
  }
  if (next != count) give_up("not every key found room");
  return path;
}

Values fresh_values() {
  std::size_t rows = 0;
  while (hd_params[rows].key != nullptr) ++rows;
  return Values(rows, kMissing);
}

Values by_product(const std::string& path) {
  Values values = fresh_values();
  FILE* file = fopen(path.c_str(), "r");
  for (std::size_t i = 0; hd_params[i].key != nullptr; ++i)
    ReadCfg(file, nullptr, hd_params[i].key, &values[i], hd_params[i].format, nullptr);
  fclose(file);
  return values;
}

int take_all(void* user, const char*, const char* name, const char* value) {
  Values& values = *static_cast<Values*>(user);
  for (std::size_t i = 0; hd_params[i].key != nullptr; ++i)
    if (strcasecmp(name, hd_params[i].key) == 0) values[i] = atoi(value);
  return 1;
}

Values by_inih_once(const std::string& path) {
  Values values = fresh_values();
  FILE* file = fopen(path.c_str(), "r");
  ini_parse_file(file, take_all, &values);
  fclose(file);
  return values;
}

struct Wanted {
  const char* key;
  int* value;
};
int take_one(void* user, const char*, const char* name, const char* value) {
  const Wanted& wanted = *static_cast<Wanted*>(user);
  if (strcasecmp(name, wanted.key) == 0) *wanted.value = atoi(value);
  return 1;
}

Values by_inih_each(const std::string& path) {
  Values values = fresh_values();
  FILE* file = fopen(path.c_str(), "r");
  for (std::size_t i = 0; hd_params[i].key != nullptr; ++i) {
    Wanted wanted{hd_params[i].key, &values[i]};
    rewind(file);
    ini_parse_file(file, take_one, &wanted);
  }
  fclose(file);
  return values;
}

int ask(dictionary* ini, const char* key) {
  return iniparser_getint(ini, (std::string(":") + key).c_str(), kMissing);
}

Values by_iniparser_once(const std::string& path) {
  Values values = fresh_values();
  dictionary* ini = iniparser_load(path.c_str());
  for (std::size_t i = 0; hd_params[i].key != nullptr; ++i) values[i] = ask(ini, hd_params[i].key);
  iniparser_freedict(ini);
  return values;
}

Values by_iniparser_each(const std::string& path) {
  Values values = fresh_values();
  for (std::size_t i = 0; hd_params[i].key != nullptr; ++i) {
    dictionary* ini = iniparser_load(path.c_str());
    values[i] = ask(ini, hd_params[i].key);
    iniparser_freedict(ini);
  }
  return values;
}

struct Reader {
  const char* name;
  Values (*read)(const std::string& path);
};
constexpr Reader kReaders[] = {{"product", by_product},
                               {"inih-each", by_inih_each},
                               {"iniparser-each", by_iniparser_each},
                               {"inih-once", by_inih_once},
                               {"iniparser-once", by_iniparser_once}};

}  // namespace

std::vector<Workload> lookup_workloads(int lines) {
  const std::string path = write_ini(lines);
  const Values expected = by_product(path);
  std::vector<Workload> all;
  for (const Reader& reader : kReaders) {
    const Values read = reader.read(path);
    for (const int value : read)
      if (value < 100) give_up(std::string(reader.name) + " missed a key");
    if (read != expected) give_up(std::string(reader.name) + " reads other values");
    all.push_back({"lookup-" + std::to_string(lines) + "/" + reader.name,
                   [path, reader] {
                     if (reader.read(path).back() == kMissing) give_up("a key is gone");
                   },
                   {}});
  }
  return all;
}

}  // namespace bench
