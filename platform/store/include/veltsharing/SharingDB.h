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

// The part of SharingDB that the table accessors below use.
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

  // Whether the database is open, has a schema that this library knows, and answers. A database
  // that does not is opened again at the next call.
  bool IsGood() const;

 private:
  SharingDB();
  ~SharingDB();
};

// Operations return false when nothing is found, and on any failure, which is logged; GetBy... and
// Query then leave their output empty. True means that the change is committed. Nothing
// but std::bad_alloc is thrown.
class EntryDB {
 public:
  explicit EntryDB(BaseDB& db);
  ~EntryDB();
  EntryDB(const EntryDB&) = delete;
  EntryDB& operator=(const EntryDB&) = delete;

  // A visitor finds no link that is disabled or whose owner has no account.
  bool GetByHash(const std::string& hash, record::Entry& entry);
  // Stores the entry as a new link and gives it a new id and hash, which the entry holds
  // afterwards. A failed call leaves the entry as it was.
  bool CreateWithHash(record::Entry& entry);
  // Stores the fields that were set since the entry was read or stored. Changes that others have
  // made to other fields stay. If the protection changes, the link's visitors must log in again.
  // False when the link no longer exists, or would need a password, users or a redirect address and
  // have none.
  bool Update(const record::Entry& entry);
  // Removes the link and its visitors' tokens. False when it no longer exists.
  bool Delete(const record::Entry& entry);

  // The condition that Count and Query of this object apply. Owned by the accessor.
  Condition* GetCondition() const;
  // Counts the matching links; ordering and limit do not matter.
  bool Count(int& n) const;
  bool Query(std::vector<record::Entry>& entries) const;

  // Removes the links that are expired or used up and have the auto-gc flag, and sessions that have
  // ended. Owner 0xFFFFFFFF means every owner, an empty project every project.
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
