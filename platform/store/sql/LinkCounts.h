// How many links there are, by owner and project, without counting them. Triggers keep the numbers
// with every statement that changes them, an older program's as well.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/store/sql/Soci.h"

namespace VELT::sharing::db {

// The statements that make the table of counts and its triggers, and count the links that are there.
extern const std::vector<std::string> kLinkCountTable;
extern const std::vector<std::string> kSqliteLinkCounts;
extern const std::vector<std::string> kPostgresqlLinkCounts;

// The links of an owner, of a project, of both, or all. Empty when the table can't give it. Throws
// soci::soci_error.
std::optional<long long> CountLinks(soci::session& sql, const std::optional<long long>& owner,
                                    const std::optional<std::string>& project);

}  // namespace VELT::sharing::db
