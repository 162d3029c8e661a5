// Printed and joined text.
#include "melk/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace melk {

std::string text_of(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* printed = nullptr;
  const int length = vasprintf(&printed, format, arguments);
  va_end(arguments);
  if (length < 0) return {};
  std::string text(printed, static_cast<std::size_t>(length));
  free(printed);
  return text;
}

std::string joined(const std::vector<const char*>& texts) {
  std::string all;
  for (const char* text : texts) all += (all.empty() ? "" : ", ") + std::string(text);
  return all;
}

}  // namespace melk
