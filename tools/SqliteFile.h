// An SQLite database through SQLite's own interface, which copies whole databases.
#pragma once

#include <sqlite3.h>

#include <string>

namespace VELT::tools {

// One open connection to a file that exists. Everything throws Failure.
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
  // Damage, or what refers to something that isn't there, throws.
  void CheckIntegrity();
  // Makes this database a copy of `other` as it is at one moment, in one transaction: others may
  // go on with both, and see the old one or the new one.
  void CopyFrom(const SqliteFile& other);
  // No other process has the database open. From then on none can, until this object ends.
  bool IsOursAlone();

 private:
  [[noreturn]] void Fail() const;

  const std::string path_;
  sqlite3* db_ = nullptr;
};

// A file made in the folder of `path` for its place, readable by its owner alone. It goes away
// again unless it is put there.
class NewFile {
 public:
  explicit NewFile(std::string path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  const std::string& path() const { return new_path_; }
  // Takes the place of a file that is there only with `replace`. Lasts once it has returned.
  void PutInPlace(bool replace);

 private:
  const std::string path_;
  const std::string new_path_;
};

// The folder that `path` is in.
std::string FolderOf(const std::string& path);

// What root makes for the service belongs to whom the folder belongs, or the service could not
// write it.
void GiveToFolderOwner(const std::string& path);

}  // namespace VELT::tools
