#include "veltwebapi/BrowserName.h"

#include <array>
#include <string_view>

namespace VELT {
namespace {

struct Mark {
  std::string_view text;  // in the User-Agent
  const char* name;
};

// The first that a User-Agent has counts: most browsers also name those that they descend from.
constexpr std::array<Mark, 7> kBrowsers = {{{"Firefox/", "Firefox"},
                                            {"Edg", "Edge"},
                                            {"OPR/", "Opera"},
                                            {"SamsungBrowser/", "Samsung Internet"},
                                            {"Chrome/", "Chrome"},
                                            {"CriOS/", "Chrome"},
                                            {"Safari/", "Safari"}}};
constexpr std::array<Mark, 7> kSystems = {{{"Android", "Android"},
                                           {"iPhone", "iPhone"},
                                           {"iPad", "iPad"},
                                           {"Windows", "Windows"},
                                           {"Mac OS X", "macOS"},
                                           {"CrOS", "ChromeOS"},
                                           {"Linux", "Linux"}}};

template <typename Marks>
std::string Find(const Marks& marks, const std::string& text) {
  for (const Mark& mark : marks) {
    if (text.find(mark.text) != std::string::npos) return mark.name;
  }
  return {};
}

}  // namespace

std::string BrowserName(const std::string& user_agent) {
  const std::string browser = Find(kBrowsers, user_agent);
  const std::string system = Find(kSystems, user_agent);
  return browser.empty() || system.empty() ? browser + system : browser + ", " + system;
}

}  // namespace VELT
