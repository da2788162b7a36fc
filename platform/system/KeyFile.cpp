#include "veltsys/KeyFile.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/system/KeyValues.h"

namespace VELT {
namespace {

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlank = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlank);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

std::string_view Unquoted(std::string_view text) {
  const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
  return quoted ? text.substr(1, text.size() - 2) : text;
}

void AddLine(std::string_view line, std::map<std::string, std::string>& values) {
  line = Trimmed(line);
  const std::size_t equals = line.find('=');
  if (line.empty() || line.front() == '#' || equals == std::string_view::npos) return;
  values[std::string(Trimmed(line.substr(0, equals)))] = Unquoted(Trimmed(line.substr(equals + 1)));
}

struct Free {
  // NOLINTNEXTLINE(cppcoreguidelines-no-malloc): getline(3) allocates it.
  void operator()(char* line) const { std::free(line); }
};

}  // namespace

std::map<std::string, std::string> ReadKeyValues(const char* path) {
  std::map<std::string, std::string> values;
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path, "re"), std::fclose);
  if (file == nullptr) return values;
  std::unique_ptr<char, Free> line;
  std::size_t capacity = 0;
  for (;;) {
    char* buffer = line.release();
    const ssize_t length = getline(&buffer, &capacity, file.get());
    line.reset(buffer);
    if (length < 0) return values;
    AddLine({buffer, static_cast<std::size_t>(length)}, values);
  }
}

}  // namespace VELT

int VLIBCFileCheckKeyValue(const char* path, const char* key, const char* value, int flags) {
  if (path == nullptr || key == nullptr || value == nullptr || flags != 0) return 0;
  try {
    const auto values = VELT::ReadKeyValues(path);
    const auto found = values.find(key);
    return found != values.end() && found->second == value ? 1 : 0;
  } catch (const std::exception&) {  // out of memory
    return 0;
  }
}
