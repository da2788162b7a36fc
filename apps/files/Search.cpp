#include "apps/files/Search.h"

#include <algorithm>
#include <deque>
#include <string_view>
#include <utility>

#include "apps/files/Names.h"
#include "apps/files/Refusal.h"

namespace VELT::files {
namespace {

constexpr std::size_t kMostNames = 100000;

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
  });
  return text;
}

class Walk {
 public:
  Walk(const Found& folder, std::string_view text, std::size_t limit)
      : folder_(folder), text_(Lower(std::string(text))), limit_(limit) {}

  Matches Run() {
    while (!ended_ && !folders_.empty()) {
      const std::string path = std::move(folders_.front());
      folders_.pop_front();
      try {
        LookInto(path);
      } catch (const Refusal& refusal) {  // it is gone meanwhile, or has too many names
        if (refusal.code == kUnavailable) matches_.complete = false;
      }
    }
    return std::move(matches_);
  }

 private:
  void LookInto(const std::string& path) {
    const Found parent = Find(folder_, path);
    std::vector<std::string> names = NamesIn(parent, names_left_);
    std::sort(names.begin(), names.end());
    names_left_ -= names.size();
    for (const std::string& name : names) {
      LookAt(parent, path, name);
      if (ended_) return;
    }
  }

  void LookAt(const Found& parent, const std::string& path, const std::string& name) {
    Item item{Join(path, name)};
    try {
      item.status = Find(parent, name).status;
    } catch (const Refusal&) {
      return;  // not for this account
    }
    if (S_ISDIR(item.status.st_mode)) folders_.push_back(item.name);
    if (Lower(ToText(name)).find(text_) == std::string::npos) return;
    if (matches_.found.size() < limit_) {
      matches_.found.push_back(std::move(item));
    } else {
      matches_.complete = false;
      ended_ = true;
    }
  }

  const Found& folder_;
  const std::string text_;
  const std::size_t limit_;
  std::size_t names_left_ = kMostNames;
  std::deque<std::string> folders_{""};  // to look into
  Matches matches_;
  bool ended_ = false;
};

}  // namespace

Matches Search(const Found& folder, const std::string& text, std::size_t limit) {
  return Walk(folder, text, limit).Run();
}

}  // namespace VELT::files
