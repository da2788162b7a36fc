#pragma once

#include <set>
#include <string>
#include <string_view>

namespace VELT::host {

// The cookie in which the pages keep the language that a visitor chose, as one of the codes below.
inline constexpr const char* kLanguageCookie = "velt_language";

// Whether `code` is an appliance's code of a language ("enu", "ger", ...).
bool IsUILanguage(const std::string& code);

// The appliance's code of the language that an Accept-Language header (RFC 9110, section 12.5.4)
// prefers among those of the appliance, or among those of them in `among`; "enu" when it names none
// of them.
std::string UILanguage(std::string_view header, const std::set<std::string>* among = nullptr);

}  // namespace VELT::host
