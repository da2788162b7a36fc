#include "host/request/Caller.h"

#include <sodium.h>
#include <strings.h>

#include <optional>
#include <string>
#include <utility>

#include "veltsharing/Owners.h"
#include "veltsys/Accounts.h"
#include "veltsys/ResultCache.h"
#include "veltsys/User.h"

namespace VELT::host {
namespace {

using sharing::owners::Owner;
using How = Owner::How;
using Kind = Caller::Kind;

struct Identity {
  unsigned int uid = RequestContext::kNobody;
  bool is_admin = false;
};

std::optional<Identity> LookUp(const std::string& name) {
  const auto user = accounts::FindUser(name);
  // kNobody and the uid above it have special meanings.
  if (!user.has_value() || user->uid >= RequestContext::kNobody) return std::nullopt;
  return Identity{user->uid, accounts::IsAdministrator(*user)};
}

// A look-up takes longer than the rest of a short request.
std::optional<Identity> FindIdentity(const std::string& name) {
  static ResultCache<std::string, Identity> identities(1000);
  return identities.Get(name, [&name] { return LookUp(name); });
}

// What follows the scheme in an Authorization header of this scheme (RFC 9110, section 11.4).
std::optional<std::string> CredentialsOf(const WebRequest& request, const char* scheme) {
  const std::string header = request.Variable("HTTP_AUTHORIZATION");
  const std::size_t space = header.find(' ');
  if (strcasecmp(header.substr(0, space).c_str(), scheme) != 0) return std::nullopt;
  const std::size_t begin = header.find_first_not_of(' ', space);
  return begin == std::string::npos ? std::string() : header.substr(begin);
}

std::optional<APICredentials> ReadPair(const std::string& credentials) {
  std::string pair(credentials.size(), '\0');
  std::size_t size = 0;
  if (sodium_base642bin(reinterpret_cast<unsigned char*>(pair.data()), pair.size(),
                        credentials.data(), credentials.size(), nullptr, &size, nullptr,
                        sodium_base64_VARIANT_ORIGINAL) != 0) {
    return std::nullopt;
  }
  pair.resize(size);
  const std::size_t colon = pair.find(':');
  if (colon == std::string::npos) return std::nullopt;
  return APICredentials{pair.substr(0, colon), pair.substr(colon + 1)};
}

Owner NamedOwner(How how, std::string account) {
  Owner owner;
  owner.how = how;
  owner.account = std::move(account);
  return owner;
}

Caller JudgePassword(const WebRequest& request, Pool pool, const std::string& credentials,
                     std::optional<Owner>& owner) {
  const std::string judged = request.Variable(kJudgedOwner);
  if (!judged.empty()) {
    owner = NamedOwner(How::kBasic, judged);
    return {};
  }
  if (pool != Pool::kLogin) return {Kind::kUnjudged};
  const auto pair = ReadPair(credentials);
  if (!pair) return {};
  sharing::owners::Attempt attempt;
  attempt.account = pair->account;
  attempt.answers = {pair->password};
  attempt.address = request.Variable("REMOTE_ADDR");
  attempt.makes_session = false;
  const auto outcome = SignIn(attempt);
  if (outcome.kind == sharing::owners::Outcome::Kind::kFailed) return {Kind::kUnknown};
  if (outcome.wait > 0) return {Kind::kBraked, outcome.wait};
  if (!outcome.account.empty()) owner = NamedOwner(How::kBasic, outcome.account);
  return {};
}

// Sets `owner` to whom the request names, if it proves that.
Caller Judge(const WebRequest& request, const Options& options, Pool pool,
             const RequestContext& context, std::optional<Owner>& owner) {
  if (const auto token = CredentialsOf(request, "Bearer")) {
    return {sharing::owners::FindToken(*token, owner) ? Kind::kNobody : Kind::kUnknown};
  }
  if (options.owner_basic) {
    const auto credentials = CredentialsOf(request, "Basic");
    if (credentials) return JudgePassword(request, pool, *credentials, owner);
  }
  if (options.web_server_names_owners) {
    const std::string name = request.Variable("REMOTE_USER");
    if (!name.empty()) owner = NamedOwner(How::kWebServer, name);
    return {};
  }
  const auto sid = context.cookies.find(sharing::owners::SessionCookie(context.client.secure));
  if (sid == context.cookies.end()) return {};
  return {sharing::owners::FindSession(sid->second, owner) ? Kind::kNobody : Kind::kUnknown};
}

}  // namespace

std::optional<APICredentials> BasicCredentials(const WebRequest& request) {
  const auto credentials = CredentialsOf(request, "Basic");
  return credentials ? ReadPair(*credentials) : std::nullopt;
}

Caller IdentifyCaller(const WebRequest& request, const Options& options, Pool pool,
                      RequestContext& context) {
  std::optional<Owner> owner;
  Caller caller = Judge(request, options, pool, context, owner);
  if (owner && owner->check_due && pool == Pool::kFront) return {Kind::kUnjudged};
  if (owner && owner->check_due && pool == Pool::kLogin) {
    if (!sharing::owners::CheckAccount(owner->account, context.client.address)) return {};
    caller = Judge(request, options, pool, context, owner = std::nullopt);
  }
  if (!owner) return caller;
  // Of a name that the web server or PAM has just given, nothing is to be compared.
  const bool stored = owner->how == How::kSession || owner->how == How::kToken;
  const auto identity = FindIdentity(owner->account);
  if (!identity || (stored && identity->uid != owner->uid)) return {};
  context.login_uid = identity->uid;
  context.is_admin = identity->is_admin;
  context.owner = std::move(*owner);
  return {Kind::kOwner};
}

}  // namespace VELT::host
