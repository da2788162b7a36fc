#include "apps/files/Configuration.h"

#include <json/value.h>
#include <syslog.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "apps/files/Refusal.h"
#include "veltsys/JsonFile.h"
#include "veltsys/Text.h"

namespace VELT::files {
namespace {

constexpr const char* kFolder = "/usr/velt/etc";
constexpr const char* kFile = "files.json";
constexpr std::string_view kUser = "{user}";

std::string TextOf(const Json::Value& object, const char* member) {
  return object[member].isString() ? object[member].asString() : std::string();
}

// False unless the member is absent or a list of texts: a mistyped list must not open a folder to
// everybody.
bool ReadNames(const Json::Value& list, std::vector<std::string>& names) {
  if (list.isNull()) return true;
  if (!list.isArray()) return false;
  for (const Json::Value& name : list) {
    if (!name.isString()) return false;
    names.push_back(name.asString());
  }
  return true;
}

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

Configuration::Configuration() {
  const Json::Value content = ReadJsonFile(kFolder, kFile);
  if (!content.isObject() || !content["roots"].isArray()) {
    NoteFault("is no JSON object with \"roots\"");
    return;
  }
  spool_ = TextOf(content, "spool");
  accel_prefix_ = TextOf(content, "accel_prefix");
  const Json::Value& reserve = content["reserve"];
  if (reserve.isInt64() && reserve.asInt64() >= 0) {
    reserve_ = reserve.asInt64();
  } else if (!reserve.isNull()) {
    NoteFault("has a \"reserve\" that is no number of bytes");
  }
  for (const Json::Value& row : content["roots"]) {
    Rule rule{};
    const bool is_object = row.isObject();
    if (is_object) {
      rule.root = {TextOf(row, "name"), TextOf(row, "title"), TextOf(row, "path")};
      rule.for_everybody = row["users"].isNull() && row["groups"].isNull();
    }
    if (!is_object || rule.root.name.empty() || !rule.root.path.starts_with('/') ||
        !ReadNames(row["users"], rule.users) || !ReadNames(row["groups"], rule.groups)) {
      NoteFault("has a root that is wrong and left out");
      continue;
    }
    if (rule.root.title.empty()) rule.root.title = rule.root.name;
    rules_.push_back(std::move(rule));
  }
}

void Configuration::NoteFault(const char* text) {
  static std::string told;  // so that the log does not repeat it for each request
  fault_ = std::string(kFolder) + "/" + kFile + " " + text;
  if (fault_ == std::exchange(told, fault_)) return;
  syslog(LOG_WARNING, "files: %s", fault_.c_str());
}

std::int64_t Configuration::ReserveOf(std::int64_t total) const {
  constexpr std::int64_t kLeast = std::int64_t{1} << 30;
  return reserve_.value_or(std::min(std::max(total / 20, kLeast), total / 5));
}

std::vector<Root> Configuration::RootsOf(const Account& account) const {
  std::vector<Root> roots;
  for (const Rule& rule : rules_) {
    const bool is_for = rule.for_everybody || Contains(rule.users, account.name) ||
                        std::any_of(rule.groups.begin(), rule.groups.end(),
                                    [&](const std::string& group) { return account.IsIn(group); });
    Root root = rule.root;
    const std::size_t at = root.path.find(kUser);
    if (at != std::string::npos) root.path.replace(at, kUser.size(), account.name);
    // A directory service may have account names that are no file names.
    if (is_for && (at == std::string::npos || IsFileName(account.name))) {
      roots.push_back(std::move(root));
    }
  }
  return roots;
}

Root Configuration::RootOf(const Account& account, const std::string& name) const {
  for (Root& root : RootsOf(account)) {
    if (root.name == name) return std::move(root);
  }
  throw Refusal(kNoRoot);
}

}  // namespace VELT::files
