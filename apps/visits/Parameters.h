// What VELT.Visits reads of its request: its check and the description of the API take it from here.
#pragma once

namespace VELT::visits {

// The links, an array of texts. Required.
inline constexpr const char* kLinks = "sharing_ids";
inline constexpr unsigned int kMostLinks = 100;

}  // namespace VELT::visits
