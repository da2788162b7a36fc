// An SQLite database through SQLite's own interface, which copies whole databases.
#pragma once

#include <sqlite3.h>

#include <string>

namespace VELT::tools {

// A connection to an existing file. Every function throws Failure.
class SqliteFile {
 public:
  enum class Mode { kRead = SQLITE_OPEN_READONLY, kWrite = SQLITE_OPEN_READWRITE };

  SqliteFile(const std::string& path, Mode mode);
  ~SqliteFile() { sqlite3_close(db_); }
  SqliteFile(const SqliteFile&) = delete;
  SqliteFile& operator=(const SqliteFile&) = delete;

  void Execute(const std::string& sql);
  // The first value of the statement's first row.
  std::string Text(const std::string& sql);
  // Throws when the file is damaged or a row refers to a missing one.
  void CheckIntegrity();
  // Makes this database a copy of `other` as it is at one moment, in one transaction. Others may
  // use both meanwhile, and see this one's old state or the new one.
  void CopyFrom(const SqliteFile& other);
  // Whether no other process has the database open. If so, none can open it until this object ends.
  bool IsOursAlone();

 private:
  [[noreturn]] void Fail() const;

  const std::string path_;
  sqlite3* db_ = nullptr;
};

// A new file in the folder of `path`, readable by its owner alone. It is removed unless it is put
// in the place of `path`.
class NewFile {
 public:
  explicit NewFile(std::string path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  const std::string& path() const { return new_path_; }
  // Replaces an existing file only with `replace`. On return the change is on the disk.
  void PutInPlace(bool replace);

 private:
  const std::string path_;
  const std::string new_path_;
};

// The folder that `path` is in.
std::string FolderOf(const std::string& path);

// Gives a file that root has made to the folder's owner, so that the service can write it.
void GiveToFolderOwner(const std::string& path);

}  // namespace VELT::tools
