#include "platform/store/sql/Schema.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/LinkCounts.h"

namespace VELT::sharing::db {
namespace {

// The texts that replace the words in braces. Existing databases were created with them, so they
// must not change, just as the statements must not.
struct Words {
  const char* id;    // a primary key whose values are never used again
  const char* text;  // texts that are sorted by their bytes
  // The columns, after the owner, of the index for an owner's lists. In SQLite it has every column
  // that a list can be sorted by, so that sorting need not read the table, where an owner's rows
  // are scattered. PostgreSQL can't index long texts.
  const char* list;
  const char* before_text_key;  // as in Dialect
  const char* after_text_key;
  // The columns that end an index of an order, so that a filter need not read the table.
  const char* filters;
  const char* project;
  const char* by_key;  // ends a table that is found by its primary key alone
};

constexpr Words kSqlite{
    "integer primary key autoincrement",
    "text",
    ", project_name, enabled, auto_gc, enable_match_ip, start_at, expire_at, expire_times, visits, "
    "protect_type, protect_title, redirect_type, redirect_uri, created_at, hash",
    "",
    "",
    ", owner_uid, project_name",
    ", project_name",
    " without rowid"};

constexpr Words kPostgresql{"bigint generated always as identity primary key",
                            "text collate \"C\"",
                            "",
                            "substr(",
                            ", 1, 255)",
                            ", owner_uid",
                            "",
                            ""};

// Booleans are 0 or 1, times are seconds since 1970 UTC with 0 for no limit, lists and objects are
// JSON. `revision` counts the link's updates, so that a login notices an update that happens during
// it. A token has the address of the login that made it, since later logins change the session's.
const std::vector<std::string> kVersion1 = {
    R"(create table link (
         id {id}, hash {text} not null unique, owner_uid bigint not null,
         project_name {text} not null, enabled bigint not null, auto_gc bigint not null,
         enable_match_ip bigint not null, start_at bigint not null, expire_at bigint not null,
         expire_times bigint not null, visits bigint not null, protect_type bigint not null,
         protect_title {text} not null, password_hash {text} not null,
         protect_users {text} not null, protect_groups {text} not null,
         redirect_type bigint not null, redirect_uri {text} not null, app {text} not null,
         private_data {text} not null, created_at bigint not null, revision bigint not null))",
    "create index link_list on link (owner_uid{list})",
    R"(create table visitor_session (
         id {id}, sid_hash {text} not null unique, address {text} not null,
         last_used bigint not null))",
    "create index visitor_session_last_used on visitor_session (last_used)",
    R"(create table visitor_token (
         session_id bigint not null references visitor_session (id) on delete cascade,
         link_id bigint not null references link (id) on delete cascade,
         address {text} not null, primary key (session_id, link_id)))",
    "create index visitor_token_link on visitor_token (link_id)",
    R"(create table login_failure (
         link_id bigint not null references link (id) on delete cascade, address {text} not null,
         failed_at bigint not null))",
    "create index login_failure_address on login_failure (link_id, address, failed_at)",
    "create index login_failure_time on login_failure (failed_at)",
};

const std::vector<std::string> kVersion2 = {
    "drop index visitor_token_link",
    "create index visitor_token_address on visitor_token (link_id, address, session_id)",
};

// `protection` counts the changes of the link's protection. A token has the count at the time of
// its login, and is invalid when the link's is another. Failed logins are kept when their link is
// deleted: otherwise creating and deleting links would allow more guesses at an account.
const std::vector<std::string> kVersion3 = {
    "alter table link add column protection bigint not null default 0",
    "alter table visitor_token add column protection bigint not null default 0",
    R"(create table failed_login (
         link_id bigint not null, account {text} not null, address {text} not null,
         failed_at bigint not null))",
    R"(insert into failed_login (link_id, account, address, failed_at)
         select link_id, '', address, failed_at from login_failure)",
    "drop table login_failure",
    "create index failed_login_link on failed_login (link_id, address, failed_at)",
    "create index failed_login_account on failed_login (account, failed_at)",
    "create index failed_login_time on failed_login (failed_at)",
};

// `day` counts the days since 1970 of the appliance's calendar.
const std::vector<std::string> kVersion4 = {
    R"(create table visit_day (
         link_id bigint not null references link (id) on delete cascade, day bigint not null,
         visits bigint not null, primary key (link_id, day)))",
    "create index visit_day_day on visit_day (day)",
};

// An index for each order that a list can have, with the id, which orders equal values. So a page is
// read from the index alone, however many links there are before it and behind it.
const std::vector<std::string> kVersion5 = {
    "create index link_by_project_name on link ({key}project_name{/key}, id, owner_uid)",
    "create index link_by_owner_uid on link (owner_uid, id)",
    "create index link_by_enabled on link (enabled, id{filters})",
    "create index link_by_auto_gc on link (auto_gc, id{filters})",
    "create index link_by_enable_match_ip on link (enable_match_ip, id{filters})",
    "create index link_by_start_at on link (start_at, id{filters})",
    "create index link_by_expire_at on link (expire_at, id{filters})",
    "create index link_by_expire_times on link (expire_times, id{filters})",
    "create index link_by_visits on link (visits, id{filters})",
    "create index link_by_protect_type on link (protect_type, id{filters})",
    "create index link_by_protect_title on link ({key}protect_title{/key}, id{filters})",
    "create index link_by_redirect_type on link (redirect_type, id{filters})",
    "create index link_by_redirect_uri on link ({key}redirect_uri{/key}, id{filters})",
    "create index link_by_created_at on link (created_at, id{filters})",
    // The order in which an owner's page shows his links.
    "create index link_owner_created_at on link (owner_uid, created_at, id)",
};

// The table's own rows are too long to count off up to a page.
const std::vector<std::string> kSqliteVersion5 = {
    "create index link_by_id on link (id{filters})",
};
const std::vector<std::string> kPostgresqlVersion5 = {
    "drop index link_list",
};

// Owners of links that have signed in or have tokens. `credential` changes with the account's password
// and is empty after PAM has refused the account; a session has that of its sign-in. `projects` has a
// line for each project of a token that is not for all.
const std::vector<std::string> kVersion7 = {
    R"(create table owner_account (
         id {id}, name {text} not null unique, uid bigint not null, credential {text} not null,
         checked_at bigint not null, failures bigint not null))",
    R"(create table owner_session (
         id {id}, account_id bigint not null references owner_account (id) on delete cascade,
         sid_hash {text} not null unique, credential {text} not null, address {text} not null,
         browser {text} not null, stay bigint not null, failures bigint not null,
         created_at bigint not null, last_used bigint not null))",
    "create index owner_session_account on owner_session (account_id)",
    R"(create table owner_token (
         id {id}, account_id bigint not null references owner_account (id) on delete cascade,
         token_hash {text} not null unique, name {text} not null, may_change bigint not null,
         projects {text} not null, created_at bigint not null, last_used bigint not null,
         expire_at bigint not null))",
    "create index owner_token_account on owner_token (account_id)",
    "create table sign_in_key (name {text} not null primary key, secret {text} not null)",
    "create index failed_login_address on failed_login (address, failed_at)",
};

// When an address may try the password of a link that many addresses guess at.
const std::vector<std::string> kVersion8 = {
    R"(create table login_turn (
         link_id bigint not null references link (id) on delete cascade, address {text} not null,
         due_at bigint not null, primary key (link_id, address)))",
    "create index login_turn_due on login_turn (link_id, due_at)",
};

// What visitors did. `time` is that of the writing worker's clock, so ids order only nearly by it.
const std::vector<std::string> kVersion9 = {
    R"(create table link_event (
         id {id}, link_id bigint not null references link (id) on delete cascade,
         time bigint not null, kind {text} not null, file {text} not null, result {text} not null,
         address {text} not null, browser {text} not null, times bigint not null))",
    "create index link_event_link on link_event (link_id, id)",
    "create index link_event_time on link_event (time, id)",
};

// What owners want to be told, where to, and what waits for being told. `message` is the id of what
// is being sent, with the notices up to `up_to`; `taken_until` is when another process may send it,
// `code` what an address of mail is confirmed with.
const std::vector<std::string> kVersion10 = {
    R"(create table notify_channel (
         id {id}, owner_uid bigint not null, way {text} not null, account {text} not null,
         language {text} not null, kinds bigint not null, address {text} not null,
         code {text} not null, secret {text} not null, message {text} not null,
         up_to bigint not null, tries bigint not null, due_at bigint not null,
         taken_until bigint not null, failing_since bigint not null, error {text} not null,
         unique (owner_uid, way)))",
    R"(create table notify_link (
         link_id bigint not null primary key references link (id) on delete cascade,
         kinds bigint not null))",
    R"(create table notify_notice (
         id {id}, channel_id bigint not null references notify_channel (id) on delete cascade,
         time bigint not null, kind {text} not null, link {text} not null, title {text} not null,
         file {text} not null, times bigint not null))",
    "create index notify_notice_channel on notify_notice (channel_id, id)",
    // What happens to a link once.
    R"(create table notify_told (
         link_id bigint not null references link (id) on delete cascade, what {text} not null,
         primary key (link_id, what)))",
};

// The orders of an owner's links and of a project's, each with an index of its own: the others' links
// aren't counted off, and nothing is sorted.
std::vector<std::string> FilteredOrders() {
  std::vector<std::string> statements = {
      "drop index link_owner_created_at",
      "create index link_owner_project_name on link (owner_uid, {key}project_name{/key}, id)",
      "create index link_project_owner_uid on link ({key}project_name{/key}, owner_uid, id)",
  };
  for (const std::string column :
       {"hash", "enabled", "auto_gc", "enable_match_ip", "start_at", "expire_at", "expire_times",
        "visits", "protect_type", "{key}protect_title{/key}", "redirect_type",
        "{key}redirect_uri{/key}", "created_at"}) {
    const bool is_text = column.front() == '{';
    const std::string name = is_text ? column.substr(5, column.size() - 11) : column;
    statements.push_back("create index link_owner_" + name + " on link (owner_uid, " + column +
                         ", id{project})");
    statements.push_back("create index link_project_" + name +
                         " on link ({key}project_name{/key}, " + column + ", id, owner_uid)");
  }
  return statements;
}

const std::vector<std::string> kVersion11 = FilteredOrders();
const std::vector<std::string> kSqliteVersion11 = {"drop index link_list"};

const std::vector<std::string> kNone;

// The statements that lead from one version to the next: those for every database, then one's own.
struct Migration {
  const std::vector<std::string>& common;
  const std::vector<std::string>& sqlite = kNone;
  const std::vector<std::string>& postgresql = kNone;
};

constexpr auto kMigrations = std::to_array<Migration>({
    {kVersion1},
    {kVersion2},
    {kVersion3},
    {kVersion4},
    {kVersion5, kSqliteVersion5, kPostgresqlVersion5},
    {kLinkCountTable, kSqliteLinkCounts, kPostgresqlLinkCounts},
    {kVersion7},
    {kVersion8},
    {kVersion9},
    {kVersion10},
    {kVersion11, kSqliteVersion11},
});

std::string Translate(std::string statement, const Words& words) {
  const std::array<std::pair<std::string_view, const char*>, 8> translations = {
      {{"{id}", words.id},
       {"{text}", words.text},
       {"{list}", words.list},
       {"{key}", words.before_text_key},
       {"{/key}", words.after_text_key},
       {"{filters}", words.filters},
       {"{project}", words.project},
       {"{by_key}", words.by_key}}};
  for (const auto& [word, translation] : translations) {
    for (std::size_t at = 0; (at = statement.find(word)) != std::string::npos;) {
      statement.replace(at, word.size(), translation);
    }
  }
  return statement;
}

}  // namespace

const int kSchemaVersion = static_cast<int>(kMigrations.size());

int SchemaVersion(soci::session& session, const char* lock) {
  int version = 0;
  session << kSelectVersion << lock, soci::into(version);
  if (!session.got_data()) throw soci::soci_error("The schema version is missing.");
  return version;
}

void CreateVersionTable(soci::session& session) {
  session << "create table schema_version (version integer not null)";
  session << "insert into schema_version (version) values (0)";
}

void Migrate(soci::session& session) {
  // Another process may be migrating. The lock waits for it; then the new version is read.
  const int version = SchemaVersion(session, DialectOf(session).row_lock);
  if (version < 0) throw soci::soci_error("The schema version is not one of ours.");
  const bool is_sqlite = session.get_backend_name() == "sqlite3";
  const Words& words = is_sqlite ? kSqlite : kPostgresql;
  for (int next = version; next < kSchemaVersion; ++next) {
    const Migration& migration = kMigrations.at(static_cast<std::size_t>(next));
    for (const auto* statements :
         {&migration.common, is_sqlite ? &migration.sqlite : &migration.postgresql}) {
      for (const std::string& statement : *statements) session << Translate(statement, words);
    }
  }
  session << "update schema_version set version = :version", soci::use(kSchemaVersion);
}

}  // namespace VELT::sharing::db
