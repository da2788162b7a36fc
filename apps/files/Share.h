// What a link shares: what its data names, as far as the configuration and its owner's rights allow
// it now.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "apps/files/Configuration.h"
#include "apps/files/Ids.h"
#include "apps/files/Tree.h"
#include "veltsharing/Entry.h"

namespace VELT::files {

// What visitors may leave. The link's data hold it as "upload": {"max_size": BYTES of one file,
// "max_files": NUMBER, "only": true when visitors see none of the folder's files, "note": what the owner
// tells them}.
struct UploadRule {
  bool allowed = false;
  bool only = false;
  std::string note;
  std::uint64_t max_size = 0;
  std::uint64_t max_files = 0;
};

// The rule for a page, which reads numbers as JavaScript does: a limit beyond the largest exact one
// is no limit in practice, and is left out.
Json::Value ToJson(const UploadRule& rule);

// A link's data, {"root": NAME, "items": [PATHS, see Names.h], "upload": {...}}, comes from its
// owner and is not trusted: every use looks each path up again.
class Share {
 public:
  // Throws Refusal: kNothingShared when the data has another shape, kNoRoot, or kNoLink when the
  // owner's account is gone.
  explicit Share(const sharing::record::Entry& entry);
  // What an owner uploads to: a folder beneath one of the account's roots. Throws Refusal(kNoRoot).
  Share(const Account& owner, const std::string& root, const std::string& folder);

  const Account& owner() const { return owner_; }
  const Configuration& configuration() const { return configuration_; }
  const Root& root() const { return root_; }
  const std::vector<std::string>& items() const { return items_; }  // paths beneath the root
  const UploadRule& upload() const { return upload_; }

  // The path beneath the root for a visitor's path, "<number of the item>[/<path>]" (see Names.h).
  // Throws Refusal(kNotFound).
  std::string PathOf(const std::string& visitors) const;
  // The name that visitors see for a path beneath the root.
  std::string NameOf(const std::string& path) const;

  // Finds what is at a path beneath the root. Call it with the owner's ids. Throws Refusal.
  Found Find(const std::string& path) const;

 private:
  Configuration configuration_;
  Account owner_;
  Root root_;
  std::vector<std::string> items_;
  UploadRule upload_;
};

}  // namespace VELT::files
