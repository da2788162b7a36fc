#pragma once

#include <string>
#include <string_view>

namespace VELT::host {

// The appliance's code ("enu", "ger", ...) of the language that an Accept-Language header (RFC
// 9110, section 12.5.4) wants most among those that the appliance has; "enu" when there is none.
std::string UILanguage(std::string_view header);

}  // namespace VELT::host
