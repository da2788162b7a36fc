// Small helpers that the store offers to its callers.
#pragma once

#include <set>
#include <string>
#include <vector>

struct VELTUSER;

namespace VELT::sharing {

// Adds the ids of the groups that `user` belongs to, its primary group included. False, adding
// nothing, when `user` is null.
bool UserGroupsGet(const VELTUSER* user, std::set<unsigned int>& gids);

// Makes `pieces` the parts of `text` between the `delimiter`s; empty parts are kept. False, leaving
// `pieces` empty, when the delimiter is null or empty.
bool StringExplode(std::vector<std::string>& pieces, const std::string& text,
                   const char* delimiter);

}  // namespace VELT::sharing
