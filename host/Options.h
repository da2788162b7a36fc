// What the command line settles, checked and looked up.
#pragma once

#include <sys/types.h>

#include <array>
#include <string>

#include "Pool.h"

namespace VELT::host {

// The effective ids that requests are served with.
struct Ids {
  uid_t uid = 0;
  gid_t gid = 0;
  std::string user;  // empty when `uid` is the one that the host was started with
};

struct Options {
  std::string socket_path;
  std::array<PoolLimits, kPoolCount> pools;
  Ids ids;
  std::string registry;
  std::string database;
  std::string external_url;  // without a slash at the end; empty: the address that the browser used
  // Seconds, each. The latter two are for what a request waits for.
  unsigned int request_timeout = 120;
  unsigned int program_timeout = 5;
  unsigned int login_timeout = 15;
};

}  // namespace VELT::host
