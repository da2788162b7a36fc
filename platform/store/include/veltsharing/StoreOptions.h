// The host's half of the store: where it is, what time it is, who is asking.
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

// The address of the visitor whose request is served from now on, as text; empty: none.
void SetVisitorAddress(const std::string& address);

// From now on requests are a visitor's who comes from `address`, or nobody's. To a visitor a link
// that is off or whose owner is gone is as good as none: EntryDB::GetByHash doesn't find it.
void SetVisitor(const std::string& address);
void SetNoVisitor();

// For a first start: creates the database of the options, empty, schema included, unless there is
// one; its folder, or the PostgreSQL database, must exist. An SQLite file belongs to the process's
// effective user, is closed again and readable to nobody else, so this is called with the ids that
// the workers have. False, with a log line, when it could not. Nothing else ever creates a
// database.
bool CreateStore();

}  // namespace VELT::sharing
