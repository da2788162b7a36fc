#pragma once

#include <string>
#include <string_view>

namespace VELT::host {

// The appliance's code ("enu", "ger", ...) of the language that an Accept-Language header (RFC
// 9110, section 12.5.4) prefers among those of the appliance; "enu" when it names none of them.
std::string UILanguage(std::string_view header);

}  // namespace VELT::host
