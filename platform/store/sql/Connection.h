// The open database behind SharingDB, and the one seam where SOCI's errors become `false`.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>

#include "sql/LoginStatements.h"
#include "sql/PreparedStatements.h"
#include "sql/Soci.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing::db {

// Rolls back unless committed. Under SQLite nobody else writes meanwhile; under PostgreSQL only
// rows that were read with the dialect's row lock stay as they are.
class Transaction {
 public:
  explicit Transaction(soci::session& session);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

 private:
  soci::session& session_;
  bool open_ = true;
};

// Opened when first needed, and again after an error or when the SQLite file was replaced.
class Connection {
 public:
  using Work = std::function<bool(soci::session&)>;

  static Connection& Of(const BaseDB& db) { return *db.connection_; }

  // What `work` returns; false when the database can't be opened or `work` throws, which is logged
  // as having happened during `task`.
  bool Run(const char* task, const Work& work) noexcept;

  // Only while Run is at work.
  PreparedStatements& kept() { return *kept_; }
  LoginStatements& login() { return *login_; }

  void Close() noexcept;

 private:
  // The device and inode of the SQLite file that is open: one that was removed or replaced must not
  // be written to, or what was told to be stored would be lost.
  struct FileIdentity {
    dev_t device;
    ino_t inode;
    bool operator==(const FileIdentity&) const = default;
  };
  static FileIdentity CurrentFile();

  void Open();

  std::unique_ptr<soci::session> session_;
  std::unique_ptr<PreparedStatements> kept_;  // of session_, so they go first
  std::unique_ptr<LoginStatements> login_;
  FileIdentity file_{};
};

// Logs an error without anything that SOCI, or a server, adds about the values in hand.
void LogError(const char* task, const soci::soci_error& error) noexcept;

}  // namespace VELT::sharing::db
