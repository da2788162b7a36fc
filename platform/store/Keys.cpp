#include "veltsharing/Keys.h"

#include <array>
#include <cstddef>

#include "platform/store/TypeTexts.h"
#include "veltsharing/Entry.h"

namespace VELT::sharing {
namespace {

using ProtectType = record::Entry::ProtectType;
using RedirectType = record::Entry::RedirectType;

constexpr const char* TextOf(ProtectType type) {
  return kProtectTypeTexts.at(static_cast<std::size_t>(type));
}
constexpr const char* TextOf(RedirectType type) {
  return kRedirectTypeTexts.at(static_cast<std::size_t>(type));
}

}  // namespace

const char* const SZK_SHARING_ID = "sharing_id";
const char* const SZK_SHARING_SID = "sharing_sid";
const char* const SZK_PROJECT_NAME = "project_name";
const char* const SZK_OWNER_UID = "owner_uid";
const char* const SZK_ENABLED_ = "enabled";
const char* const SZK_AUTO_GC = "auto_gc";
const char* const SZK_ENABLE_MATCH_IP = "enable_match_ip";
const char* const SZK_START_AT = "start_at";
const char* const SZK_EXPIRE_AT = "expire_at";
const char* const SZK_EXPIRE_TIMES = "expire_times";
const char* const SZK_PROTECT_TYPE = "protect_type";
const char* const SZK_PROTECT_TITLE = "protect_title";
const char* const SZK_PROTECT_PASSWORD = "protect_password";
const char* const SZK_PROTECT_USERS = "protect_users";
const char* const SZK_PROTECT_GROUPS = "protect_groups";
const char* const SZK_REDIRECT_TYPE = "redirect_type";
const char* const SZK_REDIRECT_URI = "redirect_uri";
const char* const SZK_APP = "app";
const char* const SZK_PRIVATE_DATA = "private_data";
const char* const SZK_PASSWORD_ = "password";
const char* const SZK_MOSK_USERNAME = "mosk_username";
const char* const SZK_MOSK_PASSWORD = "mosk_password";
const char* const SZK_ACTION = "action";
const char* const SZK_EXTERNAL_IP_ = "external_ip";
const char* const SZK_ASSISTANT = "assistant";
const char* const SZK_JSCONFIG = "jsconfig";

const char* const SZK_PROTECT_PROTECT_NONE = TextOf(ProtectType::kNone);
const char* const SZK_PROTECT_PROTECT_PASSWORD = TextOf(ProtectType::kPassword);
const char* const SZK_PROTECT_PROTECT_USER = TextOf(ProtectType::kUser);

const char* const SZK_REDIRECT_REDIRECT_NONE = TextOf(RedirectType::kNone);
const char* const SZK_REDIRECT_REDIRECT_URLPARAM = TextOf(RedirectType::kUrlParam);
const char* const SZK_REDIRECT_REDIRECT_ALWAYS = TextOf(RedirectType::kAlways);

}  // namespace VELT::sharing
