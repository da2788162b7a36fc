// Look-ups in the C library's user database, which writes its records into a buffer of the caller.
#pragma once

#include <pwd.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <vector>

#include "veltsys/User.h"

namespace VELT {

// Calls `get`, a function like getpwnam_r(3), with a buffer that grows until the record fits, and
// `use` with the record if there is one.
template <typename Record, typename Get, typename Use>
void LookUp(Get get, Use use) {
  constexpr std::size_t kLargestRecord = std::size_t{1024} * 1024;
  std::vector<char> buffer(1024);
  Record record{};
  Record* found = nullptr;
  for (;;) {
    const int error = get(&record, buffer.data(), buffer.size(), &found);
    if (error == ERANGE && buffer.size() < kLargestRecord) {
      buffer.resize(buffer.size() * 2);
    } else if (error != EINTR) {
      break;
    }
  }
  if (found != nullptr) use(*found);
}

template <typename Get>
std::optional<VELTUSER> FindUserBy(Get get) {
  std::optional<VELTUSER> user;
  LookUp<passwd>(get, [&user](const passwd& found) {
    user = VELTUSER{found.pw_name, found.pw_uid, found.pw_gid};
  });
  return user;
}

}  // namespace VELT
