#include "platform/store/sql/PreparedStatements.h"

#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Schema.h"
#include "platform/store/sql/Statement.h"

namespace VELT::sharing::db {
namespace {

// Each has one statement and the variables that are bound to it, which must not move. The statement
// is the last member, so that it is destroyed first.

struct Plain {
  Plain(soci::session& sql, const char* text) : statement(sql) { Prepare(statement, text); }
  soci::statement statement;
};

struct VersionRead {
  explicit VersionRead(soci::session& sql) : statement(sql) {
    statement.exchange(soci::into(version));
    Prepare(statement, kSelectVersion);
  }
  int version = 0;
  soci::statement statement;
};

struct LinkRead {
  LinkRead(soci::session& sql, const char* suffix) : statement(sql) {
    row.ReadFrom(statement);
    statement.exchange(soci::use(hash));
    Prepare(statement, EntryRow::Select() + " where hash = :hash" + suffix);
  }
  const EntryRow* Run(const std::string& wanted) {
    hash = wanted;
    return RunToEnd(statement) ? &row : nullptr;
  }
  std::string hash;
  EntryRow row;
  soci::statement statement;
};

struct LinkReadById {
  explicit LinkReadById(soci::session& sql) : statement(sql) {
    row.ReadFrom(statement);
    statement.exchange(soci::use(id));
    Prepare(statement, EntryRow::Select() + " where id = :id");
  }
  long long id = 0;
  EntryRow row;
  soci::statement statement;
};

struct SessionRead {
  SessionRead(soci::session& sql, const char* suffix) : statement(sql) {
    statement.exchange(soci::into(row.id));
    statement.exchange(soci::into(row.address));
    statement.exchange(soci::into(row.last_used));
    statement.exchange(soci::use(sid_hash));
    Prepare(statement, std::string("select id, address, last_used from visitor_session "
                                   "where sid_hash = :hash") +
                           suffix);
  }
  const SessionRow* Run(const std::string& wanted) {
    sid_hash = wanted;
    return RunToEnd(statement) ? &row : nullptr;
  }
  std::string sid_hash;
  SessionRow row;
  soci::statement statement;
};

struct TokenRead {
  explicit TokenRead(soci::session& sql) : statement(sql) {
    statement.exchange(soci::into(row.address));
    statement.exchange(soci::into(row.protection));
    statement.exchange(soci::use(session));
    statement.exchange(soci::use(link));
    Prepare(statement,
            "select address, protection from visitor_token "
            "where session_id = :session and link_id = :link");
  }
  long long session = 0;
  long long link = 0;
  TokenRow row;
  soci::statement statement;
};

struct OwnerSessionRead {
  explicit OwnerSessionRead(soci::session& sql) : statement(sql) {
    for (long long* number : {&row.id, &row.created_at, &row.last_used, &row.stay, &row.failures,
                              &row.uid, &row.checked_at}) {
      statement.exchange(soci::into(*number));
    }
    statement.exchange(soci::into(row.account));
    statement.exchange(soci::use(hash));
    Prepare(
        statement,
        "select s.id, s.created_at, s.last_used, s.stay, s.failures, a.uid, a.checked_at, a.name "
        "from owner_session s join owner_account a on a.id = s.account_id "
        "where s.sid_hash = :hash and s.credential = a.credential");
  }
  std::string hash;
  OwnerSessionRow row;
  soci::statement statement;
};

struct OwnerTokenRead {
  explicit OwnerTokenRead(soci::session& sql) : statement(sql) {
    for (long long* number :
         {&row.id, &row.may_change, &row.last_used, &row.expire_at, &row.uid, &row.checked_at}) {
      statement.exchange(soci::into(*number));
    }
    statement.exchange(soci::into(row.projects));
    statement.exchange(soci::into(row.account));
    statement.exchange(soci::into(row.credential));
    statement.exchange(soci::use(hash));
    Prepare(statement,
            "select t.id, t.may_change, t.last_used, t.expire_at, a.uid, a.checked_at, t.projects, "
            "a.name, "
            "a.credential from owner_token t join owner_account a on a.id = t.account_id "
            "where t.token_hash = :hash");
  }
  std::string hash;
  OwnerTokenRow row;
  soci::statement statement;
};

struct LinkInsert {
  explicit LinkInsert(soci::session& sql) : statement(sql) {
    Prepare(statement, row.BindInsert(statement, new_id));
  }
  EntryRow row;
  long long new_id = 0;
  soci::statement statement;
};

// Writes the columns that changed alone: SQLite goes through the index of every column that is
// written, whatever it held before.
struct LinkUpdate {
  LinkUpdate(soci::session& sql, unsigned int changed) : statement(sql) {
    row.changed = changed;
    Prepare(statement, row.BindUpdate(statement));
  }
  EntryRow row;
  soci::statement statement;
};

struct VisitCount {
  explicit VisitCount(soci::session& sql) : statement(sql) {
    statement.exchange(soci::use(link));
    Prepare(statement,
            "update link set visits = visits + 1 "
            "where id = :id and (expire_times = 0 or visits < expire_times)");
  }
  long long link = 0;
  soci::statement statement;
};

struct DayCount {
  explicit DayCount(soci::session& sql) : statement(sql) {
    statement.exchange(soci::use(link));
    statement.exchange(soci::use(day));
    Prepare(statement,
            "insert into visit_day (link_id, day, visits) values (:link, :day, 1) "
            "on conflict (link_id, day) do update set visits = visit_day.visits + 1");
  }
  long long link = 0;
  long long day = 0;
  soci::statement statement;
};

struct OldDayRemoval {
  explicit OldDayRemoval(soci::session& sql) : statement(sql) {
    statement.exchange(soci::use(link));
    statement.exchange(soci::use(oldest));
    Prepare(statement, "delete from visit_day where link_id = :link and day < :oldest");
  }
  long long link = 0;
  long long oldest = 0;
  soci::statement statement;
};

struct SessionInsert {
  explicit SessionInsert(soci::session& sql) : statement(sql) {
    statement.exchange(soci::use(sid_hash));
    statement.exchange(soci::use(address));
    statement.exchange(soci::use(now));
    statement.exchange(soci::into(new_id));
    Prepare(statement,
            "insert into visitor_session (sid_hash, address, last_used) "
            "values (:hash, :address, :now) returning id");
  }
  std::string sid_hash;
  std::string address;
  long long now = 0;
  long long new_id = 0;
  soci::statement statement;
};

struct TokenInsert {
  explicit TokenInsert(soci::session& sql) : statement(sql) {
    statement.exchange(soci::use(session));
    statement.exchange(soci::use(link));
    statement.exchange(soci::use(address));
    statement.exchange(soci::use(protection));
    Prepare(statement,
            "insert into visitor_token (session_id, link_id, address, protection) "
            "values (:session, :link, :address, :protection) "
            "on conflict (session_id, link_id) do update "
            "set address = excluded.address, protection = excluded.protection");
  }
  long long session = 0;
  long long link = 0;
  std::string address;
  long long protection = 0;
  soci::statement statement;
};

struct DeadSessionRemoval {
  explicit DeadSessionRemoval(soci::session& sql) : statement(sql) {
    statement.exchange(soci::use(unused_since));
    Prepare(statement, RemoveDeadSessionsSql(DialectOf(sql), 100));
  }
  long long unused_since = 0;
  soci::statement statement;
};

struct SurplusSessionRemoval {
  explicit SurplusSessionRemoval(soci::session& sql) : statement(sql) {
    statement.exchange(soci::use(link));
    statement.exchange(soci::use(address));
    Prepare(statement, std::string("delete from visitor_session where ") + DialectOf(sql).if_alone +
                           "id in (select session_id from visitor_token where link_id = :link "
                           "and address = :address order by session_id desc limit 100 offset 999)");
  }
  long long link = 0;
  std::string address;
  soci::statement statement;
};

}  // namespace

struct PreparedStatements::Statements {
  explicit Statements(soci::session& sql)
      : begin(sql, DialectOf(sql).begin),
        commit(sql, "commit"),
        read_version(sql),
        read_link(sql, ""),
        read_enabled_link(sql, " and enabled = 1"),
        lock_link(sql, DialectOf(sql).row_lock),
        read_link_by_id(sql),
        read_session(sql, ""),
        lock_session(sql, DialectOf(sql).row_lock),
        read_token(sql),
        read_owner_session(sql),
        read_owner_token(sql),
        insert_link(sql),
        count_visit(sql),
        count_day(sql),
        remove_old_days(sql),
        insert_session(sql),
        insert_token(sql),
        remove_dead(sql),
        remove_surplus(sql) {}

  Plain begin;
  Plain commit;
  VersionRead read_version;
  LinkRead read_link;
  LinkRead read_enabled_link;
  LinkRead lock_link;
  LinkReadById read_link_by_id;
  SessionRead read_session;
  SessionRead lock_session;
  TokenRead read_token;
  OwnerSessionRead read_owner_session;
  OwnerTokenRead read_owner_token;
  LinkInsert insert_link;
  std::unique_ptr<LinkUpdate> update_link;  // the last kind
  VisitCount count_visit;
  DayCount count_day;
  OldDayRemoval remove_old_days;
  SessionInsert insert_session;
  TokenInsert insert_token;
  DeadSessionRemoval remove_dead;
  SurplusSessionRemoval remove_surplus;
};

PreparedStatements::PreparedStatements(soci::session& sql)
    : sql_(sql), statements_(std::make_unique<Statements>(sql)) {}
PreparedStatements::~PreparedStatements() = default;

void PreparedStatements::Begin() { statements_->begin.statement.execute(true); }

void PreparedStatements::Commit() { statements_->commit.statement.execute(true); }

int PreparedStatements::SchemaVersion() {
  auto& [version, statement] = statements_->read_version;
  if (!RunToEnd(statement)) throw soci::soci_error("The schema version is missing.");
  return version;
}

const EntryRow* PreparedStatements::FindLink(const std::string& hash) {
  return statements_->read_link.Run(hash);
}

const EntryRow* PreparedStatements::FindEnabledLink(const std::string& hash) {
  return statements_->read_enabled_link.Run(hash);
}

const EntryRow* PreparedStatements::LockLink(const std::string& hash) {
  return statements_->lock_link.Run(hash);
}

const EntryRow* PreparedStatements::FindLinkById(long long id) {
  auto& read = statements_->read_link_by_id;
  read.id = id;
  return RunToEnd(read.statement) ? &read.row : nullptr;
}

const SessionRow* PreparedStatements::FindSession(const std::string& sid_hash) {
  return statements_->read_session.Run(sid_hash);
}

const SessionRow* PreparedStatements::LockSession(const std::string& sid_hash) {
  return statements_->lock_session.Run(sid_hash);
}

const TokenRow* PreparedStatements::FindToken(long long session, long long link) {
  auto& read = statements_->read_token;
  read.session = session;
  read.link = link;
  return RunToEnd(read.statement) ? &read.row : nullptr;
}

const OwnerSessionRow* PreparedStatements::FindOwnerSession(const std::string& sid_hash) {
  auto& read = statements_->read_owner_session;
  read.hash = sid_hash;
  return RunToEnd(read.statement) ? &read.row : nullptr;
}

const OwnerTokenRow* PreparedStatements::FindOwnerToken(const std::string& token_hash) {
  auto& read = statements_->read_owner_token;
  read.hash = token_hash;
  return RunToEnd(read.statement) ? &read.row : nullptr;
}

long long PreparedStatements::InsertLink(const EntryRow& row) {
  auto& insert = statements_->insert_link;
  insert.row = row;
  if (!RunToEnd(insert.statement)) throw soci::soci_error("The new link got no id.");
  return insert.new_id;
}

void PreparedStatements::UpdateLink(const EntryRow& row) {
  auto& update = statements_->update_link;
  if (update == nullptr || update->row.changed != row.changed) {
    update = std::make_unique<LinkUpdate>(sql_, row.changed);
  }
  update->row = row;
  update->statement.execute(true);
}

bool PreparedStatements::CountVisit(long long link) {
  auto& count = statements_->count_visit;
  count.link = link;
  count.statement.execute(true);
  return count.statement.get_affected_rows() == 1;
}

void PreparedStatements::CountVisitOfDay(long long link, long long day, long long oldest) {
  auto& count = statements_->count_day;
  count.link = link;
  count.day = day;
  count.statement.execute(true);
  auto& removal = statements_->remove_old_days;
  removal.link = link;
  removal.oldest = oldest;
  removal.statement.execute(true);
}

long long PreparedStatements::InsertSession(const std::string& sid_hash, const std::string& address,
                                            long long now) {
  auto& insert = statements_->insert_session;
  insert.sid_hash = sid_hash;
  insert.address = address;
  insert.now = now;
  if (!RunToEnd(insert.statement)) throw soci::soci_error("The new session got no id.");
  return insert.new_id;
}

void PreparedStatements::InsertToken(long long session, const EntryRow& link,
                                     const std::string& address) {
  auto& insert = statements_->insert_token;
  insert.session = session;
  insert.link = link.id;
  insert.address = address;
  insert.protection = link.protection;
  insert.statement.execute(true);
}

void PreparedStatements::RemoveDeadSessions(long long unused_since) {
  auto& remove = statements_->remove_dead;
  remove.unused_since = unused_since;
  remove.statement.execute(true);
}

void PreparedStatements::RemoveSurplusSessions(long long link, const std::string& address) {
  auto& remove = statements_->remove_surplus;
  remove.link = link;
  remove.address = address;
  remove.statement.execute(true);
}

}  // namespace VELT::sharing::db
