#include "sql/Dialect.h"

#include <soci/sqlite3/soci-sqlite3.h>

#include <string_view>

#include "veltsys/Text.h"

namespace VELT::sharing::db {
namespace {

constexpr std::string_view kSqlite = "sqlite3 ";
constexpr std::string_view kPostgresql = "postgresql ";

constexpr Dialect kSqliteDialect{"begin immediate", ""};
constexpr Dialect kPostgresqlDialect{"begin", " for update"};

// SOCI always asks SQLite to create a missing file; only a URI's mode (sqlite.org/uri.html) prevents
// it. Escaping everything unusual also keeps the path from being read as SOCI's own syntax.
std::string SqliteUri(const std::string& path) {
  return "file:" + EncodePercent(path, "/") + "?mode=rw";
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
    return std::make_unique<soci::session>("postgresql", connection.substr(kPostgresql.size()));
  }
  throw soci::soci_error("The connection names neither an SQLite file nor PostgreSQL.");
}

std::string SqlitePath(const std::string& connection) {
  return connection.starts_with(kSqlite) ? connection.substr(kSqlite.size()) : std::string();
}

}  // namespace VELT::sharing::db
