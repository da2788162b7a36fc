#include "veltsharing/Users.h"

#include <cstring>

#include "veltsys/Accounts.h"
#include "veltsys/User.h"

namespace VELT::sharing {

bool UserGroupsGet(const VELTUSER* user, std::set<unsigned int>& gids) {
  if (user == nullptr) return false;
  gids.merge(accounts::GroupsOf(*user));
  return true;
}

bool StringExplode(std::vector<std::string>& pieces, const std::string& text,
                   const char* delimiter) {
  pieces.clear();
  if (delimiter == nullptr || *delimiter == '\0') return false;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = text.find(delimiter, begin)) != std::string::npos;) {
    pieces.push_back(text.substr(begin, end - begin));
    begin = end + std::strlen(delimiter);
  }
  pieces.push_back(text.substr(begin));
  return true;
}

}  // namespace VELT::sharing
