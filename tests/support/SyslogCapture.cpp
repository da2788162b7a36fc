#include "tests/support/SyslogCapture.h"

#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>

std::vector<std::string>& VELT::Log() {
  static std::vector<std::string> lines;
  return lines;
}

extern "C" void syslog(int priority, const char* format, ...) {
  std::array<char, 2048> line{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  VELT::Log().push_back(std::to_string(priority) + " " + line.data());
}
