// Searching for files and folders by their names.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "apps/files/Tree.h"

namespace VELT::files {

struct Matches {
  std::vector<Item> found;  // by their paths beneath the folder, nearer ones first
  bool complete = true;     // there are no more
};

// What is beneath `folder`, readable, and has `text` (see ToText) in its name's text, in which A to Z are
// equal to a to z. Ends after `limit` matches, or after many names. Call it with the ids of the account
// that shares the folder. Throws Refusal.
Matches Search(const Found& folder, const std::string& text, std::size_t limit);

}  // namespace VELT::files
