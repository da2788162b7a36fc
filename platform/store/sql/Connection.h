// The open database behind SharingDB, and the one place where SOCI's errors become `false`.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "platform/store/sql/StoreSession.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing::db {

// Opened when first needed. Opened again after an error, when the SQLite file was replaced, and
// when the server has ended the session, so that a restart of the server makes no later request
// fail.
class Connection {
 public:
  using Work = std::function<bool(StoreSession&)>;

  static Connection& Of(const BaseDB& db) { return *db.connection_; }

  // `database` is what StoreOptions calls its connection.
  explicit Connection(std::string database) : database_(std::move(database)) {}

  // Whether the database can be opened, has this version's tables and answers. A server is asked each
  // time. Of an open file only another program's migration can change the tables, which is noticed
  // within a second.
  bool IsGood() noexcept;

  // Closes the session and from now on uses `database`.
  void Use(std::string database);

  // Returns what `work` returns. False when the database can't be opened or `work` throws, which is
  // logged as a failure to `task`, an infinitive without "to".
  bool Run(const char* task, const Work& work) noexcept { return Try(task, work, false); }
  // The same for changes that owners ask for. On a full disk these use the Reserve, so that an owner
  // can always sign in, switch a link off and remove what he no longer needs. `work` may be called
  // again after it has thrown.
  bool RunWithReserve(const char* task, const Work& work) noexcept { return Try(task, work, true); }

 private:
  // The device and inode of the open SQLite file. A file that was removed or replaced must not be
  // written to, because changes would be reported as stored and then be lost.
  struct FileIdentity {
    dev_t device;
    ino_t inode;
    bool operator==(const FileIdentity&) const = default;
  };
  FileIdentity CurrentFile() const;

  void Open();
  bool Try(const char* task, const Work& work, bool may_use_reserve) noexcept;
  bool RunOnce(const Work& work);

  std::string database_;
  std::unique_ptr<StoreSession> session_;
  FileIdentity file_{};
  std::int64_t tables_seen_ = 0;  // the second in which the file's tables had this version
};

// Logs a failure to `task`, without the values that SOCI or a server adds to the message.
void LogError(const char* task, const soci::soci_error& error) noexcept;

}  // namespace VELT::sharing::db
