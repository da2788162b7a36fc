// The record of one share link.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "veltsharing/LinkStatus.h"

namespace VELT::sharing::db {
class EntryRow;
}

namespace VELT::sharing::record {

// A value type: copies share nothing. One object belongs to one thread at a time. What a setter
// changes is stored by EntryDB::Update or CreateWithHash.
class Entry {
 public:
  enum class ProtectType { kNone = 0, kPassword = 1, kUser = 2 };
  enum class RedirectType { kNone = 0, kUrlParam = 1, kAlways = 2 };
  enum class PasswordEncryptAlgo { kArgon2id = 0 };

  // The link's key in the store, which is never used again for another link; 0 before the link is
  // stored.
  std::int64_t get_id() const { return id_; }
  // The public id, 22 characters from [A-Za-z0-9]: whoever knows it may open the link.
  const std::string& get_hash() const { return hash_; }
  unsigned int get_owner_uid() const { return owner_uid_; }
  // The owner's account name, empty when the user database has no such account.
  std::string get_owner_user() const;
  const std::string& get_project_name() const { return project_name_; }
  // The state at this moment.
  LinkStatus get_status() const;
  // From when the link works, in the appliance's local time as in ToJSON; empty: no limit.
  std::string get_start_at_str() const;
  std::int64_t get_start_at() const { return start_at_; }  // seconds since 1970 UTC; 0: no limit
  ProtectType get_protect_type() const { return protect_type_; }
  const char* get_protect_type_str() const;  // "none", "password" or "user"
  const std::string& get_protect_title() const { return protect_title_; }
  const std::vector<std::string>& get_protect_users() const { return protect_users_; }
  const std::vector<std::string>& get_protect_groups() const { return protect_groups_; }
  // The ids of those of the listed accounts and groups that the user database knows.
  std::vector<unsigned int> get_protect_uids() const;
  std::vector<unsigned int> get_protect_gids() const;
  RedirectType get_redirect_type() const { return redirect_type_; }
  const std::string& get_redirect_uri() const { return redirect_uri_; }

  // Whether `password` opens the link. A link without a password is opened by the empty text only.
  bool IsPasswordValid(const std::string& password) const;

  void set_owner_uid(unsigned int uid) { Set(Field::kOwnerUid, owner_uid_, uid); }
  void set_project_name(const std::string& name) { Set(Field::kProjectName, project_name_, name); }
  void set_enabled(const bool& enabled) { Set(Field::kEnabled, enabled_, enabled); }
  void set_auto_gc(const bool& auto_gc) { Set(Field::kAutoGc, auto_gc_, auto_gc); }
  void set_enable_match_ip(bool match) { Set(Field::kEnableMatchIp, enable_match_ip_, match); }
  // `text` is the appliance's local time in strptime(3)'s `format`; empty: no limit. A text that
  // does not parse whole, or names no real time, leaves the record unwritable: Update and
  // CreateWithHash then return false.
  void set_start_at_str(const std::string& text, const char* format);
  void set_expire_at_str(const std::string& text, const char* format);
  // The number of visits that the link serves; 0: no limit.
  void set_expire_times(const int& times) { Set(Field::kExpireTimes, expire_times_, times); }
  void set_protect_type(ProtectType type) { Set(Field::kProtectType, protect_type_, type); }
  void set_protect_title(const std::string& title) {
    Set(Field::kProtectTitle, protect_title_, title);
  }
  // Keeps only a hash of `password`; an empty one means no password. `plain` means that the text is
  // the password itself. If it is false, the text is not valid UTF-8, or memory for the hash is
  // lacking, the record is unwritable until another password is set.
  void set_protect_password(const std::string& password, bool plain, PasswordEncryptAlgo algo);
  void set_protect_users(const std::vector<std::string>& users) {
    Set(Field::kProtectUsers, protect_users_, users);
  }
  void set_protect_groups(const std::vector<std::string>& groups) {
    Set(Field::kProtectGroups, protect_groups_, groups);
  }
  void set_redirect_type(RedirectType type) { Set(Field::kRedirectType, redirect_type_, type); }
  void set_redirect_uri(const std::string& uri) { Set(Field::kRedirectUri, redirect_uri_, uri); }
  void set_app(const Json::Value& app) { Set(Field::kApp, app_, app); }
  void set_private_data(const Json::Value& data) { Set(Field::kPrivateData, private_data_, data); }

  // Makes `out` the link's JSON form, which visitors may read: neither the private data nor the
  // password in any form is in it. Times are local, "%Y-%m-%d %H:%M:%S", or "" for no limit.
  void ToJSON(Json::Value& out) const;

 private:
  friend class db::EntryRow;  // reads and writes the stored form

  enum class Field {
    kOwnerUid,
    kProjectName,
    kEnabled,
    kAutoGc,
    kEnableMatchIp,
    kStartAt,
    kExpireAt,
    kExpireTimes,
    kProtectType,
    kProtectTitle,
    kPassword,
    kProtectUsers,
    kProtectGroups,
    kRedirectType,
    kRedirectUri,
    kApp,
    kPrivateData,
  };

  static constexpr unsigned int Bit(Field field) { return 1U << static_cast<unsigned int>(field); }
  template <typename Value>
  void Set(Field field, Value& place, const Value& value) {
    place = value;
    changed_ |= Bit(field);
  }

  std::int64_t id_ = 0;
  std::string hash_;
  unsigned int owner_uid_ = 0xFFFFFFFF;
  std::string project_name_;
  bool enabled_ = true;
  bool auto_gc_ = false;
  bool enable_match_ip_ = false;
  std::int64_t start_at_ = 0;   // seconds since 1970 UTC; 0: no limit
  std::int64_t expire_at_ = 0;  // the same
  int expire_times_ = 0;
  int visits_ = 0;  // counted by VeltSharingLogin alone
  ProtectType protect_type_ = ProtectType::kNone;
  std::string protect_title_;
  std::string password_hash_;  // libsodium's Argon2id string; empty: no password
  std::vector<std::string> protect_users_;
  std::vector<std::string> protect_groups_;
  RedirectType redirect_type_ = RedirectType::kNone;
  std::string redirect_uri_;
  Json::Value app_{Json::objectValue};
  Json::Value private_data_{Json::objectValue};
  std::int64_t created_at_ = 0;
  unsigned int changed_ = 0;       // the Bit of every field set since this was stored or read
  bool writable_ = true;           // false once a setter refused its value
  bool password_refused_ = false;  // the last password that was set could not be hashed
};

}  // namespace VELT::sharing::record
