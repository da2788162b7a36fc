// Files and folders beneath a root, opened so that neither names nor links nor a change at the same
// moment lead out of it. To be called with the ids of the account whose files they are (see Ids.h).
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Configuration.h"
#include "veltsys/Descriptor.h"

namespace VELT::files {

// A regular file or a folder: other kinds are not found.
struct Found {
  Descriptor handle;  // names it, whatever its path becomes; not yet opened for reading
  struct stat status {};

  bool IsFolder() const { return S_ISDIR(status.st_mode); }
};

// The root itself. Its path holds no symbolic link. Throws Refusal(kNotFound).
Found FindRoot(const Root& root);

// What stands at `path` (see ToPath) beneath `folder` and may be read, on the same file system and
// without a symbolic link on the way. Throws Refusal(kNotFound).
Found Find(const Found& folder, const std::string& path);

// Opened with `flags` of open(2). Throws Refusal(kNotFound).
Descriptor Open(const Found& found, int flags);

struct Item {
  std::string name;
  struct stat status {};
};

struct Order {
  enum class By { kName, kSize, kTime, kType };
  By by = By::kName;
  bool descending = false;
};

// Files and folders directly in a folder: folders first, each part in order; of equal ones by name,
// without regard to the case of A to Z.
struct Listing {
  std::size_t total = 0;    // how many there are, those that can't be read included
  std::vector<Item> shown;  // of the `limit` from `offset` on, those that can be read
};

// By size or time every file is looked at; else only those that are shown. Throws Refusal.
Listing List(const Found& folder, const Order& order, std::size_t offset, std::size_t limit);

}  // namespace VELT::files
