#include "module/SharingAPIChecks.h"

#include <algorithm>
#include <vector>

#include "module/SharingAPI.h"
#include "veltwebapi/APIParameter.h"
#include "veltwebapi/APIValidator.h"
#include "veltwebapi/WebAPIUtil.h"

namespace VELT {
namespace {

using StringParameter = APIParameter<std::string>;
using JsonParameter = APIParameter<Json::Value>;

// Reads the rows of one check; all are read before Judge looks at the first.
class ParamCheck {
 public:
  ParamCheck(APIRequest* request, APIResponse* response) : request_(request), response_(response) {}

  StringParameter RequiredString(const char* name) {
    return Row(name, request_->GetAndCheckString(name, PARAM_REQUIRED, nullptr));
  }
  StringParameter String(const char* name, const char* fallback) {
    return Row(name, request_->GetAndCheckString(name, PARAM_OPTIONAL, nullptr), {fallback});
  }
  APIParameter<int> Int(const char* name, int fallback) {
    return Row(name, request_->GetAndCheckInt(name, PARAM_OPTIONAL, nullptr), fallback);
  }
  APIParameter<bool> Bool(const char* name, bool fallback) {
    return Row(name, request_->GetAndCheckBool(name, PARAM_OPTIONAL, nullptr), fallback);
  }
  JsonParameter Object(const char* name) {
    return Row(name, request_->GetAndCheckObject(name, PARAM_OPTIONAL, nullptr),
               Json::Value(Json::objectValue));
  }
  JsonParameter UnitArray(const char* name) {
    return Row(name, request_->GetAndCheckUnitArray(name, PARAM_OPTIONAL, nullptr),
               Json::Value(Json::arrayValue));
  }

  // Reports the first invalid row, if any.
  bool Judge() {
    const auto bad = std::ranges::find_if(rows_, &Verdict::invalid);
    if (bad == rows_.end()) return true;
    return Refuse(bad->name, bad->set ? "type" : "required");
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

  template <typename T>
  APIParameter<T> Row(const char* name, APIParameter<T> parameter) {
    rows_.push_back({name, parameter.IsSet(), parameter.IsInvalid()});
    return parameter;
  }
  template <typename T>
  APIParameter<T> Row(const char* name, APIParameter<T> parameter, const T& fallback) {
    parameter.SetDefault(fallback);
    return Row(name, std::move(parameter));
  }

  APIRequest* request_;
  APIResponse* response_;
  std::vector<Verdict> rows_;
};

bool IsOneOf(const StringParameter& parameter, const char* allowed_json) {
  return APIValidator::IsBelong(parameter, WebAPIUtil::ParseJson(allowed_json));
}

bool HasOnlyStrings(const JsonParameter& array) {
  return std::ranges::all_of(array.Get(), &Json::Value::isString);
}

}  // namespace

bool CheckSharingSessionParams(APIRequest* /*request*/, APIResponse* /*response*/) { return true; }

bool CheckSharingLogoutParams(APIRequest* /*request*/, APIResponse* /*response*/) { return true; }

bool CheckSharingInitdataParams(APIRequest* request, APIResponse* response) {
  ParamCheck check(request, response);
  check.String("action", "");
  return check.Judge();
}

bool CheckSharingLoginParams(APIRequest* request, APIResponse* response) {
  ParamCheck check(request, response);
  check.String("password", "");
  check.RequiredString("sharing_id");
  check.String("mosk_password", "");
  check.String("mosk_username", "");
  return check.Judge();
}

bool CheckSharingGetParams(APIRequest* request, APIResponse* response) {
  ParamCheck check(request, response);
  check.String("sharing_id", "");
  return check.Judge();
}

bool CheckSharingDeleteParams(APIRequest* request, APIResponse* response) {
  ParamCheck check(request, response);
  check.RequiredString("sharing_id");
  return check.Judge();
}

bool CheckSharingTriggerGCParams(APIRequest* request, APIResponse* response) {
  ParamCheck check(request, response);
  check.Bool("all_entry", false);
  check.String("project_name", "");
  return check.Judge();
}

bool CheckSharingListParams(APIRequest* request, APIResponse* response) {
  ParamCheck check(request, response);
  check.Bool("share_with_me", false);
  check.Bool("all_entry", false);
  const StringParameter sort_direction = check.String("sort_direction", "ASC");
  check.String("sort_by", "");
  check.Int("offset", -1);
  check.Int("limit", -1);
  check.String("project_name", "");
  if (!check.Judge()) return false;

  if (sort_direction.IsSet() && !IsOneOf(sort_direction, R"(["ASC", "DESC"])")) {
    return check.Refuse("sort_direction", "condition");
  }
  return true;
}

bool CheckSharingSetParams(APIRequest* request, APIResponse* response) {
  ParamCheck check(request, response);
  const StringParameter project_name = check.RequiredString("project_name");
  check.String("sharing_id", "");
  check.Object("app");
  check.Object("private_data");
  check.String("redirect_uri", "");
  const StringParameter redirect_type = check.String("redirect_type", "none");
  const JsonParameter protect_groups = check.UnitArray("protect_groups");
  const JsonParameter protect_users = check.UnitArray("protect_users");
  const StringParameter protect_password = check.String("protect_password", "");
  const StringParameter protect_type = check.String("protect_type", "none");
  check.String("protect_title", "");
  check.Bool("enable_match_ip", true);
  const APIParameter<int> expire_times = check.Int("expire_times", 0);
  check.String("start_at", "");
  check.String("expire_at", "");
  check.Bool("auto_gc", false);
  check.Bool("enabled", true);
  if (!check.Judge()) return false;

  if (!HasOnlyStrings(protect_groups)) return check.Refuse("protect_groups", "type");
  if (!HasOnlyStrings(protect_users)) return check.Refuse("protect_users", "type");
  if (APIValidator::IsEqual(project_name, "")) return check.Refuse("project_name", "condition");
  if (redirect_type.IsSet() && !IsOneOf(redirect_type, R"(["none", "url_param", "always"])")) {
    return check.Refuse("redirect_type", "condition");
  }
  // Present and empty, or absent: the default is the empty text.
  if (APIValidator::IsEqual(protect_type, "password") &&
      APIValidator::IsEqual(protect_password, "")) {
    return check.Refuse("protect_password", "condition");
  }
  if (protect_type.IsSet() && !IsOneOf(protect_type, R"(["none", "password", "user"])")) {
    return check.Refuse("protect_type", "condition");
  }
  if (expire_times.IsSet() && !APIValidator::IsGreater(expire_times, -1)) {
    return check.Refuse("expire_times", "condition");
  }
  return true;
}

}  // namespace VELT
