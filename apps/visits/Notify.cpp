// VELT.Notify: what owners want to be told of their links, and where to.
#include "apps/visits/Notify.h"

#include <algorithm>
#include <optional>
#include <regex>
#include <string>

#include "declared/VELT.Visits.h"
#include "veltsharing/Notify.h"
#include "veltsharing/SharingDB.h"
#include "veltsys/Accounts.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/ErrorCodes.h"

namespace VELT::visits {
namespace {

namespace notify = sharing::notify;

enum Code : int {
  kNoMailAddress = 4000,
  kNoWebAddress = 4001,
  kWrongCode = 4002,
  kUnknownKind = 4003,
};

constexpr std::size_t kLongestMail = 254;
constexpr std::size_t kLongestUrl = 2000;

Json::Value ToJson(notify::Kinds kinds) {
  Json::Value names(Json::arrayValue);
  for (const auto& [name, kind] : notify::kKindNames) {
    if ((kinds & kind) != 0) names.append(name);
  }
  return names;
}

// Empty when one of the names is none.
std::optional<notify::Kinds> KindsOf(const Json::Value& names) {
  notify::Kinds kinds = 0;
  for (const Json::Value& name : names) {
    const auto* const found = std::find_if(
        notify::kKindNames.begin(), notify::kKindNames.end(),
        [&](const auto& each) { return name.isString() && name.asString() == each.first; });
    if (found == notify::kKindNames.end()) return std::nullopt;
    kinds |= found->second;
  }
  return kinds;
}

// Of RFC 5321 what mail programs take without quoting.
bool IsMailAddress(const std::string& text) {
  static const std::regex kForm(
      R"([A-Za-z0-9!#$%&'*+/=?^_`{|}~][A-Za-z0-9!#$%&'*+/=?^_`{|}~.-]*@[A-Za-z0-9][A-Za-z0-9.-]*)");
  return text.size() <= kLongestMail && std::regex_match(text, kForm);
}

bool IsWebAddress(const std::string& text) {
  const bool has_scheme = text.starts_with("https://") || text.starts_with("http://");
  return has_scheme && text.size() <= kLongestUrl &&
         std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

bool FindOwn(const APIRequest& request, APIResponse& response, const std::string& id,
             sharing::record::Entry& entry) {
  auto& database = *sharing::db::SharingDB::Instance();
  if (!database.IsGood()) {
    response.SetError(kErrorStore, "db error");
  } else if (!sharing::db::EntryDB(database).GetByHash(id, entry) ||
             entry.get_owner_uid() != request.GetLoginUID()) {
    response.SetError(kErrorSharingID, "no such link");
  } else {
    return true;
  }
  return false;
}

void Answer(APIResponse& response, bool done, const Json::Value& data = Json::objectValue) {
  if (done) {
    response.SetSuccess(data);
  } else {
    response.SetError(kErrorStore, "db error");
  }
}

Json::Value ToJson(const notify::Channel& channel) {
  Json::Value data;
  data["address"] = channel.address;
  data["confirmed"] = channel.confirmed;
  data["error"] = channel.error;
  data["failing_since"] = Json::Int64{channel.failing_since};
  return data;
}

}  // namespace

void NotifyGet(APIRequest* request, APIResponse* response) {
  const std::string link = params::Read(*request, params::NotifyGet::kSharingId);
  notify::Settings settings;
  std::optional<notify::Kinds> of_link;
  sharing::record::Entry entry;
  if (!link.empty() && !FindOwn(*request, *response, link, entry)) return;
  const bool done = notify::Load(request->GetLoginUID(), settings) &&
                    (link.empty() || notify::LoadOfLink(entry, of_link));
  Json::Value data;
  data["kinds"] = ToJson(settings.kinds);
  data["mail"] = ToJson(settings.mail);
  data["webhook"] = ToJson(settings.webhook);
  data["link_kinds"] = of_link ? ToJson(*of_link) : Json::Value();
  Answer(*response, done, data);
}

void NotifySet(APIRequest* request, APIResponse* response) {
  using Row = params::NotifySet;
  const auto kinds = KindsOf(params::Read(*request, Row::kKinds));
  const std::string mail = params::Read(*request, Row::kMail);
  const std::string webhook = params::Read(*request, Row::kWebhook);
  const std::string language = params::Read(*request, Row::kLanguage);
  if (!kinds) return response->SetError(kUnknownKind, "unknown kind");
  if (!mail.empty() && !IsMailAddress(mail)) {
    return response->SetError(kNoMailAddress, "not an address of mail");
  }
  if (!webhook.empty() && !IsWebAddress(webhook)) {
    return response->SetError(kNoWebAddress, "not an address of the web");
  }
  static const std::regex kCode("[a-z]{3}");  // a part of a file's name
  const auto user = accounts::FindUser(request->GetLoginUID());
  if (!user) return response->SetError(kErrorStore, "no account");
  const bool is_code = std::regex_match(language, kCode);
  Answer(*response,
         notify::Save({user->uid, user->name, is_code ? language : ""}, *kinds, mail, webhook));
}

void NotifyLinkSet(APIRequest* request, APIResponse* response) {
  using Row = params::NotifyLinkSet;
  const std::string link = params::Read(*request, Row::kSharingId);
  auto kinds = KindsOf(params::Read(*request, Row::kKinds));
  const bool inherits = params::Read(*request, Row::kInherit);
  if (!kinds) return response->SetError(kUnknownKind, "unknown kind");
  sharing::record::Entry entry;
  if (!FindOwn(*request, *response, link, entry)) return;
  if (inherits) kinds.reset();
  Answer(*response, notify::SaveOfLink(entry, kinds));
}

void NotifyConfirm(APIRequest* request, APIResponse* response) {
  bool confirmed = false;
  const std::string code = params::Read(*request, params::NotifyConfirm::kCode);
  if (!notify::Confirm(request->GetLoginUID(), code, confirmed)) return Answer(*response, false);
  if (!confirmed) return response->SetError(kWrongCode, "not the code");
  Answer(*response, true);
}

void NotifySecret(APIRequest* request, APIResponse* response) {
  const bool renew = params::Read(*request, params::NotifySecret::kRenew);
  notify::Settings settings;
  const bool done = (!renew || notify::RenewSecret(request->GetLoginUID())) &&
                    notify::Load(request->GetLoginUID(), settings);
  Json::Value data;
  data["secret"] = settings.webhook.secret;
  Answer(*response, done, data);
}

void NotifyTest(APIRequest* request, APIResponse* response) {
  Answer(*response, notify::Try(request->GetLoginUID()));
}

}  // namespace VELT::visits
