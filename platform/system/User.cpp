#include "veltsys/User.h"

#include <exception>
#include <optional>
#include <utility>

#include "veltsys/Accounts.h"

int VELTUserGetByUID(uid_t uid, VELTUSER** user) {
  if (user == nullptr) return -1;
  *user = nullptr;
  try {
    auto found = VELT::accounts::FindUser(uid);
    if (found.has_value()) *user = new VELTUSER(std::move(*found));
  } catch (const std::exception&) {  // out of memory
  }
  return *user != nullptr ? 0 : -1;
}

void VELTUserFree(VELTUSER* user) { delete user; }
