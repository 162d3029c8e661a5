// The entry that libFuzzer calls, for the target that FUZZ_TARGET names.
#include <cstdio>
#include <cstdlib>

#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Target& target = *fuzz::find_target(FUZZ_TARGET);
  const std::string wrong =
      fuzz::run_in_own_process(target, {reinterpret_cast<const char*>(data), size});
  if (wrong.empty()) return 0;
  fprintf(stderr, "%s: %s\n", target.name, wrong.c_str());
  abort();
}
