// Formats trace lines and hands them to whoever listens.
#include "vboard/core/trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace vboard {

namespace {
TraceSink listening = nullptr;
}  // namespace

void set_trace_sink(TraceSink sink) { listening = sink; }

void trace(const char* format, ...) {
  if (listening == nullptr) return;
  char line[1024];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  listening(line);
}

const char* errno_name(int error) {
  const char* name = strerrorname_np(error);
  return name != nullptr ? name : "E?";
}

}  // namespace vboard
