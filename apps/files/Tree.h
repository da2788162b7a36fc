// Files and folders beneath a root, opened so that no name, no symbolic link and no concurrent
// change leads out of it. Call these with the ids of the account that shares them (see Ids.h).
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <vector>

#include "apps/files/Configuration.h"
#include "veltsys/Descriptor.h"

namespace VELT::files {

// A regular file or a folder; other kinds are never found.
struct Found {
  Descriptor handle;  // stays with the file whatever happens to its path; can't be read from
  struct stat status {};

  bool IsFolder() const { return S_ISDIR(status.st_mode); }
};

// The root itself, unless a symbolic link is in its path. Throws Refusal(kNotFound).
Found FindRoot(const Root& root);

// Finds what is at `path` (see ToPath) beneath `folder`. It must be readable and on the same file
// system, with no symbolic link on the way. Throws Refusal(kNotFound).
Found Find(const Found& folder, const std::string& path);

// Opens it with `flags` of open(2). Throws Refusal(kNotFound).
Descriptor Open(const Found& found, int flags);

// The names of the files and folders directly in a folder, unreadable ones included, in no order.
// Throws Refusal: kWrongKind, kNotFound, or kUnavailable when there are more than `most`.
std::vector<std::string> NamesIn(const Found& folder, std::size_t most);

// The folder in which `folder` is, if that is the one with this status. Throws Refusal(kNotFound).
Found ParentOf(const Found& folder, const struct stat& status);

struct Item {
  std::string name;
  struct stat status {};
};

struct Order {
  enum class By { kName, kSize, kTime, kType };
  By by = By::kName;
  bool descending = false;
};

// A page of the files and folders directly in a folder. Folders come first; equal ones are ordered
// by name, in which A to Z are equal to a to z.
struct Listing {
  std::size_t total = 0;    // files and folders in the folder, unreadable ones included
  std::vector<Item> shown;  // the readable ones of the `limit` from `offset` on
};

// An order by size or time needs the status of every file, another only of those that are shown.
// Throws Refusal.
Listing List(const Found& folder, const Order& order, std::size_t offset, std::size_t limit);

}  // namespace VELT::files
