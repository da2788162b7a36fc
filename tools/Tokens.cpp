// token: programs' tokens of an account, as its owner makes them through the API.
#include <string>
#include <vector>

#include "tools/Command.h"
#include "tools/Database.h"
#include "veltsharing/Owners.h"
#include "veltsys/Accounts.h"
#include "veltsys/User.h"

namespace VELT::tools {
namespace {

namespace owners = sharing::owners;

std::vector<owners::TokenRow> TokensOf(const std::string& owner) {
  std::vector<owners::TokenRow> rows;
  if (!ListTokens(owner, rows)) throw Failure("the database can't be read");
  return rows;
}

}  // namespace

Json::Value CreateToken(const HostOptions& options, const NewToken& token) {
  const auto user = accounts::FindUser(token.owner);
  if (!user) throw Failure("no account is called " + token.owner);
  owners::TokenRow row;
  row.name = token.name;
  row.may_change = token.scope == "write";
  row.projects = token.projects;
  const auto expire_at = owners::ParseTime(token.expire_at);
  if (!expire_at) throw Failure("--expire-at takes a time such as \"2030-01-31 12:00:00\"");
  row.expire_at = *expire_at;
  UseStore(options);
  if (TokensOf(user->name).size() >= owners::kMostTokens) {
    throw Failure(user->name + " has as many tokens as an account may have");
  }
  Json::Value result;
  std::string text;
  if (!owners::CreateToken(user->name, user->uid, row, text)) {
    throw Failure("the database can't be changed");
  }
  result["id"] = Json::Int64{row.id};
  result["token"] = text;
  return result;
}

Json::Value ListTokens(const HostOptions& options, const std::string& owner) {
  UseStore(options);
  Json::Value result;
  result["tokens"] = Json::Value(Json::arrayValue);
  for (const owners::TokenRow& row : TokensOf(owner)) {
    Json::Value token;
    token["id"] = Json::Int64{row.id};
    token["name"] = row.name;
    token["scope"] = row.may_change ? "write" : "read";
    token["projects"] = Json::Value(Json::arrayValue);
    for (const std::string& project : row.projects) token["projects"].append(project);
    token["created_at"] = owners::TimeText(row.created_at);
    token["last_used"] = owners::TimeText(row.last_used);
    token["expire_at"] = owners::TimeText(row.expire_at);
    result["tokens"].append(token);
  }
  return result;
}

Json::Value DeleteToken(const HostOptions& options, const std::string& owner, long long id) {
  UseStore(options);
  if (!owners::DeleteToken(owner, id)) {
    throw Failure(owner + " has no token " + std::to_string(id));
  }
  return Json::Value(Json::objectValue);
}

}  // namespace VELT::tools
