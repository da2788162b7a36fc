#include "tools/SqliteFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>

#include "tools/Command.h"
#include "veltsys/Descriptor.h"

namespace VELT::tools {
namespace {

constexpr int kPatience = 10'000;  // milliseconds that another process may hold the database

[[noreturn]] void FailAt(const std::string& path) {
  throw Failure(path + ": " + std::strerror(errno));
}

void Sync(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0 || fsync(file.get()) != 0) FailAt(path);
}

}  // namespace

SqliteFile::SqliteFile(const std::string& path, Mode mode) : path_(path) {
  const int result = sqlite3_open_v2(path.c_str(), &db_, static_cast<int>(mode), nullptr);
  if (result != SQLITE_OK) {
    const std::string reason = sqlite3_errstr(result);
    sqlite3_close(db_);
    throw Failure(path + ": " + reason);
  }
  sqlite3_busy_timeout(db_, kPatience);
}

void SqliteFile::Fail() const { throw Failure(path_ + ": " + sqlite3_errmsg(db_)); }

void SqliteFile::Execute(const std::string& sql) {
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) Fail();
}

std::string SqliteFile::Text(const std::string& sql) {
  sqlite3_stmt* prepared = nullptr;
  if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &prepared, nullptr) != SQLITE_OK) Fail();
  const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(prepared, sqlite3_finalize);
  const int result = sqlite3_step(prepared);
  if (result != SQLITE_ROW && result != SQLITE_DONE) Fail();
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(prepared, 0));
  return text == nullptr ? "" : text;
}

void SqliteFile::CheckIntegrity() {
  const std::string state = Text("pragma integrity_check");
  if (state != "ok") throw Failure(path_ + " is damaged: " + state);
  const std::string orphan = Text("pragma foreign_key_check");
  if (!orphan.empty())
    throw Failure(path_ + " is damaged: the table " + orphan + " refers to rows that are gone");
}

void SqliteFile::CopyFrom(const SqliteFile& other) {
  sqlite3_backup* backup = sqlite3_backup_init(db_, "main", other.db_, "main");
  if (backup == nullptr) Fail();
  int result = SQLITE_OK;
  for (int waited = 0; waited < kPatience; waited += 50) {
    result = sqlite3_backup_step(backup, -1);
    if (result != SQLITE_BUSY && result != SQLITE_LOCKED) break;
    sqlite3_sleep(50);
  }
  sqlite3_backup_finish(backup);
  if (result != SQLITE_DONE) throw Failure(path_ + ": " + sqlite3_errstr(result));
}

bool SqliteFile::IsOursAlone() {
  sqlite3_busy_timeout(db_, 0);
  Execute("pragma locking_mode = exclusive");
  const int result = sqlite3_exec(db_, "begin exclusive", nullptr, nullptr, nullptr);
  sqlite3_busy_timeout(db_, kPatience);
  if (result == SQLITE_BUSY) return false;
  if (result != SQLITE_OK) Fail();
  Execute("rollback");
  return true;
}

NewFile::NewFile(std::string path)
    : path_(std::move(path)), new_path_(path_ + "." + std::to_string(getpid()) + ".new") {
  const Descriptor file(open(new_path_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
  if (file.get() < 0) FailAt(new_path_);
}

NewFile::~NewFile() { unlink(new_path_.c_str()); }

void NewFile::PutInPlace(bool replace) {
  Sync(new_path_);
  const unsigned int flags = replace ? 0 : RENAME_NOREPLACE;
  if (renameat2(AT_FDCWD, new_path_.c_str(), AT_FDCWD, path_.c_str(), flags) != 0) FailAt(path_);
  Sync(FolderOf(path_));
}

std::string FolderOf(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  return folder.empty() ? "." : folder.string();
}

void GiveToFolderOwner(const std::string& path) {
  struct stat status {};
  if (geteuid() != 0) return;
  if (stat(FolderOf(path).c_str(), &status) != 0 ||
      chown(path.c_str(), status.st_uid, status.st_gid) != 0) {
    FailAt(path);
  }
}

}  // namespace VELT::tools
