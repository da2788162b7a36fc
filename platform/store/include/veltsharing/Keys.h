// Names of parameters, the visitor's cookie, record fields and fixed values. They live as long as
// the library is loaded.
#pragma once

namespace VELT::sharing {

extern const char* const SZK_SHARING_ID;
extern const char* const SZK_SHARING_SID;
extern const char* const SZK_PROJECT_NAME;
extern const char* const SZK_OWNER_UID;
extern const char* const SZK_ENABLED_;
extern const char* const SZK_AUTO_GC;
extern const char* const SZK_ENABLE_MATCH_IP;
extern const char* const SZK_START_AT;
extern const char* const SZK_EXPIRE_AT;
extern const char* const SZK_EXPIRE_TIMES;
extern const char* const SZK_PROTECT_TYPE;
extern const char* const SZK_PROTECT_TITLE;
extern const char* const SZK_PROTECT_PASSWORD;
extern const char* const SZK_PROTECT_USERS;
extern const char* const SZK_PROTECT_GROUPS;
extern const char* const SZK_REDIRECT_TYPE;
extern const char* const SZK_REDIRECT_URI;
extern const char* const SZK_APP;
extern const char* const SZK_PRIVATE_DATA;
extern const char* const SZK_PASSWORD_;
extern const char* const SZK_MOSK_USERNAME;
extern const char* const SZK_MOSK_PASSWORD;
extern const char* const SZK_ACTION;
extern const char* const SZK_EXTERNAL_IP_;
extern const char* const SZK_ASSISTANT;
extern const char* const SZK_JSCONFIG;

// Values of SZK_PROTECT_TYPE.
extern const char* const SZK_PROTECT_PROTECT_NONE;
extern const char* const SZK_PROTECT_PROTECT_PASSWORD;
extern const char* const SZK_PROTECT_PROTECT_USER;

// Values of SZK_REDIRECT_TYPE.
extern const char* const SZK_REDIRECT_REDIRECT_NONE;
extern const char* const SZK_REDIRECT_REDIRECT_URLPARAM;
extern const char* const SZK_REDIRECT_REDIRECT_ALWAYS;

}  // namespace VELT::sharing
