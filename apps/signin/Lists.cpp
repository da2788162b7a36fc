// An owner's sessions and tokens.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/signin/Methods.h"
#include "declared/VELT.Core.SignIn.h"
#include "veltsharing/Owners.h"

namespace VELT::signin {
namespace {

namespace owners = sharing::owners;
using owners::Owner;
using owners::SessionRow;
using owners::TimeText;
using owners::TokenRow;

constexpr std::size_t kLongestName = 100;
constexpr std::size_t kLongestProject = 255;

// Whoever has found a token must not make further ones with it, or end its owner's sessions.
bool IsToken(const APIRequest& request, APIResponse* response) {
  if (request.GetOwner().how != Owner::How::kToken) return false;
  response->SetError(kNotByToken, "a token can't be used for this");
  return true;
}

void RefuseParameter(const char* name, APIResponse* response) {
  Json::Value detail;
  detail["name"] = name;
  detail["reason"] = "condition";
  response->SetError(kErrorCheck, detail);
}

bool ReadProjects(const APIRequest& request, std::vector<std::string>& projects) {
  for (const Json::Value& value : params::Read(request, params::SignInTokenCreate::kProjects)) {
    const std::string project = value.asString();
    if (project.empty() || project.size() > kLongestProject ||
        project.find('\n') != std::string::npos) {
      return false;
    }
    projects.push_back(project);
  }
  // An empty list would mean all projects, which who gives a list does not want.
  return !projects.empty() || !request.HasParam(params::SignInTokenCreate::kProjects.name);
}

Json::Value Shown(const TokenRow& token) {
  Json::Value shown;
  shown["id"] = Json::Int64{token.id};
  shown["name"] = token.name;
  shown["scope"] = token.may_change ? "write" : "read";
  shown["projects"] = Json::Value(Json::arrayValue);
  for (const std::string& project : token.projects) shown["projects"].append(project);
  shown["created_at"] = TimeText(token.created_at);
  shown["last_used"] = TimeText(token.last_used);
  shown["expire_at"] = TimeText(token.expire_at);
  return shown;
}

}  // namespace

void SessionList(APIRequest* request, APIResponse* response) {
  if (IsToken(*request, response)) return;
  const Owner& owner = request->GetOwner();
  std::vector<SessionRow> sessions;
  if (!ListSessions(owner.account, sessions)) return response->SetError(kErrorStore, "db error");
  Json::Value data;
  data["sessions"] = Json::Value(Json::arrayValue);
  for (const SessionRow& session : sessions) {
    Json::Value shown;
    shown["id"] = Json::Int64{session.id};
    shown["current"] = owner.how == Owner::How::kSession && owner.id == session.id;
    shown["created_at"] = TimeText(session.created_at);
    shown["last_used"] = TimeText(session.last_used);
    shown["address"] = session.address;
    shown["browser"] = session.browser;
    data["sessions"].append(shown);
  }
  response->SetSuccess(data);
}

void SessionEnd(APIRequest* request, APIResponse* response) {
  using Method = params::SignInSessionEnd;
  if (IsToken(*request, response)) return;
  const Owner& owner = request->GetOwner();
  const long long id = params::Read(*request, Method::kId);
  if (params::Read(*request, Method::kOthers)) {
    const long long kept = owner.how == Owner::How::kSession ? owner.id : 0;
    if (!owners::EndOtherSessions(owner.account, kept))
      return response->SetError(kErrorStore, "db error");
  } else if (!owners::EndSession(owner.account, id)) {
    return response->SetError(kNotThere, "no such session");
  }
  response->SetSuccess(Json::Value(Json::objectValue));
}

void TokenCreate(APIRequest* request, APIResponse* response) {
  using Method = params::SignInTokenCreate;
  if (IsToken(*request, response)) return;
  TokenRow row;
  row.name = params::Read(*request, Method::kName);
  row.may_change = params::Read(*request, Method::kScope) == "write";
  const auto expire_at = owners::ParseTime(params::Read(*request, Method::kExpireAt));
  if (row.name.size() > kLongestName) return RefuseParameter(Method::kName.name, response);
  if (!ReadProjects(*request, row.projects)) {
    return RefuseParameter(Method::kProjects.name, response);
  }
  // A mistyped expiry must not mean "for ever".
  if (!expire_at) return RefuseParameter(Method::kExpireAt.name, response);
  row.expire_at = *expire_at;
  const std::string& account = request->GetOwner().account;
  std::vector<TokenRow> tokens;
  if (!ListTokens(account, tokens)) return response->SetError(kErrorStore, "db error");
  if (tokens.size() >= owners::kMostTokens) {
    return response->SetError(kTooMany, "too many tokens");
  }
  Json::Value data;
  std::string token;
  if (!CreateToken(account, request->GetLoginUID(), row, token)) {
    return response->SetError(kErrorStore, "db error");
  }
  data["id"] = Json::Int64{row.id};
  data["token"] = token;
  response->SetSuccess(data);
}

void TokenList(APIRequest* request, APIResponse* response) {
  if (IsToken(*request, response)) return;
  std::vector<TokenRow> tokens;
  if (!ListTokens(request->GetOwner().account, tokens)) {
    return response->SetError(kErrorStore, "db error");
  }
  Json::Value data;
  data["tokens"] = Json::Value(Json::arrayValue);
  for (const TokenRow& token : tokens) data["tokens"].append(Shown(token));
  response->SetSuccess(data);
}

void TokenDelete(APIRequest* request, APIResponse* response) {
  if (IsToken(*request, response)) return;
  const std::int64_t id = params::Read(*request, params::SignInTokenDelete::kId);
  if (!owners::DeleteToken(request->GetOwner().account, id)) {
    return response->SetError(kNotThere, "no such token");
  }
  response->SetSuccess(Json::Value(Json::objectValue));
}

}  // namespace VELT::signin
