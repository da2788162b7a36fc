// The tables, their version, and how older ones are brought up.
#pragma once

#include "sql/Soci.h"

namespace VELT::sharing::db {

inline constexpr int kSchemaVersion = 3;

// SQL that reads the version of the tables.
inline constexpr const char* kSelectVersion = "select version from schema_version";

// The version of the tables that the database holds. Throws soci::soci_error when it holds none.
// `lock` is empty or, in a transaction, the dialect's row lock.
int SchemaVersion(soci::session& session, const char* lock = "");

// Makes the version table in a database that has no tables of ours yet.
void CreateVersionTable(soci::session& session);

// Brings the tables up to kSchemaVersion. To be called within a transaction that can write.
void Migrate(soci::session& session);

}  // namespace VELT::sharing::db
