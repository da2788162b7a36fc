// The texts of the two types of a link, at the place of their number. The key constants name the same
// texts, but are variables whose own initialisation a table could come before.
#pragma once

#include <array>

namespace VELT::sharing {

inline constexpr std::array<const char*, 3> kProtectTypeTexts = {"none", "password", "user"};
inline constexpr std::array<const char*, 3> kRedirectTypeTexts = {"none", "url_param", "always"};

}  // namespace VELT::sharing
