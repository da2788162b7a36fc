// The tables, their version, and the migration of older ones.
#pragma once

#include "platform/store/sql/Soci.h"

namespace VELT::sharing::db {

// The version that this library's migrations lead to.
extern const int kSchemaVersion;

// SQL that reads the version of the tables.
inline constexpr const char* kSelectVersion = "select version from schema_version";

// The version of the database's tables. Throws soci::soci_error when there is none. `lock` is empty
// or, in a transaction, the dialect's row lock.
int SchemaVersion(soci::session& session, const char* lock = "");

// Creates the version table in a database that has no tables of the store yet.
void CreateVersionTable(soci::session& session);

// Migrates the tables to kSchemaVersion. The caller has begun a transaction that can write.
void Migrate(soci::session& session);

}  // namespace VELT::sharing::db
