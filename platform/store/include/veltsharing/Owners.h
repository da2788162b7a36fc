// Owners of links as callers of the web API: signing in, sessions, tokens. For the host and for API
// modules other than the sharing module. Of session ids and tokens the database keeps SHA-256 alone.
//
// All functions can be called in any process, by one thread at a time. They return false or an empty
// value also when the database can't be used, which is in the log.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VELT::sharing::owners {

// Seconds that a session lives unused and altogether, and both where the owner stays signed in.
inline constexpr std::int64_t kIdleLife = std::int64_t{12} * 60 * 60;
inline constexpr std::int64_t kWholeLife = std::int64_t{24} * 60 * 60;
inline constexpr std::int64_t kStayingLife = 30 * kWholeLife;
inline constexpr std::size_t kMostAnswers = 8;   // to questions, the password included
inline constexpr std::size_t kMostTokens = 100;  // of an account

// The cookies of an owner's session and of a browser in which one has signed in. On HTTPS no other host
// of the domain and no page over plain HTTP can set them.
inline std::string SessionCookie(bool https) {
  return https ? "__Host-velt_owner_sid" : "velt_owner_sid";
}
inline std::string BrowserCookie(bool https) {
  return https ? "__Host-velt_owner_browser" : "velt_owner_browser";
}

// Times as links have them in text (Entry.h), "" for 0. Empty for a text that is no time.
std::string TimeText(std::int64_t time);
std::optional<std::int64_t> ParseTime(const std::string& text);

struct Attempt {
  std::string account;
  std::vector<std::string> answers;  // the password, and what PAM asks for after it
  std::string address;               // the client's
  std::string known_browser;         // as an earlier SignedIn had it; any text
  std::string old_session;           // the browser's session, which ends; any text
  std::string browser;               // what the list of sessions calls the browser
  bool stay = false;
  bool makes_session = true;  // false: judges only
};

struct Outcome {
  enum class Kind {
    kSignedIn,
    kWrong,     // account, password or an answer; nothing tells which
    kQuestion,  // PAM asks for one more answer
    kBraked,    // too many attempts have failed; this one was not judged
    kFailed,    // the database or PAM
  };
  Kind kind = Kind::kFailed;
  std::string account;        // after kSignedIn, as the user database has it
  std::string session;        // the new session's id, if one was to be made
  std::string known_browser;  // for the cookie by which the browser is known the next time
  std::int64_t wait = 0;      // after kBraked: seconds to the next attempt
  std::int64_t failures = 0;  // attempts at the account that failed since it last signed in
  std::string question;       // as PAM words it
  bool hidden = false;        // whether its answer must not be shown as it is typed
};

// Judges an attempt and counts it. PAM (service "velt-owner") is the only judge of passwords. It takes
// as long for an account that does not exist. Attempts at an account and from an address are slowed
// down from the fifth failure within 15 minutes on, and refused for 15 minutes after the tenth from
// one address (of IPv6, the network). A browser in which the account has signed in before has a
// budget of its own, so nobody else can keep the owner out.
Outcome SignIn(const Attempt& attempt);

// Ends the session with this id, which may be any text. False only when the database can't be used.
bool SignOut(const std::string& session);

// Who presents a session id or a token.
struct Owner {
  enum class How { kNobody, kSession, kToken, kBasic, kWebServer };
  How how = How::kNobody;
  long long id = 0;  // of the session or token
  std::string account;
  unsigned int uid = 0;        // at sign-in; the account's own must still be the same
  std::int64_t expire_at = 0;  // in seconds since 1970 UTC; 0: never
  std::int64_t failures = 0;   // see Outcome, of a session
  bool may_change = true;
  std::vector<std::string> projects;  // the only ones whose links it may see; empty: all
  bool check_due = false;             // CheckAccount must be called before it is let in
  bool use_due = false;               // NoteUse is to be called after the answer
};

// One indexed read each. `owner` is empty for what is not a living session's id or token. False only when
// the database can't be used.
bool FindSession(const std::string& session, std::optional<Owner>& owner);
bool FindToken(const std::string& token, std::optional<Owner>& owner);

// Asks PAM whether the account may still be used, and ends its sessions if not or if its password has
// changed. Takes as long as PAM does. False when the account must not be let in, or PAM fails.
bool CheckAccount(const std::string& account, const std::string& address);

void NoteUse(const Owner& owner);

struct SessionRow {
  long long id = 0;
  std::int64_t created_at = 0;
  std::int64_t last_used = 0;
  std::string address;  // shortened
  std::string browser;
};
// The account's sessions, the last used first.
bool ListSessions(const std::string& account, std::vector<SessionRow>& sessions);
// Ends one session of the account, or all but one. False when there is no such session.
bool EndSession(const std::string& account, long long id);
bool EndOtherSessions(const std::string& account, long long kept);

struct TokenRow {
  long long id = 0;
  std::string name;
  bool may_change = false;
  std::vector<std::string> projects;
  std::int64_t created_at = 0;
  std::int64_t last_used = 0;  // 0: never
  std::int64_t expire_at = 0;
};
bool ListTokens(const std::string& account, std::vector<TokenRow>& tokens);
// Stores a token with the row's name, rights and expiry, and sets its id and `token`, which can't be
// had again: "velt_", 43 letters and digits, and the first six hexadecimal digits of the SHA-256 of
// what stands before them. False also when the account has kMostTokens.
bool CreateToken(const std::string& account, unsigned int uid, TokenRow& row, std::string& token);
bool DeleteToken(const std::string& account, long long id);

}  // namespace VELT::sharing::owners
