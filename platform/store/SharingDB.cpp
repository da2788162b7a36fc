#include "veltsharing/SharingDB.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "platform/store/StoreContext.h"
#include "platform/store/sql/Connection.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Schema.h"
#include "platform/store/sql/Transaction.h"
#include "veltsharing/StoreOptions.h"

namespace VELT::sharing {
namespace db {

BaseDB::BaseDB() : connection_(std::make_unique<Connection>(ConnectionText())) {}
BaseDB::~BaseDB() = default;

SharingDB::SharingDB() = default;
SharingDB::~SharingDB() = default;

SharingDB* SharingDB::Instance() {
  static SharingDB instance;
  return &instance;
}

bool SharingDB::IsGood() const { return Connection::Of(*this).IsGood(); }

}  // namespace db

namespace {

void CreateTables(soci::session& session) {
  db::CreateVersionTable(session);
  db::Migrate(session);
}

// A new file. The destructor removes its name; hard links to the file stay.
class FreshFile {
 public:
  explicit FreshFile(std::string path) : path_(std::move(path)) {
    const int file = open(path_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    if (file < 0) throw std::system_error(errno, std::generic_category());
    close(file);
  }
  ~FreshFile() { unlink(path_.c_str()); }
  FreshFile(const FreshFile&) = delete;
  FreshFile& operator=(const FreshFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  const std::string path_;
};

// The file gets its name when it is complete, so that a crash leaves no partial one, and only if no
// other process has created one by then. A write-ahead log without its database belongs to one that
// was moved away. SQLite would write the links in that log into the new database.
void CreateSqliteFile(const std::string& path) {
  if (access(path.c_str(), F_OK) == 0) return;
  if (access((path + "-wal").c_str(), F_OK) == 0) {
    throw std::system_error(EEXIST, std::generic_category(),
                            "the write-ahead log of another database is in its place");
  }
  const FreshFile fresh(path + "." + std::to_string(getpid()) + ".new");
  {
    const auto session = db::OpenSession("sqlite3 " + fresh.path());
    // Nobody else has it open yet. Later, SQLite would refuse to wait for those who have.
    *session << "pragma journal_mode = wal";
    db::Transaction transaction(*session);
    CreateTables(*session);
    transaction.Commit();
  }
  if (link(fresh.path().c_str(), path.c_str()) != 0 && errno != EEXIST) {
    throw std::system_error(errno, std::generic_category());
  }
}

// Several hosts may start for the first time together. The lock makes the check for tables and
// their creation one step.
void CreatePostgresqlTables(const std::string& connection) {
  constexpr int kLock = 0x56454C54;  // "VELT"; any number that nothing else locks in this database
  const auto session = db::OpenSession(connection);
  db::Transaction transaction(*session);
  *session << "select 1 from pg_advisory_xact_lock(" << kLock << ")";
  int tables = 0;
  *session << "select count(*) from information_schema.tables where table_schema = "
              "current_schema() and table_name = 'schema_version'",
      soci::into(tables);
  if (tables == 0) CreateTables(*session);
  transaction.Commit();
}

}  // namespace

bool CreateStore() {
  try {
    const std::string path = db::SqlitePath(ConnectionText());
    if (path.empty()) {
      CreatePostgresqlTables(ConnectionText());
    } else {
      CreateSqliteFile(path);
    }
    return true;
  } catch (const soci::soci_error& error) {
    db::LogError("create the database", error);
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "sharing store: failed to create the database: %s", error.what());
  }
  return false;
}

}  // namespace VELT::sharing
