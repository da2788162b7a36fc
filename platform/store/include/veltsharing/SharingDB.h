// The sharing database and its tables.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"
#include "veltsharing/Session.h"
#include "veltsharing/Token.h"

namespace VELT::sharing::db {

class Connection;

// What a table accessor needs of its database. Not for use on its own.
class BaseDB {
 public:
  BaseDB(const BaseDB&) = delete;
  BaseDB& operator=(const BaseDB&) = delete;

 protected:
  BaseDB();
  ~BaseDB();

 private:
  friend class Connection;

  std::unique_ptr<Connection> connection_;
};

// The database that StoreOptions.h names, opened at first use in each process. One thread per
// process uses it; processes share it freely.
class SharingDB : public BaseDB {
 public:
  // Never null. Owned by the library.
  static SharingDB* Instance();
  SharingDB(const SharingDB&) = delete;
  SharingDB& operator=(const SharingDB&) = delete;

  // The database is open, of a schema that this library knows, and answers. One that is not is
  // tried again at the next call, so a database that comes back is used again.
  bool IsGood() const;

 private:
  SharingDB();
  ~SharingDB();
};

// Operations return false when nothing is found and on any failure, which is logged; an output
// record is then left empty. True means that the change is committed.
class EntryDB {
 public:
  explicit EntryDB(BaseDB& db);
  ~EntryDB();
  EntryDB(const EntryDB&) = delete;
  EntryDB& operator=(const EntryDB&) = delete;

  // A visitor (StoreOptions.h) finds no link that is disabled or whose owner has no account.
  bool GetByHash(const std::string& hash, record::Entry& entry);
  // Stores the entry as a new link and gives it a new id and hash, which the entry holds
  // afterwards. A failed call leaves the entry as it was.
  bool CreateWithHash(record::Entry& entry);
  // Writes the fields that were set since the entry was read or stored over those of the stored
  // link; what others have written meanwhile stays. Where it changes who is let in, the link's
  // visitors must log in again. False when the link is gone, and when it would be left without the
  // password, the users or the redirect address that it asks for.
  bool Update(const record::Entry& entry);
  // Removes the link and its visitors' tokens. False when it is gone already.
  bool Delete(const record::Entry& entry);

  // The condition that Count and Query of this object apply. Owned by the accessor.
  Condition* GetCondition() const;
  // Counts the matching links; ordering and limit do not matter.
  bool Count(int& n) const;
  bool Query(std::vector<record::Entry>& entries) const;

  // Removes the links whose auto-gc flag is set and that are past their expiry or used up; sessions
  // past their life go along. Owner 0xFFFFFFFF: every owner's; an empty project: every project's.
  bool PurgeExpiredByOwnerProject(std::uint32_t owner, const std::string& project);

 private:
  BaseDB& db_;
  std::unique_ptr<Condition> condition_;
};

class SessionDB {
 public:
  explicit SessionDB(BaseDB& db);
  // `sid` is the cookie's value; the database holds only its hash.
  bool GetBySessionId(const std::string& sid, record::Session& session) const;

 private:
  BaseDB& db_;
};

class TokenDB {
 public:
  explicit TokenDB(BaseDB& db);
  bool GetBySessionEntry(const record::Session& session, const record::Entry& entry,
                         record::Token& token) const;
  // Removes every token of the link: its visitors must log in again.
  bool PurgeByEntry(const record::Entry& entry);

 private:
  BaseDB& db_;
};

}  // namespace VELT::sharing::db
