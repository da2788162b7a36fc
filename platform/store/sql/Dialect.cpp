#include "sql/Dialect.h"

#include <poll.h>
#include <soci/postgresql/soci-postgresql.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include <algorithm>
#include <string_view>

#include "veltsys/Text.h"

namespace VELT::sharing::db {
namespace {

constexpr std::string_view kSqlite = "sqlite3 ";
constexpr std::string_view kPostgresql = "postgresql ";

// A server that is gone is given up after seconds, not after the hours that TCP would wait. Of two
// values for one name the later holds, so these are defaults.
constexpr const char* kPostgresqlDefaults =
    "connect_timeout=5 keepalives_idle=10 keepalives_interval=5 keepalives_count=3 "
    "tcp_user_timeout=20000 fallback_application_name=velt-sharing ";

constexpr Dialect kSqliteDialect{"begin immediate", ""};
constexpr Dialect kPostgresqlDialect{"begin", " for update"};

// SOCI always asks SQLite to create a missing file; only a URI's mode (sqlite.org/uri.html)
// prevents it. Escaping everything unusual also keeps the path from being read as SOCI's own
// syntax.
std::string SqliteUri(const std::string& path) {
  return "file:" + EncodePercent(path, "/") + "?mode=rw";
}

std::unique_ptr<soci::session> OpenPostgresql(const std::string& parameters) {
  const bool is_uri =  // which takes no other words
      parameters.starts_with("postgresql://") || parameters.starts_with("postgres://");
  auto session = std::make_unique<soci::session>();
  try {
    session->open("postgresql", (is_uri ? "" : kPostgresqlDefaults) + parameters);
  } catch (const soci::soci_error& error) {
    std::string text = error.get_error_message();
    // The reason stands in the lines below the first. A string that can't be read is cited there,
    // perhaps with a piece of a password.
    if (text.find("connection to server") == std::string::npos &&
        text.find("could not translate host name") == std::string::npos) {
      throw;
    }
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' '; }, ' ');
    throw soci::soci_error(text);
  }
  // As long as SQLite waits for another process's lock. A machine that vanished with a link locked
  // must not keep it for the hours that its connection seems alive.
  *session << "set lock_timeout = '5s'";
  *session << "set idle_in_transaction_session_timeout = '60s'";
  return session;
}

}  // namespace

const Dialect& DialectOf(soci::session& session) {
  return session.get_backend_name() == "sqlite3" ? kSqliteDialect : kPostgresqlDialect;
}

std::unique_ptr<soci::session> OpenSession(const std::string& connection) {
  const std::string path = SqlitePath(connection);
  if (!path.empty()) {
    // Five seconds of waiting for another process's lock.
    auto session = std::make_unique<soci::session>(*soci::factory_sqlite3(),
                                                   "db=" + SqliteUri(path) + " timeout=5");
    *session << "pragma foreign_keys = on";
    *session << "pragma synchronous = full";
    return session;
  }
  if (connection.starts_with(kPostgresql)) {
    return OpenPostgresql(connection.substr(kPostgresql.size()));
  }
  throw soci::soci_error("The connection names neither an SQLite file nor PostgreSQL.");
}

bool IsLost(soci::session& session) {
  if (session.get_backend_name() == "sqlite3") return false;
  // SOCI's library hides the type information that another cast would need.
  auto* backend = static_cast<soci::postgresql_session_backend*>(  // NOLINT(*-static-cast-downcast)
      session.get_backend());
  // Unasked, a server says little but farewell.
  pollfd connection{PQsocket(backend->conn_), POLLIN, 0};
  return poll(&connection, 1, 0) != 0;
}

std::string SqlitePath(const std::string& connection) {
  return connection.starts_with(kSqlite) ? connection.substr(kSqlite.size()) : std::string();
}

}  // namespace VELT::sharing::db
