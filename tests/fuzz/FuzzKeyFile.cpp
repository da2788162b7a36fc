// Any text as a key file: every value that is read is also found by its key, and the values are read the same after
// they were written back.
#include <sys/mman.h>
#include <unistd.h>

#include "platform/system/KeyValues.h"
#include "tests/fuzz/Fuzz.h"
#include "veltsys/KeyFile.h"

namespace {

// A key file in memory.
const char* Write(const std::string& text) {
  static const int file = memfd_create("keys", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  const bool written = ftruncate(file, 0) == 0 && pwrite(file, text.data(), text.size(), 0) ==
                                                      static_cast<ssize_t>(text.size());
  VELT::Require(written, "the file can be written");
  return path.c_str();
}

}  // namespace

void VELT::Try(const std::string& text) {
  const char* path = Write(text);
  const auto values = ReadKeyValues(path);
  std::string plain;
  for (const auto& [key, value] : values) {
    Require(!key.starts_with('#') && key.find_first_of("=\n") == std::string::npos, "a key is one");
    Require(value.find('\n') == std::string::npos, "a value is of one line");
    if ((key + value).find('\0') == std::string::npos) {
      Require(VLIBCFileCheckKeyValue(path, key.c_str(), value.c_str(), 0) == 1, "a value is found");
      Require(VLIBCFileCheckKeyValue(path, key.c_str(), (value + "x").c_str(), 0) == 0,
              "a value is compared whole");
    }
    plain.append(key).append("=\"").append(value).append("\"\n");
  }
  Require(ReadKeyValues(Write(plain)) == values, "a plain file is read as it was written");
}
