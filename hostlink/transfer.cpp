// Receiving the configuration file and software updates.
//
// A file is gathered whole in memory and written in one write. The update
// itself is the business of the shell scripts that come with the archive.
#include "hostlink/transfer.h"

#include <unistd.h>

#include <cstddef>
#include <cstdlib>

#include "config/hd_params.h"
#include "hostlink/link.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shell.h"
#include "hw/time_units.h"

static constexpr char kUpdateArchive[] = "/home/tovin/tmp/new_hd_version.tar.gz";
static constexpr char kSuccessMarker[] = "/home/tovin/tmp/success.txt";

static constexpr useconds_t kFifoStartPause_us = 100;

static constexpr std::int32_t kFifoWordBytes = 2;
static constexpr std::size_t kBufferSlack = 4;  // room for the extra word of an odd archive

static std::uint8_t* allocate_buffer(std::int32_t size) {
  return static_cast<std::uint8_t*>(malloc(static_cast<std::size_t>(size) + kBufferSlack));
}

static void write_whole(FILE* file, const std::uint8_t* buffer, std::int32_t size) {
  fwrite(buffer, 1, static_cast<std::size_t>(size), file);
}

// Every byte the host sends is file data: no answers, no polls. Waits without
// limit. Returns false on a wait error.
static bool receive_bytes(FILE* link, std::uint8_t* buffer, std::int32_t size) {
  for (std::int32_t i = 0; i < size; ++i) {
    if (!receive_byte(link, 1, kLinkSilence, &buffer[i])) return false;
  }
  return true;
}

void get_file(FILE* link, std::int32_t size) {
  // The buffer comes first: opening the file empties it.
  std::uint8_t* buffer = size < 0 ? nullptr : allocate_buffer(size);
  if (buffer == nullptr) {
    printf("error file size %d\n", size);
    return;
  }
  FILE* file = fopen(kHdIniPath, "wb");
  if (file == nullptr) {
    puts("can not open hd.ini file");
    free(buffer);
    return;
  }
  puts("start get file hd.ini");
  // After a wait error the file stays open and empty.
  if (receive_bytes(link, buffer, size)) {
    write_whole(file, buffer, size);
    usleep(3 * kSecond_us);
    fclose(file);
  }
  free(buffer);
}

static void prepare_update_area() {
  run_shell("mkdir /home/tovin/tmp");
  run_shell("rm /home/tovin/tmp/new_hd_version.tar.gz");
  run_shell("rm /home/tovin/tmp/update.sh");
  run_shell("rm /home/tovin/tmp/success.txt");
  run_shell("date");
}

static void run_update_script() {
  puts("Run Script for Extract the new_hd_version.tar.gz file to tmp dir");
  run_shell("/home/tovin/update.sh");
  run_shell("ls -l tmp/");
}

// An update on its way: the open archive and the buffer that gathers it.
struct Update {
  FILE* archive;
  std::uint8_t* buffer;
};

// Clears the update area, checks the size and opens the archive. Returns false
// (with a message) when the update cannot be taken.
static bool begin_update(std::int32_t size, Update* update) {
  prepare_update_area();
  update->buffer = size < 0 || size > kMaxUpdateSize ? nullptr : allocate_buffer(size);
  if (update->buffer == nullptr) {
    puts("limit file size file");
    return false;
  }
  update->archive = fopen(kUpdateArchive, "wb");
  if (update->archive == nullptr) {
    puts("can not open new application file");
    free(update->buffer);
    return false;
  }
  return true;
}

void get_upgrate_file(FILE* link, std::int32_t size) {
  Update update{};
  if (!begin_update(size, &update)) return;
  if (!receive_bytes(link, update.buffer, size)) {
    free(update.buffer);  // the archive stays open and empty
    return;
  }
  const int write_fleg_ok = 1;
  write_whole(update.archive, update.buffer, size);
  usleep(kSecond_us);
  fclose(update.archive);
  free(update.buffer);
  printf("SPI fread write_fleg_ok=%d, total=%d, f_size %d \n", write_fleg_ok, size, size);
  run_update_script();
}

// What emptying the FIFO came to.
struct FifoRead {
  bool complete;
  std::int32_t offset;  // of the last word taken inside the loop
  unsigned max_level;
};

static void take_fifo_word(std::uint8_t* at) {
  const unsigned word = GetValue(kRegUpdateData);
  at[0] = static_cast<std::uint8_t>(word >> 8);
  at[1] = static_cast<std::uint8_t>(word);
}

// Takes words until size bytes are in; waits as long as the FIFO stays empty.
static FifoRead empty_fifo(std::uint8_t* buffer, std::int32_t size) {
  FifoRead result{};
  while (result.offset < size) {
    while ((GetValue(kRegUpdateStatus) & kUpdateWaitingMask) == 0) {
    }
    take_fifo_word(&buffer[result.offset]);
    const unsigned level = GetValue(kRegUpdateStatus) & kUpdateLevelMask;
    if (level > result.max_level) result.max_level = level;
    if (result.offset >= size - kFifoWordBytes) {
      puts("write_fleg_ok");
      result.complete = true;
      break;
    }
    result.offset += kFifoWordBytes;
  }
  return result;
}

void new_get_upgrate_file(FILE* /*link*/, std::int32_t size) {
  Update update{};
  if (!begin_update(size, &update)) return;
  printf("in get_file function size=%d \n", size);
  usleep(kFifoStartPause_us);
  printf("start get file status=0x%x\n", GetValue(kRegUpdateStatus));

  FifoRead fifo = empty_fifo(update.buffer, size);
  const std::int32_t odd = (size - fifo.offset) % kFifoWordBytes;
  if (odd != 0) {
    // An odd archive takes one word more, one byte beyond the last full word.
    fifo.complete = true;
    take_fifo_word(&update.buffer[fifo.offset + 1]);
  }
  printf("max mem buf=0x%x\n", fifo.max_level);
  printf("last = %d  f_size/%d=%d i=%d\n", odd, kFifoWordBytes, size / kFifoWordBytes, fifo.offset);

  if (fifo.complete) write_whole(update.archive, update.buffer, size);
  usleep(kSecond_us);
  fclose(update.archive);
  free(update.buffer);
  printf("FPGA  write_fleg_ok=%d, total=%d, f_size %d \n", fifo.complete ? 1 : 0, fifo.offset,
         size);
  run_shell("date");
  if (fifo.complete) run_update_script();
}

int GetSuccessFileUpdate() {
  FILE* marker = fopen(kSuccessMarker, "r+");
  if (marker == nullptr) return 0;
  fclose(marker);
  run_shell("rm /home/tovin/tmp/success.txt");
  return 1;
}

int restor_from_manufacture() {
  puts("Extract the from manufacture file");
  run_shell("tar -xvzf tmp/new_hd_version_master.tar.gz -C tmp/");
  usleep(kMillisecond_us);
  puts("copy file to work dir");
  run_shell("chmod +x *");
  run_shell("chmod +x *.*");
  run_shell("tmp/./update.sh");
  usleep(kMillisecond_us);
  return system("ls -l tmp/");
}
