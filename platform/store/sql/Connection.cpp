#include "platform/store/sql/Connection.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/store/StoreContext.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Reserve.h"
#include "platform/store/sql/Schema.h"
#include "platform/store/sql/Transaction.h"
#include "veltsys/Counters.h"

namespace VELT::sharing::db {
namespace {

// Another process may take the reserve back between its being given up and its use.
constexpr int kAttempts = 3;

// Of SQLite's errors that of a full disk, and that of a disk's other failures: the index of its
// write-ahead log can't be made on a full disk either.
bool LacksRoom(const soci::soci_error& error) {
  const std::string message = error.get_error_message();
  return message.find("disk is full") != std::string::npos ||
         message.find("disk I/O error") != std::string::npos;
}

}  // namespace

void Connection::Use(std::string database) {
  session_.reset();
  database_ = std::move(database);
}

bool Connection::Try(const char* task, const Work& work, bool may_use_reserve) noexcept {
  try {
    Reserve reserve(SqlitePath(database_));
    for (int attempt = 1;; ++attempt) {
      try {
        const bool opens = session_ == nullptr;
        const bool done = RunOnce(work);
        // Taken back at once, before others use the room up.
        if (opens || attempt > 1) reserve.Fill();
        return done;
      } catch (const soci::soci_error& error) {
        // Without room not even a closed database can be opened, to read.
        const bool may = may_use_reserve || session_ == nullptr;
        // After a failure the session may be unusable. Opening a new one costs little.
        session_.reset();
        if (attempt == kAttempts || !may || !LacksRoom(error)) {
          if (attempt > 1) reserve.Fill();
          LogError(task, error);
          break;
        }
        syslog(LOG_WARNING, "sharing store: the reserve is given up to %s", task);
        reserve.GiveUp();
      }
    }
  } catch (const std::exception&) {
    syslog(LOG_ERR, "sharing store: unexpected failure to %s", task);
  }
  Count(Event::kStoreFailure);
  session_.reset();
  return false;
}

bool Connection::RunOnce(const Work& work) {
  if (session_ != nullptr && (CurrentFile() != file_ || IsLost(session_->sql()))) {
    session_.reset();
  }
  if (session_ == nullptr) Open();
  return work(*session_);
}

bool Connection::IsGood() noexcept {
  return Run("check the database", [this](StoreSession& store) {
    const std::int64_t now = Now();
    const bool is_file = file_ != FileIdentity{};
    if (is_file && now == tables_seen_) return true;
    if (store.statements().SchemaVersion() != kSchemaVersion) return false;
    tables_seen_ = now;
    return true;
  });
}

Connection::FileIdentity Connection::CurrentFile() const {
  const std::string path = SqlitePath(database_);
  struct stat status {};
  if (path.empty() || stat(path.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

void Connection::Open() {
  tables_seen_ = 0;
  const FileIdentity before = CurrentFile();
  const std::string path = SqlitePath(database_);
  // SQLite would open such a file read-only, and would not notice when it becomes writable again.
  if (!path.empty() && faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) {
    throw soci::soci_error(std::string("The database file can't be written: ") +
                           std::strerror(errno));
  }
  auto session = OpenSession(database_);
  // The version is read first, so that nothing is written into a database that is not ours.
  const int version = SchemaVersion(*session);
  if (version > kSchemaVersion) {
    throw soci::soci_error("The database was made by a newer version: " + std::to_string(version));
  }
  if (!path.empty()) *session << "pragma journal_mode = wal";
  if (version < kSchemaVersion) {
    Transaction transaction(*session);
    Migrate(*session);
    transaction.Commit();
  }
  file_ = before;
  session_ = std::make_unique<StoreSession>(std::move(session));
}

void LogError(const char* task, const soci::soci_error& error) noexcept {
  // what() contains bound values, and so may a PostgreSQL message after its first line.
  const std::string message = error.get_error_message();
  syslog(LOG_ERR, "sharing store: failed to %s: %s", task,
         message.substr(0, message.find('\n')).c_str());
}

}  // namespace VELT::sharing::db
