// Small stand-ins for two library functions that would cost the static program
// 12 KiB of its 128, and of which it uses next to nothing.
#include <cstdint>

extern "C" {

// musl's scanf reads floating-point numbers through this; the program scans only
// whole ones.
long double __floatscan(void*, int, int) { __builtin_trap(); }

// libgcc keeps all atomic operations of processors without exclusive loads in one
// object; the program needs this one. The kernel compares and exchanges at a fixed
// address, in a way that no interrupt parts; 0 when it did.
std::uint32_t __sync_add_and_fetch_4(volatile void* place, std::uint32_t addend) {
  using Exchange = int (*)(std::uint32_t expected, std::uint32_t wanted, volatile void* place);
  const auto kernel_exchange = reinterpret_cast<Exchange>(0xffff0fc0);
  auto* const word = static_cast<volatile std::uint32_t*>(place);
  for (;;) {
    const std::uint32_t before = *word;
    if (kernel_exchange(before, before + addend, place) == 0) return before + addend;
  }
}

}  // extern "C"
