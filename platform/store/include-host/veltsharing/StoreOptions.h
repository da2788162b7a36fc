// What the host sets for the store: the database and the clock.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace VELT::sharing {

struct StoreOptions {
  // "sqlite3 <path>" or "postgresql <libpq connection string>".
  std::string connection = "sqlite3 /var/lib/velt/sharing.db";
  // Returns seconds since 1970 UTC; the system's clock when empty.
  std::function<std::int64_t()> clock;
  // How long PAM may take to check a visitor's account. After that the login fails (-1).
  std::chrono::milliseconds login_timeout{15000};
};

// To be called before the first use of SharingDB in a process. Tests call it again to change the
// database; an open connection is closed.
void ConfigureStore(StoreOptions options);

// Creates the database of the options with empty tables if it does not exist; nothing else ever
// does. The folder of an SQLite file, or the PostgreSQL database, must exist. The file belongs to
// the effective user and nobody else may read it, so this must be called with the ids of the
// workers. No connection stays open. Returns false, with a log line, on failure.
bool CreateStore();

}  // namespace VELT::sharing
