#include <stdexcept>
#include <string>
#include <vector>

#include "declared/VELT.Core.Sharing.h"
#include "module/LinkAddress.h"
#include "module/SharingAPI.h"
#include "veltsharing/Entry.h"
#include "veltsharing/Keys.h"
#include "veltsharing/SharingDB.h"
#include "veltwebapi/APIRequest.h"

namespace VELT {
namespace {

using Params = params::SharingSet;
using sharing::record::Entry;

constexpr char kTimeFormat[] = "%Y-%m-%d %H:%M:%S";

// The functions below run in ParseParams, where an exception's text becomes the error message.
Entry::ProtectType ProtectTypeOf(const std::string& text) {
  if (text == sharing::SZK_PROTECT_PROTECT_NONE) return Entry::ProtectType::kNone;
  if (text == sharing::SZK_PROTECT_PROTECT_PASSWORD) return Entry::ProtectType::kPassword;
  if (text == sharing::SZK_PROTECT_PROTECT_USER) return Entry::ProtectType::kUser;
  throw std::invalid_argument("bad protect_type");
}

Entry::RedirectType RedirectTypeOf(const std::string& text) {
  if (text == sharing::SZK_REDIRECT_REDIRECT_NONE) return Entry::RedirectType::kNone;
  if (text == sharing::SZK_REDIRECT_REDIRECT_URLPARAM) return Entry::RedirectType::kUrlParam;
  if (text == sharing::SZK_REDIRECT_REDIRECT_ALWAYS) return Entry::RedirectType::kAlways;
  throw std::invalid_argument("bad redirect_type");
}

void AppendNames(const Json::Value& array, const char* error, std::vector<std::string>& names) {
  if (!array.isArray()) throw std::invalid_argument(error);
  for (const Json::Value& element : array) names.push_back(element.asString());
}

}  // namespace

int SharingSet::ParseParams() {
  sharing_id_ = Read(Params::kSharingId);
  project_name_ = Read(Params::kProjectName);
  enabled_ = Read(Params::kEnabled);
  auto_gc_ = Read(Params::kAutoGc);
  enable_match_ip_ = Read(Params::kEnableMatchIp);
  start_at_ = Read(Params::kStartAt);
  expire_at_ = Read(Params::kExpireAt);
  expire_times_ = Read(Params::kExpireTimes);
  protect_type_ = ProtectTypeOf(Read(Params::kProtectType));
  protect_title_ = Read(Params::kProtectTitle);
  protect_password_ = Read(Params::kProtectPassword);
  AppendNames(Read(Params::kProtectUsers), "bad protect_users", protect_users_);
  AppendNames(Read(Params::kProtectGroups), "bad protect_groups", protect_groups_);
  redirect_type_ = RedirectTypeOf(Read(Params::kRedirectType));
  redirect_uri_ = Read(Params::kRedirectUri);
  app_ = Read(Params::kApp);
  private_data_ = Read(Params::kPrivateData);
  if (expire_times_ < 0) return Fail(kErrorParam, "invalid expire times");
  owner_uid_ = request_->GetLoginUID();
  return 0;
}

int SharingSet::Execute() {
  sharing::db::SharingDB* database = sharing::db::SharingDB::Instance();
  sharing::db::EntryDB entry_db(*database);
  sharing::db::TokenDB token_db(*database);
  Entry entry;

  if (!database->IsGood()) return Fail(kErrorStore, "db open fail");

  const bool update = !sharing_id_.empty();
  if (update) {
    if (const int code = LoadForUpdate(entry); code != 0) return code;
  } else {
    if (project_name_.empty()) return Fail(kErrorParam, "invalid project name");
    entry.set_project_name(project_name_);
    entry.set_owner_uid(owner_uid_);
    entry.set_app(app_);
    entry.set_private_data(private_data_);
    // Its protection is set by the update below. If this process dies before, nobody may open it.
    entry.set_enabled(false);
    if (!entry_db.CreateWithHash(entry)) return Fail(kErrorStore, "db create entry fail");
  }

  int code = SetEntryFields(entry, update);
  if (code != 0) {
    Fail(code, "set entry fields fail");
  } else if (!entry_db.Update(entry)) {
    code = Fail(kErrorStore, "db update entry fail");
  }
  if (code != 0) {
    if (!update) entry_db.Delete(entry);
    return code;
  }

  if (update && entry.get_protect_type() != Entry::ProtectType::kNone &&
      (request_->HasParam(Params::kProtectPassword.name) ||
       request_->HasParam(Params::kProtectUsers.name) ||
       request_->HasParam(Params::kProtectGroups.name))) {
    token_db.PurgeByEntry(entry);
  }

  sharing_id_ = entry.get_hash();
  url_ = LinkURL(request_, sharing_id_);
  return 0;
}

int SharingSet::LoadForUpdate(Entry& entry) {
  sharing::db::EntryDB entry_db(*sharing::db::SharingDB::Instance());
  if (!entry_db.GetByHash(sharing_id_, entry)) return Fail(kErrorSharingID);
  if (!request_->IsAdmin() && owner_uid_ != entry.get_owner_uid()) {
    return Fail(kErrorOwner);
  }
  // A link can't be moved to another application, whose plugins would then get its data.
  if (entry.get_project_name() != project_name_) return Fail(kErrorParam, "invalid project name");
  return 0;
}

int SharingSet::SetEntryFields(Entry& entry, bool update) {
  SetAccessFields(entry, update);
  SetProtectFields(entry, update);
  // The record holds stored and new values here: an update may change the type alone.
  switch (entry.get_protect_type()) {
    case Entry::ProtectType::kNone:
      break;
    case Entry::ProtectType::kPassword:
      if (entry.IsPasswordValid("")) return kErrorNoPassword;
      break;
    case Entry::ProtectType::kUser:
      if (entry.get_protect_users().empty() && entry.get_protect_groups().empty()) {
        return kErrorNoUsers;
      }
      break;
  }

  if (Carries(Params::kRedirectType, update)) entry.set_redirect_type(redirect_type_);
  if (Carries(Params::kRedirectUri, update)) entry.set_redirect_uri(redirect_uri_);
  if (entry.get_redirect_type() != Entry::RedirectType::kNone && entry.get_redirect_uri().empty()) {
    return kErrorNoRedirectURI;
  }

  if (Carries(Params::kApp, update)) entry.set_app(app_);
  if (Carries(Params::kPrivateData, update)) entry.set_private_data(private_data_);
  return 0;
}

void SharingSet::SetAccessFields(Entry& entry, bool update) {
  if (Carries(Params::kEnabled, update)) entry.set_enabled(enabled_);
  if (Carries(Params::kAutoGc, update)) entry.set_auto_gc(auto_gc_);
  if (Carries(Params::kEnableMatchIp, update)) entry.set_enable_match_ip(enable_match_ip_);
  if (Carries(Params::kStartAt, update)) entry.set_start_at_str(start_at_, kTimeFormat);
  if (Carries(Params::kExpireAt, update)) entry.set_expire_at_str(expire_at_, kTimeFormat);
  if (Carries(Params::kExpireTimes, update)) entry.set_expire_times(expire_times_);
}

void SharingSet::SetProtectFields(Entry& entry, bool update) {
  if (Carries(Params::kProtectType, update)) entry.set_protect_type(protect_type_);
  if (Carries(Params::kProtectTitle, update)) entry.set_protect_title(protect_title_);
  if (Carries(Params::kProtectPassword, update)) {
    entry.set_protect_password(protect_password_, true, Entry::PasswordEncryptAlgo::kArgon2id);
  }
  if (Carries(Params::kProtectUsers, update)) entry.set_protect_users(protect_users_);
  if (Carries(Params::kProtectGroups, update)) entry.set_protect_groups(protect_groups_);
}

int SharingSet::FormOutput() {
  result_["sharing_id"] = sharing_id_;
  result_["url"] = url_;
  if (std::string qrcode; GenerateQRCode(url_, qrcode)) result_["qrcode"] = qrcode;
  return 0;
}

}  // namespace VELT
