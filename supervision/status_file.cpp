// Writing "monitor.txt": frame rate, bit rate, standard and size as `encode` reports them.
#include "supervision/status_file.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "hw/shared_memory_davinci.h"
#include "hw/time_units.h"

static constexpr char kStatusFile[] = "monitor.txt";  // in the working directory
static constexpr useconds_t kPassSleep_us = 5 * kSecond_us;
static constexpr int kPassesPerFile = 5;

Relaxed<std::int32_t> SystemMonitorStatus;
static pthread_t pMonitorThread;

struct StandardLine {
  std::int32_t code;
  const char* line;
};

// Code 7 has no name and goes out as unknown.
static constexpr StandardLine kStandardLines[] = {
    {6, "VideoStd D1 PAL\n"},   {8, "VideoStd 576P\n"},     {9, "VideoStd 720P_60\n"},
    {10, "VideoStd 720P_50\n"}, {11, "VideoStd 720P_30\n"}, {12, "VideoStd 1080I_30\n"},
};

static void write_standard(FILE* file, std::int32_t code) {
  for (const StandardLine& row : kStandardLines) {
    if (row.code == code) {
      fputs(row.line, file);
      return;
    }
  }
  fprintf(file, "Unknown !!!(videoStd = %d)\n", code);
}

int savetofile(int frame_rate, int video_bitrate) {
  puts("save monitor file ");
  FILE* file = fopen(kStatusFile, "w");
  if (file == nullptr) {
    puts("error while open monitor.txt file");
    return -1;
  }
  fprintf(file, "frame per sec   = %d\n", frame_rate);
  fprintf(file, "Video Bit Rate = %d\n", video_bitrate);
  write_standard(file, shared_get(&SharedBlock::status_video_std));
  fprintf(file, "width           = %d\n", shared_get(&SharedBlock::status_width));
  fprintf(file, "height          = %d\n", shared_get(&SharedBlock::status_height));
  fprintf(file, "VBR             = %d\n", shared_get(&SharedBlock::status_vbr));
  return fclose(file);
}

void* SystemMonitoring(void* /*argument*/) {
  int passes = 0;
  for (;;) {
    const int frame_rate = shared_get(&SharedBlock::status_frame_rate);
    const int video_bitrate = shared_get(&SharedBlock::status_bitrate);
    if (passes == kPassesPerFile) {
      savetofile(frame_rate, video_bitrate);
      passes = 0;
    }
    ++passes;
    usleep(kPassSleep_us);
  }
}

void StartSystemMonitoring() {
  if (SystemMonitorStatus != 0) return;
  puts("Start System Monitoring");
  SystemMonitorStatus = 1;
  if (pthread_create(&pMonitorThread, nullptr, SystemMonitoring, nullptr) == 0) {
    pthread_detach(pMonitorThread);
  }
  usleep(100 * kMillisecond_us);
}

void StopSystemMonitoring() {
  if (SystemMonitorStatus != 1) return;
  puts("Stop System Monitoring");
  SystemMonitorStatus = 0;
  pthread_exit(nullptr);
}
