#include "veltweb/WebUtils.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace VELT {
namespace {

constexpr char kWebRoot[] = "/usr/velt/web";

// Nanoseconds since 1970; empty when there is no such file below the web root.
std::string ModifyTimeOf(std::string_view path) {
  std::string file;
  file.reserve(sizeof(kWebRoot) + path.size());
  file.append(kWebRoot).append(path);
  struct stat status;
  if (stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
  return std::to_string(std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 +
                        status.st_mtim.tv_nsec);
}

// Symbolic links below the root are followed, as the web server does that serves the same files.
bool StaysInRoot(std::string_view path) {
  if (path.empty() || path.front() != '/') return false;
  for (std::size_t begin = 0; begin != std::string_view::npos; begin = path.find('/', begin + 1)) {
    const std::string_view rest = path.substr(begin + 1);
    if (rest.substr(0, rest.find('/')) == "..") return false;
  }
  return true;
}

}  // namespace

std::string WebUtils::GetServerName() {
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0) return "";
  return name.data();
}

std::string WebUtils::EncodeHtml(const std::string& text, bool /*attribute*/) {
  std::string encoded;
  encoded.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        encoded += "&amp;";
        break;
      case '<':
        encoded += "&lt;";
        break;
      case '>':
        encoded += "&gt;";
        break;
      case '"':
        encoded += "&quot;";
        break;
      case '\'':
        encoded += "&#39;";
        break;
      default:
        encoded += c;
    }
  }
  return encoded;
}

std::string WebUtils::GetModifyTime(const char* path) {
  if (path != nullptr) {
    const std::string_view file(path, std::strcspn(path, "?#"));
    if (StaysInRoot(file)) {
      std::string time = ModifyTimeOf(file);
      if (!time.empty()) return time;
    }
  }
  std::string own = ModifyTimeOf("/index.html");
  return own.empty() ? "0" : own;
}

}  // namespace VELT
