// The error codes that more than one API answers with.
#pragma once

namespace VELT {

// Clients distinguish failures by these codes. The messages beside them are for people.
enum ErrorCode : int {
  kErrorUnexpected = 100,  // the log has more
  kErrorParam = 101,       // a bad parameter, or a request that this caller may not make
  kErrorNoAPI = 102,
  kErrorNoMethod = 103,
  kErrorNoVersion = 104,
  kErrorNotAllowed = 105,  // for this caller, or at this address
  kErrorMalformed = 106,   // no request of the API, or too large a one
  kErrorStore = 117,   // the database is unusable or refused a change, or a login failed internally
  kErrorCheck = 120,   // a parameter that is not as declared; the detail names it
  kErrorLogin = 1000,  // no such link, or it admits no visitors now
  kErrorProtectPassword = 1001,  // wrong link password
  kErrorProtectUser = 1002,      // the account is not among the link's
  kErrorUserLogin = 1003,        // wrong account or account password
  kErrorLogout = 1004,           // there was no visit to end
  kErrorSharingID = 1005,        // no such link, or a visit of another one
  kErrorSharingSession = 1006,   // no visit, or it has ended
  kErrorOwner = 1007,            // the link has another owner
  kErrorAddress = 1008,          // another address than the visit's, or too many failed logins
  kErrorNoUsers = 1009,          // protection by accounts, but none is listed
  kErrorNoPassword = 1010,       // protection by a password, but none is set
  kErrorNoRedirectURI = 1011,    // a redirect without an address
  kErrorExpireTimes = 1012,      // no visit left
};

// The message of a code that has the same one wherever it is answered; of others empty.
constexpr const char* MessageOf(ErrorCode code) {
  switch (code) {
    case kErrorUnexpected:
      return "unexpected failure";
    case kErrorNoAPI:
      return "no such API";
    case kErrorNoMethod:
      return "the API has no such method";
    case kErrorNoVersion:
      return "the API has no such version";
    case kErrorLogin:
      return "login fail";
    case kErrorProtectPassword:
      return "wrong protect passwd";
    case kErrorProtectUser:
      return "wrong protect user";
    case kErrorUserLogin:
      return "invalid mosk user login";
    case kErrorLogout:
      return "logout fail";
    case kErrorSharingID:
      return "invalid sharing id";
    case kErrorOwner:
      return "invalid owner";
    case kErrorAddress:
      return "denied IP";
    case kErrorExpireTimes:
      return "exceed expire times";
    default:
      return "";
  }
}

}  // namespace VELT
