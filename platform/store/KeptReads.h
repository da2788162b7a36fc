// The two reads that nearly every request makes, kept prepared: preparing them costs more than they do.
#pragma once

#include <optional>
#include <string>

#include "EntryRow.h"
#include "Soci.h"

namespace VELT::sharing::db {

// Belongs to the session that it is made for and must end before it. Between two calls no read is
// under way, so no other process is held up.
class KeptReads {
 public:
  explicit KeptReads(soci::session& sql);
  KeptReads(const KeptReads&) = delete;
  KeptReads& operator=(const KeptReads&) = delete;

  // Throws soci::soci_error when there is none.
  int SchemaVersion();
  // Null when no link has this hash. Valid until the next call.
  const EntryRow* FindLink(const std::string& hash);

 private:
  int version_ = 0;
  std::string hash_;
  EntryRow row_;
  soci::statement read_version_;
  soci::statement read_link_;
};

}  // namespace VELT::sharing::db
