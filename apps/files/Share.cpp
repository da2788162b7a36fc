#include "apps/files/Share.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>
#include <optional>

#include "apps/files/Names.h"
#include "apps/files/Refusal.h"

namespace VELT::files {
namespace {

constexpr Json::ArrayIndex kMostItems = 1000;

std::uint64_t LimitOf(const Json::Value& value) {
  if (value.isNull()) return std::numeric_limits<std::int64_t>::max();
  // A malformed limit allows nothing.
  return value.isUInt64() ? value.asUInt64() : 0;
}

UploadRule UploadOf(const Json::Value& data) {
  UploadRule rule;
  if (!data.isObject()) return rule;
  rule.allowed = true;
  rule.only = data["only"] == true;
  if (data["note"].isString()) rule.note = data["note"].asString();
  rule.max_size = LimitOf(data["max_size"]);
  rule.max_files = LimitOf(data["max_files"]);
  return rule;
}

void AddLimit(Json::Value& json, const char* name, std::uint64_t limit) {
  constexpr std::uint64_t kLargestExact = (std::uint64_t{1} << 53) - 1;
  if (limit <= kLargestExact) json[name] = static_cast<Json::UInt64>(limit);
}

Account OwnerOf(const sharing::record::Entry& entry) {
  auto account = FindAccount(entry.get_owner_uid());
  if (!account) throw Refusal(kNoLink);
  return *account;
}

// The link's own data, `app` in the API.
Json::Value DataOf(const sharing::record::Entry& entry) {
  Json::Value link;
  entry.ToJSON(link);
  return link["app"];
}

}  // namespace

Json::Value ToJson(const UploadRule& rule) {
  Json::Value json;
  json["only"] = rule.only;
  if (!rule.note.empty()) json["note"] = rule.note;
  AddLimit(json, "max_size", rule.max_size);
  AddLimit(json, "max_files", rule.max_files);
  return json;
}

Share::Share(const sharing::record::Entry& entry) : owner_(OwnerOf(entry)) {
  const Json::Value data = DataOf(entry);
  if (!data.isObject() || !data["root"].isString() || !data["items"].isArray() ||
      data["items"].empty() || data["items"].size() > kMostItems) {
    throw Refusal(kNothingShared);
  }
  root_ = configuration_.RootOf(owner_, data["root"].asString());
  for (const Json::Value& item : data["items"]) {
    const auto path = item.isString() ? ToPath(item.asString()) : std::nullopt;
    if (!path) throw Refusal(kNothingShared);
    items_.push_back(*path);
  }
  upload_ = UploadOf(data["upload"]);
}

Share::Share(const Account& owner, const std::string& root, const std::string& folder)
    : owner_(owner), root_(configuration_.RootOf(owner, root)), items_{folder} {
  upload_ = UploadOf(Json::Value(Json::objectValue));
}

std::string Share::PathOf(const std::string& visitors) const {
  const std::size_t slash = visitors.find('/');
  const char* end = visitors.data() + std::min(slash, visitors.size());
  std::size_t index = 0;
  const auto [stop, error] = std::from_chars(visitors.data(), end, index);
  const auto rest = slash == std::string::npos ? std::string() : visitors.substr(slash + 1);
  const auto path = ToPath(rest);
  if (error != std::errc() || stop != end || index >= items_.size() || !path ||
      (slash != std::string::npos && rest.empty())) {
    throw Refusal(kNotFound);
  }
  return Join(items_[index], *path);
}

std::string Share::NameOf(const std::string& path) const {
  return path.empty() ? root_.title : LastOf(path);
}

Found Share::Find(const std::string& path) const { return files::Find(FindRoot(root_), path); }

}  // namespace VELT::files
