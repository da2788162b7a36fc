#include "tools/Database.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Schema.h"
#include "veltsharing/StoreOptions.h"

namespace VELT::tools {
namespace {

int VersionOf(soci::session& session, const std::string& name) {
  try {
    return sharing::db::SchemaVersion(session);
  } catch (const soci::soci_error& error) {
    throw Failure("the version of " + name + " can't be read (" + FirstLine(error) +
                  "); a new database gets its tables at velt-webapid's first start");
  }
}

}  // namespace

std::string NameOf(const std::string& connection) {
  const std::string path = sharing::db::SqlitePath(connection);
  return path.empty() ? "PostgreSQL" : path;
}

std::unique_ptr<soci::session> OpenAnyVersion(const std::string& connection, int& version) {
  const std::string path = sharing::db::SqlitePath(connection);
  if (path.empty() && !connection.starts_with("postgresql ")) {
    throw Failure(R"(a database is "sqlite3 PATH" or "postgresql CONNECTION")");
  }
  if (!path.empty() && access(path.c_str(), R_OK) != 0) {
    throw Failure(path + ": " + std::strerror(errno));
  }
  std::unique_ptr<soci::session> session;
  try {
    session = sharing::db::OpenSession(connection);
  } catch (const soci::soci_error& error) {
    throw Failure(NameOf(connection) + " can't be opened: " + FirstLine(error));
  }
  version = VersionOf(*session, NameOf(connection));
  return session;
}

std::unique_ptr<soci::session> OpenDatabase(const std::string& connection) {
  int version = 0;
  auto session = OpenAnyVersion(connection, version);
  if (version == sharing::db::kSchemaVersion) return session;
  const std::string name = NameOf(connection) + " is of schema version " + std::to_string(version) +
                           ", this program of " + std::to_string(sharing::db::kSchemaVersion);
  if (version > sharing::db::kSchemaVersion) {
    throw Failure(name + ": use the programs of the newer release");
  }
  throw Failure(name + ": start this release's velt-webapid on it once, which upgrades it");
}

void UseStore(const HostOptions& options) {
  OpenDatabase(options.database);
  sharing::StoreOptions store;
  store.connection = options.database;
  sharing::ConfigureStore(store);
}

std::string FirstLine(const soci::soci_error& error) {
  const std::string text = error.get_error_message();
  return text.substr(0, text.find('\n'));
}

long long Number(soci::session& sql, const std::string& statement) {
  long long number = 0;
  sql << statement, soci::into(number);
  return number;
}

}  // namespace VELT::tools
