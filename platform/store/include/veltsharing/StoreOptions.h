// What the host sets for the store: where it is, what time it is, whose request is served.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace VELT::sharing {

struct StoreOptions {
  // "sqlite3 <path>" or "postgresql <libpq connection string>".
  std::string connection = "sqlite3 /var/lib/velt/sharing.db";
  // Seconds since 1970; the system's clock when empty.
  std::function<std::int64_t()> clock;
  // How long PAM may take over a visitor's account; then the login fails (-1).
  std::chrono::milliseconds login_timeout{15000};
};

// To be called before the first use of SharingDB in a process, and by tests to move on to another
// database: an open connection is closed.
void ConfigureStore(StoreOptions options);

// From now on the request served is a visitor's, who comes from `address`, a text. Meanwhile
// EntryDB::GetByHash finds no link that is disabled, and takes no longer for it than for an unknown
// one, and no link whose owner has no account any more.
void SetVisitor(const std::string& address);
// From now on the request served is no visitor's, as at the start of a process.
void SetNoVisitor();

// For a first start: creates the database of the options, empty, schema included, unless there is
// one; its folder, or the PostgreSQL database, must exist. An SQLite file belongs to the process's
// effective user, is closed again and readable to nobody else, so this is called with the ids that
// the workers have. False, with a log line, when it could not. Nothing else ever creates a
// database.
bool CreateStore();

}  // namespace VELT::sharing
