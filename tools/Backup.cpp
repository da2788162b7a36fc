// backup and restore of an SQLite database. Both copy through SQLite, so that a running service
// always sees one whole database and loses nothing that it has reported as stored.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <string>

#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Schema.h"
#include "platform/store/sql/Transaction.h"
#include "tools/Command.h"
#include "tools/Database.h"
#include "tools/SqliteFile.h"

namespace VELT::tools {
namespace {

std::string PathOf(const HostOptions& options, const char* instead) {
  std::string path = sharing::db::SqlitePath(options.database);
  if (path.empty()) {
    throw Failure(std::string("PostgreSQL has its own program for this: use ") + instead);
  }
  return path;
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

bool IsSameFile(const std::string& one, const std::string& other) {
  struct stat first {};
  struct stat second {};
  return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

int VersionOf(SqliteFile& file) {
  const std::string text = file.Text("select version from schema_version");
  int version = 0;
  std::from_chars(text.data(), text.data() + text.size(), version);
  return version;
}

long long LinksOf(SqliteFile& file) { return std::stoll(file.Text("select count(*) from link")); }

// A backup must be undamaged and of a version that this release can use.
void CheckBackup(SqliteFile& file, const std::string& path) {
  file.CheckIntegrity();
  const int version = VersionOf(file);
  if (version < 1 || version > sharing::db::kSchemaVersion) {
    throw Failure(path + " is of schema version " + std::to_string(version) + ", this program of " +
                  std::to_string(sharing::db::kSchemaVersion) +
                  ": use the programs of the release that made it");
  }
}

void Upgrade(const std::string& path) {
  const auto session = sharing::db::OpenSession("sqlite3 " + path);
  sharing::db::Transaction transaction(*session);
  sharing::db::Migrate(*session);
  transaction.Commit();
}

enum class Target { kMissing, kEmpty, kInUse, kFull, kUnusable };

Target StateOf(const std::string& path) {
  if (!Exists(path)) return Target::kMissing;
  try {
    SqliteFile file(path, SqliteFile::Mode::kWrite);
    const bool full =
        LinksOf(file) != 0 || file.Text("select count(*) from visitor_session") != "0";
    if (full) return Target::kFull;
    return file.IsOursAlone() ? Target::kEmpty : Target::kInUse;
  } catch (const Failure&) {
    return Target::kUnusable;
  }
}

// Null when the target may be replaced.
const char* ReasonToKeep(Target state) {
  switch (state) {
    case Target::kMissing:
    case Target::kEmpty:
      return nullptr;
    case Target::kInUse:
      return "is in use";
    case Target::kFull:
      return "holds links or visits";
    case Target::kUnusable:
      return "is damaged or no database of share links";
  }
  return nullptr;
}

// SQLite would write a log that it finds beside a new database into that database.
void RemoveLog(const std::string& path) {
  for (const char* suffix : {"-wal", "-shm", "-journal"}) {
    const std::string log = path + suffix;
    if (unlink(log.c_str()) != 0 && errno != ENOENT) {
      throw Failure(log + ": " + std::strerror(errno));
    }
  }
}

}  // namespace

Json::Value Backup(const HostOptions& options, const std::string& file, bool force) {
  const std::string path = PathOf(options, "pg_dump");
  int version = 0;
  OpenAnyVersion(options.database, version);
  if (IsSameFile(path, file) || Exists(file + "-wal"))
    throw Failure(file + " is a database in use");
  if (!force && Exists(file)) throw Failure(file + " exists; --force replaces it");
  NewFile copy(file);
  Json::Value result;
  {
    const SqliteFile source(path, SqliteFile::Mode::kWrite);
    SqliteFile target(copy.path(), SqliteFile::Mode::kWrite);
    target.CopyFrom(source);
    // So that the copy is one file, which can be read in a folder that nobody can write to.
    target.Execute("pragma journal_mode = delete");
    target.CheckIntegrity();
    result["links"] = Json::Int64{LinksOf(target)};
  }
  copy.PutInPlace(force);
  result["file"] = file;
  result["schema_version"] = version;
  return result;
}

Json::Value Restore(const HostOptions& options, const std::string& file, bool force) {
  const std::string path = PathOf(options, "pg_restore, or psql for a dump that is plain text");
  const Target state = StateOf(path);
  if (const char* why = ReasonToKeep(state); why != nullptr && !force) {
    throw Failure(path + " " + why + "; --force replaces it");
  }
  if (state == Target::kMissing && Exists(path + "-wal")) {
    throw Failure(path + "-wal is the log of a database that was moved away: move it there too");
  }
  NewFile copy(path);
  Json::Value result;
  {
    SqliteFile source(file, SqliteFile::Mode::kRead);
    CheckBackup(source, file);
    SqliteFile target(copy.path(), SqliteFile::Mode::kWrite);
    target.CopyFrom(source);
    result["links"] = Json::Int64{LinksOf(target)};
    result["schema_version"] = VersionOf(target);
  }
  Upgrade(copy.path());
  GiveToFolderOwner(copy.path());
  if (state == Target::kMissing || state == Target::kUnusable) {
    if (state == Target::kUnusable) RemoveLog(path);
    copy.PutInPlace(state == Target::kUnusable);
  } else {
    const SqliteFile source(copy.path(), SqliteFile::Mode::kRead);
    SqliteFile(path, SqliteFile::Mode::kWrite).CopyFrom(source);
  }
  result["file"] = file;
  return result;
}

}  // namespace VELT::tools
