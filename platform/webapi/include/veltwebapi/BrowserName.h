// What browsers are called.
#pragma once

#include <string>

namespace VELT {

// The browser and the system that a User-Agent names, such as "Firefox, Linux"; "" for none that is known.
std::string BrowserName(const std::string& user_agent);

}  // namespace VELT
