#include "module/SharingAPIChecks.h"

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "module/Parameters.h"
#include "module/SharingAPI.h"
#include "veltwebapi/APIParameter.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APIValidator.h"
#include "veltwebapi/WebAPIUtil.h"

namespace VELT {
namespace {

using StringParameter = APIParameter<std::string>;
using JsonParameter = APIParameter<Json::Value>;

// Why a parameter is refused.
constexpr const char* kRequired = "required";
constexpr const char* kType = "type";
constexpr const char* kCondition = "condition";

// Reads the parameters of one pre-check, all of them before Judge looks at the first.
class ParamCheck {
 public:
  ParamCheck(APIRequest* request, APIResponse* response) : request_(request), response_(response) {}

  template <typename... Params>
  auto ReadAll(const std::tuple<Params...>& all) {
    return std::apply([this](const Params&... each) { return std::tuple{Read(each)...}; }, all);
  }

  // False when a parameter is invalid; the first such one is then reported.
  bool Judge() {
    const auto bad = std::ranges::find_if(rows_, &Verdict::invalid);
    if (bad == rows_.end()) return true;
    return Refuse(bad->name, bad->set ? kType : kRequired);
  }

  bool Refuse(const char* name, const char* reason) {
    Json::Value detail;
    detail["name"] = name;
    detail["reason"] = reason;
    response_->SetError(kErrorCheck, detail);
    return false;
  }

 private:
  struct Verdict {
    const char* name;
    bool set;
    bool invalid;
  };

  StringParameter Read(const params::Text& row) {
    return Note(row.name, request_->GetAndCheckString(row.name, row.necessity, nullptr),
                std::string(row.fallback), row.necessity);
  }
  APIParameter<int> Read(const params::Int& row) {
    return Note(row.name, request_->GetAndCheckInt(row.name, row.necessity, nullptr), row.fallback,
                row.necessity);
  }
  APIParameter<bool> Read(const params::Bool& row) {
    return Note(row.name, request_->GetAndCheckBool(row.name, row.necessity, nullptr), row.fallback,
                row.necessity);
  }
  JsonParameter Read(const params::Object& row) {
    return Note(row.name, request_->GetAndCheckObject(row.name, PARAM_OPTIONAL, nullptr),
                Json::Value(Json::objectValue), PARAM_OPTIONAL);
  }
  JsonParameter Read(const params::Names& row) {
    return Note(row.name, request_->GetAndCheckUnitArray(row.name, PARAM_OPTIONAL, nullptr),
                Json::Value(Json::arrayValue), PARAM_OPTIONAL);
  }

  template <typename T>
  APIParameter<T> Note(const char* name, APIParameter<T> parameter, const T& fallback,
                       PARAM_NECESSITY necessity) {
    if (necessity == PARAM_OPTIONAL) parameter.SetDefault(fallback);
    rows_.push_back({name, parameter.IsSet(), parameter.IsInvalid()});
    return parameter;
  }

  APIRequest* request_;
  APIResponse* response_;
  std::vector<Verdict> rows_;
};

bool IsChoice(const StringParameter& parameter, const params::Text& row) {
  return !parameter.IsSet() ||
         APIValidator::IsBelong(parameter, WebAPIUtil::ParseJson(row.choices));
}

bool HasOnlyStrings(const JsonParameter& array) {
  return std::ranges::all_of(array.Get(), &Json::Value::isString);
}

// The whole check of a method that has no rules for values.
template <typename... Params>
bool CheckTypes(const std::tuple<Params...>& all, APIRequest* request, APIResponse* response) {
  ParamCheck check(request, response);
  check.ReadAll(all);
  return check.Judge();
}

}  // namespace

bool CheckSharingSessionParams(APIRequest* /*request*/, APIResponse* /*response*/) { return true; }

bool CheckSharingLogoutParams(APIRequest* /*request*/, APIResponse* /*response*/) { return true; }

bool CheckSharingInitdataParams(APIRequest* request, APIResponse* response) {
  return CheckTypes(params::initdata::kAll, request, response);
}

bool CheckSharingLoginParams(APIRequest* request, APIResponse* response) {
  return CheckTypes(params::login::kAll, request, response);
}

bool CheckSharingGetParams(APIRequest* request, APIResponse* response) {
  return CheckTypes(params::get::kAll, request, response);
}

bool CheckSharingDeleteParams(APIRequest* request, APIResponse* response) {
  return CheckTypes(params::remove::kAll, request, response);
}

bool CheckSharingTriggerGCParams(APIRequest* request, APIResponse* response) {
  return CheckTypes(params::trigger_gc::kAll, request, response);
}

bool CheckSharingListParams(APIRequest* request, APIResponse* response) {
  ParamCheck check(request, response);
  const auto [share_with_me, all_entry, sort_direction, sort_by, offset, limit, project_name] =
      check.ReadAll(params::list::kAll);
  if (!check.Judge()) return false;

  if (!IsChoice(sort_direction, params::list::kSortDirection)) {
    return check.Refuse(params::list::kSortDirection.name, kCondition);
  }
  return true;
}

bool CheckSharingSetParams(APIRequest* request, APIResponse* response) {
  namespace set = params::set;
  ParamCheck check(request, response);
  const auto [project_name, sharing_id, app, private_data, redirect_uri, redirect_type,
              protect_groups, protect_users, protect_password, protect_type, protect_title,
              enable_match_ip, expire_times, start_at, expire_at, auto_gc, enabled] =
      check.ReadAll(set::kAll);
  if (!check.Judge()) return false;

  if (!HasOnlyStrings(protect_groups)) return check.Refuse(set::kProtectGroups.name, kType);
  if (!HasOnlyStrings(protect_users)) return check.Refuse(set::kProtectUsers.name, kType);
  if (APIValidator::IsEqual(project_name, "")) {
    return check.Refuse(set::kProjectName.name, kCondition);
  }
  if (!IsChoice(redirect_type, set::kRedirectType)) {
    return check.Refuse(set::kRedirectType.name, kCondition);
  }
  // An absent password is refused too: its default is the empty string.
  if (APIValidator::IsEqual(protect_type, "password") &&
      APIValidator::IsEqual(protect_password, "")) {
    return check.Refuse(set::kProtectPassword.name, kCondition);
  }
  if (!IsChoice(protect_type, set::kProtectType)) {
    return check.Refuse(set::kProtectType.name, kCondition);
  }
  if (expire_times.IsSet() && !APIValidator::IsGreater(expire_times, set::kExpireTimes.least - 1)) {
    return check.Refuse(set::kExpireTimes.name, kCondition);
  }
  return true;
}

}  // namespace VELT
