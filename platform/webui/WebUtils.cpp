#include "veltweb/WebUtils.h"

#include <unistd.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/webui/ModifyTimes.h"
#include "veltsys/Text.h"

namespace VELT {
namespace {

// Symbolic links below the root are followed, as the web server that serves the files does.
bool StaysInRoot(std::string_view path) {
  return path.starts_with('/') && path.find("/../") == std::string_view::npos &&
         !path.ends_with("/..");
}

std::string ModifyTimeOf(std::string_view path) {
  static ModifyTimes times("/usr/velt/web");
  return times.Of(path);
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
    std::string file;
    if (DecodePercent({path, std::strcspn(path, "?#")}, file) && StaysInRoot(file)) {
      std::string time = ModifyTimeOf(file);
      if (!time.empty()) return time;
    }
  }
  std::string own = ModifyTimeOf("/index.html");
  return own.empty() ? "0" : own;
}

}  // namespace VELT
