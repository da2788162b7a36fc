#include "veltsys/User.h"

#include <exception>

#include "UserDatabase.h"

int VELTUserGetByUID(uid_t uid, VELTUSER** user) {
  if (user == nullptr) return -1;
  *user = nullptr;
  try {
    auto found =
        VELT::FindUserBy([uid](passwd* record, char* buffer, std::size_t size, passwd** result) {
          return getpwuid_r(uid, record, buffer, size, result);
        });
    if (found.has_value()) *user = new VELTUSER(std::move(*found));
  } catch (const std::exception&) {  // out of memory
  }
  return *user != nullptr ? 0 : -1;
}

void VELTUserFree(VELTUSER* user) { delete user; }
