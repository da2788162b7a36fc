// What a link shares, as its data say and its owner's rights and the configuration allow now.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Configuration.h"
#include "Ids.h"
#include "Tree.h"
#include "veltsharing/Entry.h"

namespace VELT::files {

// What visitors may leave. The link's data hold it as "upload": {"max_size": BYTES of one file,
// "max_files": NUMBER, "only": true where visitors see nothing of what is there}.
struct UploadRule {
  bool allowed = false;
  bool only = false;
  std::uint64_t max_size = 0;
  std::uint64_t max_files = 0;
};

// The data of a link, {"root": NAME, "items": [PATHS, see Names.h], "upload": {...}}, are an owner's
// words and prove nothing: every use looks each path up anew.
class Share {
 public:
  // Throws Refusal: kNothingShared where the data are of another shape, kNoRoot, or kNoLink where
  // the owner is no account any more.
  explicit Share(const sharing::record::Entry& entry);

  const Account& owner() const { return owner_; }
  const Configuration& configuration() const { return configuration_; }
  const Root& root() const { return root_; }
  const std::vector<std::string>& items() const { return items_; }  // paths beneath the root
  const UploadRule& upload() const { return upload_; }

  // The path beneath the root of what a visitor calls "<number of the item>[/<path>]" (see Names.h).
  // Throws Refusal(kNotFound).
  std::string PathOf(const std::string& visitors) const;
  // What a visitor sees it called.
  std::string NameOf(const std::string& path) const;

  // What stands at a path beneath the root. With the owner's ids; throws Refusal.
  Found Find(const std::string& path) const;

 private:
  Configuration configuration_;
  Account owner_;
  Root root_;
  std::vector<std::string> items_;
  UploadRule upload_;
};

// "<name>", the link's id in the store and so on; the link's data alone. Null when there are none.
Json::Value DataOf(const sharing::record::Entry& entry);

}  // namespace VELT::files
