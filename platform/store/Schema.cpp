#include "Schema.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "Dialect.h"

namespace VELT::sharing::db {
namespace {

// Booleans are 0 or 1, times seconds since 1970 UTC with 0 for no limit, lists and objects JSON.
// `revision` counts the link's updates: a login that was overtaken by one notices it. A token keeps the address of the login that made it, since a session moves on with the
// visitor.
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

// What leads from each version to the next.
const std::array<const std::vector<std::string>*, kSchemaVersion> kMigrations = {&kVersion1,
                                                                                 &kVersion2};

std::string Translate(std::string statement, const Dialect& dialect) {
  const std::array<std::pair<std::string_view, const char*>, 3> words = {
      {{"{id}", dialect.id_column}, {"{text}", dialect.text_type}, {"{list}", dialect.list_index}}};
  for (const auto& [word, translation] : words) {
    for (std::size_t at = 0; (at = statement.find(word)) != std::string::npos;) {
      statement.replace(at, word.size(), translation);
    }
  }
  return statement;
}

}  // namespace

int SchemaVersion(soci::session& session) {
  int version = 0;
  session << "select version from schema_version", soci::into(version);
  if (!session.got_data()) throw soci::soci_error("The schema version is missing.");
  return version;
}

void CreateVersionTable(soci::session& session) {
  session << "create table schema_version (version integer not null)";
  session << "insert into schema_version (version) values (0)";
}

void Migrate(soci::session& session) {
  const int version = SchemaVersion(session);
  if (version < 0) throw soci::soci_error("The schema version is not one of ours.");
  for (int next = version; next < kSchemaVersion; ++next) {
    for (const std::string& statement : *kMigrations.at(static_cast<std::size_t>(next))) {
      session << Translate(statement, DialectOf(session));
    }
  }
  session << "update schema_version set version = :version", soci::use(kSchemaVersion);
}

}  // namespace VELT::sharing::db
