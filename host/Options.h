// The options of the command line, after checks and look-ups.
#pragma once

#include <sys/types.h>

#include <array>
#include <string>

#include "host/Pool.h"

namespace VELT::host {

// The effective ids that requests are served with.
struct Ids {
  uid_t uid = 0;
  gid_t gid = 0;
  std::string user;  // the account's name; empty when the host keeps the uid it was started with
};

enum class EventAddress { kShort, kWhole, kNone };  // what is kept of visitors' addresses

// The socket for files that are sent whole (PUT), whose bodies the web server passes on as they
// come (Scgi.h).
inline std::string UploadSocket(const std::string& socket) { return socket + ".upload"; }

struct Options {
  std::string socket_path;
  PoolSizes pools;
  Ids ids;
  std::string registry;
  std::string database;
  std::string request_log;               // see RequestLog; empty: none
  std::string metrics;                   // see MetricsServer; empty: none
  bool web_server_names_owners = false;  // in REMOTE_USER; otherwise they sign in here
  bool owner_basic = false;              // passwords are taken by HTTP Basic too
  std::string server_name;               // what owners read where they sign in
  std::string external_url;  // without a slash at the end; empty: the request's Host is used
  // For how long what visitors did is kept for links' owners; 0: not at all.
  int event_days = 90;
  EventAddress event_address = EventAddress::kShort;
  // All in seconds: for a whole request, and for a program or PAM that it waits for.
  unsigned int request_timeout = 120;
  unsigned int program_timeout = 5;
  unsigned int login_timeout = 15;
};

}  // namespace VELT::host
