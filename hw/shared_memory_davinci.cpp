// Attaching the shared block of `encode`; the only user of the System V memory calls.
#include "hw/shared_memory_davinci.h"

#include <sys/shm.h>

#include <cerrno>
#include <cstdio>

SharedBlock* shared_memory = nullptr;

// A failed get is reported and the attach goes on: it then fails by itself and
// gives the message that ends the start-up.
static bool attach_block() {
  const int id = shmget(kSharedKey, kSharedSize, kSharedFlags);
  if (id < 0) printf("Error, cannot create shared memory!!! (errno=%d)\n", errno);
  void* address = shmat(id, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) {
    shared_memory = nullptr;
    puts("Error, cannot map SNMP shared memory!!!");
    return false;
  }
  shared_memory = static_cast<SharedBlock*>(address);
  return true;
}

std::int64_t get_shm_key() {
  if (!attach_block()) return -1;
  shared_memory->header = static_cast<std::int32_t>(kSharedHeader);
  shared_memory->magic = static_cast<std::int32_t>(kSharedMagic);
  shared_memory->header_zero = 0;
  return static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(shared_memory));
}

int initial_shered_mem() {
  if (!attach_block()) return -1;
  if (shared_memory->magic != static_cast<std::int32_t>(kSharedMagic)) {
    puts("Please Run configapp -I first");
    return -1;
  }
  return 0;
}
