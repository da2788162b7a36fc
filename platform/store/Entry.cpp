#include "veltsharing/Entry.h"

#include <array>
#include <cstddef>
#include <optional>

#include "platform/store/LinkStatus.h"
#include "platform/store/LocalTime.h"
#include "platform/store/Secrets.h"
#include "platform/store/StoreContext.h"
#include "platform/store/TypeTexts.h"
#include "veltsys/Accounts.h"
#include "veltsys/Text.h"
#include "veltsys/User.h"

namespace VELT::sharing::record {
namespace {

Json::Value ToArray(const std::vector<std::string>& texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : texts) array.append(text);
  return array;
}

}  // namespace

std::string Entry::get_owner_user() const {
  const auto owner = accounts::FindUserCached(owner_uid_);
  return owner ? owner->name : "";
}

LinkStatus Entry::get_status() const {
  return StatusAt({enabled_, start_at_, expire_at_, expire_times_, visits_}, Now());
}

std::string Entry::get_start_at_str() const { return FormatLocalTime(start_at_); }

const char* Entry::get_protect_type_str() const {
  return kProtectTypeTexts.at(static_cast<std::size_t>(protect_type_));
}

std::vector<unsigned int> Entry::get_protect_uids() const {
  std::vector<unsigned int> uids;
  for (const std::string& name : protect_users_) {
    if (const auto user = accounts::FindUser(name)) uids.push_back(user->uid);
  }
  return uids;
}

std::vector<unsigned int> Entry::get_protect_gids() const {
  std::vector<unsigned int> gids;
  for (const std::string& name : protect_groups_) {
    if (const auto gid = accounts::FindGroup(name)) gids.push_back(*gid);
  }
  return gids;
}

bool Entry::IsPasswordValid(const std::string& password) const {
  // A password that could not be hashed must not count as the empty one. Update fails because of
  // it.
  if (password_refused_) return false;
  if (password_hash_.empty() || password.empty()) return password_hash_.empty() && password.empty();
  return MatchesPassword(password_hash_, password);
}

void Entry::set_start_at_str(const std::string& text, const char* format) {
  const auto time = text.empty() ? 0 : ParseLocalTime(text, format);
  Set(Field::kStartAt, start_at_, time.value_or(0));
  writable_ = writable_ && time.has_value();
}

void Entry::set_expire_at_str(const std::string& text, const char* format) {
  const auto time = text.empty() ? 0 : ParseLocalTime(text, format);
  Set(Field::kExpireAt, expire_at_, time.value_or(0));
  writable_ = writable_ && time.has_value();
}

void Entry::set_protect_password(const std::string& password, bool plain,
                                 PasswordEncryptAlgo algo) {
  const bool known = plain && algo == PasswordEncryptAlgo::kArgon2id && IsCleanText(password);
  Set(Field::kPassword, password_hash_,
      known && !password.empty() ? HashPassword(password) : std::string());
  password_refused_ = !known || password_hash_.empty() != password.empty();
}

void Entry::ToJSON(Json::Value& out) const {
  out = Json::Value(Json::objectValue);
  out["sharing_id"] = hash_;
  out["project_name"] = project_name_;
  out["owner_uid"] = owner_uid_;
  out["owner_user"] = get_owner_user();
  out["enabled"] = enabled_;
  out["auto_gc"] = auto_gc_;
  out["enable_match_ip"] = enable_match_ip_;
  out["start_at"] = get_start_at_str();
  out["expire_at"] = FormatLocalTime(expire_at_);
  out["expire_times"] = expire_times_;
  out["visits"] = visits_;
  out["protect_type"] = get_protect_type_str();
  out["protect_title"] = protect_title_;
  out["has_password"] = !password_hash_.empty();
  out["protect_users"] = ToArray(protect_users_);
  out["protect_groups"] = ToArray(protect_groups_);
  out["redirect_type"] = kRedirectTypeTexts.at(static_cast<std::size_t>(redirect_type_));
  out["redirect_uri"] = redirect_uri_;
  out["app"] = app_;
  out["created_at"] = FormatLocalTime(created_at_);
  out["status"] = StatusText(get_status());
}

}  // namespace VELT::sharing::record
