// The names of Entry::ProtectType and Entry::RedirectType, indexed by their values.
#pragma once

#include <array>

namespace VELT::sharing {

inline constexpr std::array<const char*, 3> kProtectTypeTexts = {"none", "password", "user"};
inline constexpr std::array<const char*, 3> kRedirectTypeTexts = {"none", "url_param", "always"};

}  // namespace VELT::sharing
