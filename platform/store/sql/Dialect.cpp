#include "platform/store/sql/Dialect.h"

#include <libpq-fe.h>
#include <poll.h>
#include <soci/postgresql/soci-postgresql.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <clocale>
#include <cwchar>
#include <cwctype>
#include <string_view>
#include <thread>

#include "veltsys/Text.h"

namespace VELT::sharing::db {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view kSqlite = "sqlite3 ";
constexpr std::string_view kPostgresql = "postgresql ";

// With these a server that is gone is noticed after seconds; TCP alone would wait for hours. libpq
// uses the last of several values for one name, so the configured ones override these.
constexpr const char* kPostgresqlDefaults =
    "connect_timeout=5 keepalives_idle=10 keepalives_interval=5 keepalives_count=3 "
    "tcp_user_timeout=20000 fallback_application_name=velt-sharing ";

// The number of the advisory lock has no meaning.
constexpr Dialect kSqliteDialect{
    "begin immediate", "", "", "", "+", "contains(protect_title || '\"' || app, :search)", "", ""};
constexpr Dialect kPostgresqlDialect{
    "begin", " for update", "substr(", ", 1, 255)", "",
    // Whatever the database's own locale is.
    "strpos(lower((protect_title || '\"' || app) collate \"und-x-icu\"), lower(:search collate "
    "\"und-x-icu\")) > 0",
    "(select pg_try_advisory_xact_lock(1986358388)) and ",
    "(select pg_advisory_xact_lock_shared(1986358388)) is not null and "};

// How long a statement waits for a lock before it fails: several times what a disk that stalls for
// seconds needs to let sixteen writers through.
constexpr auto kLockTimeout = 10s;

// https://sqlite.org/c3ref/busy_handler.html. SQLite's own handler asks the less often the longer
// it has waited, so that on a slow disk those who came last get the lock and the first one fails.
int WaitForLock(void* /*unused*/, int asked) {
  thread_local std::chrono::steady_clock::time_point begun;
  const auto now = std::chrono::steady_clock::now();
  if (asked == 0) begun = now;
  const auto waited = now - begun;
  if (waited > kLockTimeout) return 0;
  std::this_thread::sleep_for(waited > 20ms && waited < 1s ? 5ms : 1ms);
  return 1;
}

// SOCI always asks SQLite to create a missing file; only the mode of a URI (sqlite.org/uri.html)
// prevents it. The escapes also keep SOCI from reading parts of the path as its own parameters.
std::string SqliteUri(const std::string& path) {
  return "file:" + EncodePercent(path, "/") + "?mode=rw";
}

std::wstring LowerCase(sqlite_api::sqlite3_value* value) {
  static const locale_t kLocale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const auto* at = reinterpret_cast<const char*>(sqlite_api::sqlite3_value_text(value));
  std::wstring text;
  const locale_t before = uselocale(kLocale);
  std::mbstate_t state{};
  wchar_t letter = 0;
  // What the store holds is UTF-8 without zero bytes.
  for (std::size_t size = 0;
       (size = std::mbrtowc(&letter, at, MB_LEN_MAX, &state)) - 1 < MB_LEN_MAX; at += size) {
    text += static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(letter)));
  }
  uselocale(before);
  return text;
}

// SQLite's own functions know the two cases of ASCII letters only.
void Contains(sqlite_api::sqlite3_context* context, int /*count*/,
              sqlite_api::sqlite3_value** values) {
  const bool found = LowerCase(values[0]).find(LowerCase(values[1])) != std::wstring::npos;
  sqlite_api::sqlite3_result_int(context, found ? 1 : 0);
}

std::unique_ptr<soci::session> OpenPostgresql(const std::string& parameters) {
  const bool is_uri =  // no parameters may stand before it
      parameters.starts_with("postgresql://") || parameters.starts_with("postgres://");
  auto session = std::make_unique<soci::session>();
  try {
    session->open("postgresql", (is_uri ? "" : kPostgresqlDefaults) + parameters);
  } catch (const soci::soci_error& error) {
    std::string text = error.get_error_message();
    // The reason is in the lines after the first. Only these two kinds are safe to log: about a
    // connection string that can't be parsed, libpq quotes the string, perhaps with a password.
    if (text.find("connection to server") == std::string::npos &&
        text.find("could not translate host name") == std::string::npos) {
      throw;
    }
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' '; }, ' ');
    throw soci::soci_error(text);
  }
  // The lock timeout is kLockTimeout. The other one releases the locks of a client machine that has
  // crashed, whose connection may seem alive for hours.
  *session << "set lock_timeout = '" + std::to_string(kLockTimeout.count()) + "s'";
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
    auto session =
        std::make_unique<soci::session>(*soci::factory_sqlite3(), "db=" + SqliteUri(path));
    *session << "pragma foreign_keys = on";
    auto* backend = static_cast<soci::sqlite3_session_backend*>(  // NOLINT(*-static-cast-downcast)
        session->get_backend());
    sqlite_api::sqlite3_create_function(backend->conn_, "contains", 2,
                                        SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, Contains,
                                        nullptr, nullptr);
    sqlite_api::sqlite3_busy_handler(backend->conn_, WaitForLock, nullptr);
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
  // dynamic_cast would need type information that SOCI's library does not export.
  auto* backend = static_cast<soci::postgresql_session_backend*>(  // NOLINT(*-static-cast-downcast)
      session.get_backend());
  // Between statements a server sends almost nothing but its last message before it ends the
  // session.
  pollfd connection{PQsocket(backend->conn_), POLLIN, 0};
  return poll(&connection, 1, 0) != 0;
}

std::string SqlitePath(const std::string& connection) {
  return connection.starts_with(kSqlite) ? connection.substr(kSqlite.size()) : std::string();
}

}  // namespace VELT::sharing::db
