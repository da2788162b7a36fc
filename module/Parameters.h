// The parameters of each method, defined once: the pre-checks, ParseParams and the test of
// docs/api.md take names, types, defaults and order from here.
#pragma once

#include <limits>
#include <tuple>

#include "veltsharing/Keys.h"
#include "veltwebapi/APIParameter.h"

namespace VELT::params {

// `fallback` is the value of a request that lacks the parameter.
struct Text {
  const char* name;
  const char* fallback;
  PARAM_NECESSITY necessity = PARAM_OPTIONAL;
  const char* choices = nullptr;  // the texts that the pre-check lets pass, a JSON array; null: any
  const char* form = nullptr;     // `d` stands for a digit; empty text is allowed too. null: any
};
struct Int {
  const char* name;
  int fallback;
  PARAM_NECESSITY necessity = PARAM_OPTIONAL;
  int least = std::numeric_limits<int>::min();
};
struct Bool {
  const char* name;
  bool fallback;
  PARAM_NECESSITY necessity = PARAM_OPTIONAL;
};

// Without the parameter these are empty, or null.
struct Object {
  const char* name;
};
struct Names {  // an array of strings
  const char* name;
};
struct AnyValue {
  const char* name;
};

// Each kAll lists the parameters in the order in which the pre-check reports them. It holds
// references, because compilers initialise two such variables in different orders.

namespace get {
inline const Text kSharingID{sharing::SZK_SHARING_ID, ""};
inline constexpr auto kAll = std::tie(kSharingID);
}  // namespace get

namespace remove {
inline const Text kSharingID{sharing::SZK_SHARING_ID, "", PARAM_REQUIRED};
inline constexpr auto kAll = std::tie(kSharingID);
}  // namespace remove

namespace trigger_gc {
inline const Bool kAllEntry{"all_entry", false};
inline const Text kProjectName{sharing::SZK_PROJECT_NAME, ""};
inline constexpr auto kAll = std::tie(kAllEntry, kProjectName);
}  // namespace trigger_gc

namespace list {
inline const Bool kShareWithMe{"share_with_me", false};
inline const Bool kAllEntry{"all_entry", false};
inline const Text kSortDirection{"sort_direction", "ASC", PARAM_OPTIONAL, R"(["ASC", "DESC"])"};
inline const Text kSortBy{"sort_by", ""};
inline const Int kOffset{"offset", -1};
inline const Int kLimit{"limit", -1};
inline const Text kProjectName{sharing::SZK_PROJECT_NAME, ""};
inline constexpr auto kAll =
    std::tie(kShareWithMe, kAllEntry, kSortDirection, kSortBy, kOffset, kLimit, kProjectName);
}  // namespace list

namespace set {
inline constexpr char kTimeForm[] = "dddd-dd-dd dd:dd:dd";
inline const Text kProjectName{sharing::SZK_PROJECT_NAME, "", PARAM_REQUIRED};
inline const Text kSharingID{sharing::SZK_SHARING_ID, ""};
inline const Object kApp{sharing::SZK_APP};
inline const Object kPrivateData{sharing::SZK_PRIVATE_DATA};
inline const Text kRedirectURI{sharing::SZK_REDIRECT_URI, ""};
inline const Text kRedirectType{sharing::SZK_REDIRECT_TYPE, sharing::SZK_REDIRECT_REDIRECT_NONE,
                                PARAM_OPTIONAL, R"(["none", "url_param", "always"])"};
inline const Names kProtectGroups{sharing::SZK_PROTECT_GROUPS};
inline const Names kProtectUsers{sharing::SZK_PROTECT_USERS};
inline const Text kProtectPassword{sharing::SZK_PROTECT_PASSWORD, ""};
inline const Text kProtectType{sharing::SZK_PROTECT_TYPE, sharing::SZK_PROTECT_PROTECT_NONE,
                               PARAM_OPTIONAL, R"(["none", "password", "user"])"};
inline const Text kProtectTitle{sharing::SZK_PROTECT_TITLE, ""};
inline const Bool kEnableMatchIP{sharing::SZK_ENABLE_MATCH_IP, true};
inline const Int kExpireTimes{sharing::SZK_EXPIRE_TIMES, 0, PARAM_OPTIONAL, 0};
inline const Text kStartAt{sharing::SZK_START_AT, "", PARAM_OPTIONAL, nullptr, kTimeForm};
inline const Text kExpireAt{sharing::SZK_EXPIRE_AT, "", PARAM_OPTIONAL, nullptr, kTimeForm};
inline const Bool kAutoGC{sharing::SZK_AUTO_GC, false};
inline const Bool kEnabled{sharing::SZK_ENABLED_, true};
inline constexpr auto kAll =
    std::tie(kProjectName, kSharingID, kApp, kPrivateData, kRedirectURI, kRedirectType,
             kProtectGroups, kProtectUsers, kProtectPassword, kProtectType, kProtectTitle,
             kEnableMatchIP, kExpireTimes, kStartAt, kExpireAt, kAutoGC, kEnabled);
}  // namespace set

namespace login {
inline const Text kPassword{sharing::SZK_PASSWORD_, ""};
inline const Text kSharingID{sharing::SZK_SHARING_ID, "", PARAM_REQUIRED};
inline const Text kMoskPassword{sharing::SZK_MOSK_PASSWORD, ""};
inline const Text kMoskUsername{sharing::SZK_MOSK_USERNAME, ""};
inline constexpr auto kAll = std::tie(kPassword, kSharingID, kMoskPassword, kMoskUsername);
}  // namespace login

namespace logout {  // not pre-checked
inline const Text kSharingSID{sharing::SZK_SHARING_SID, ""};
inline constexpr auto kAll = std::tie(kSharingSID);
}  // namespace logout

namespace session {  // not pre-checked
inline const Text kSharingID{"sharing_id", ""};
inline const Text kSharingStatus{"sharing_status", sharing::SZK_PROTECT_PROTECT_NONE};
inline const Int kSharingError{"sharing_error", -1};
inline const Bool kPreview{"preview", false};
inline const Text kPreviewStatus{"sharing_preview_status", ""};
inline const AnyValue kPreviewParams{"sharing_preview_params"};
inline const Text kPreviewProjectName{"sharing_preview_project_name", ""};
inline constexpr auto kAll = std::tie(kSharingID, kSharingStatus, kSharingError, kPreview,
                                      kPreviewStatus, kPreviewParams, kPreviewProjectName);
}  // namespace session

namespace initdata {
inline const Text kAction{sharing::SZK_ACTION, ""};
inline constexpr auto kAll = std::tie(kAction);
}  // namespace initdata

}  // namespace VELT::params
