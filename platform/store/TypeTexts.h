// The texts of the two types of a link, each at the place of its number.
#pragma once

#include <array>

namespace VELT::sharing {

inline constexpr std::array<const char*, 3> kProtectTypeTexts = {"none", "password", "user"};
inline constexpr std::array<const char*, 3> kRedirectTypeTexts = {"none", "url_param", "always"};

}  // namespace VELT::sharing
