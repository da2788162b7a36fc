#include "module/SharingLoginAPI.h"

#include <syslog.h>

#include "module/AppConfig.h"
#include "module/RunAsGuard.h"
#include "sharing/InitDataHandler.h"
#include "veltsharing/Keys.h"
#include "veltsharing/Login.h"

namespace VELT {
namespace {

struct LoginFailure {
  int code;
  const char* message;
};

LoginFailure FailureOf(int result) {
  switch (result) {
    case -2:
      return {kErrorUserLogin, "invalid mosk user login"};
    case -3:
      return {kErrorLogin, "login fail"};
    case -8:
      return {kErrorAddress, "denied IP"};
    case -9:
      return {kErrorProtectPassword, "wrong protect passwd"};
    case -10:
      return {kErrorProtectUser, "wrong protect user"};
    case -11:
      return {kErrorExpireTimes, "exceed expire times"};
    default:
      return {kErrorLoginInternal, "login internal error"};
  }
}

}  // namespace

int SharingLogin::ParseParams() {
  try {
    sharing_id_ = request_->GetParam(sharing::SZK_SHARING_ID, "").asString();
    password_ = request_->GetParam(sharing::SZK_PASSWORD_, "").asString();
    mosk_username_ = request_->GetParam(sharing::SZK_MOSK_USERNAME, "").asString();
    mosk_password_ = request_->GetParam(sharing::SZK_MOSK_PASSWORD, "").asString();
    sid_ = request_->GetCookie(sharing::SZK_SHARING_SID, "");
  } catch (const std::exception& error) {
    return Fail(kErrorParam, error.what());
  }
  return 0;
}

// Root, for the store checks the appliance's passwords.
int SharingLogin::Execute() {
  IF_RUN_AS(0, 0, log_place::kLoginGuard) { return Login(); }
  else {
    LogPermissionDenied(log_place::kLoginDenied);
    return kErrorParam;
  }
}

int SharingLogin::Login() {
  const _tag_sharing_login_params params{sharing_id_.c_str(), password_.c_str(),
                                         mosk_username_.c_str(), mosk_password_.c_str(),
                                         sid_.empty() ? nullptr : sid_.c_str()};
  std::string sid;
  if (const int result = VeltSharingLogin(sid, &params, false); result != 1) {
    const LoginFailure failure = FailureOf(result);
    return Fail(failure.code, failure.message);
  }

  if (!response_->AddCookie("/", sharing::SZK_SHARING_SID, sid, 0, "", false, false)) {
    syslog(LOG_ERR, "%s:%d AddCookie fail", log_place::kLoginCookie.source,
           log_place::kLoginCookie.line);
  }
  sid_ = sid;
  LoadSharingAppConfig();
  RunRenderPlugins();
  return 0;
}

void SharingLogin::LoadSharingAppConfig() {
  if (!FindSharingEntry(sharing_id_, entry_)) return;
  app_config_ = ReadSharingAppConfig(entry_);
}

void SharingLogin::RunRenderPlugins() {
  Json::Value output(Json::objectValue);
  const RenderPluginInput input{entry_, sharing::SZK_PROTECT_PROTECT_NONE, Json::nullValue};
  if (!DispatchRenderPlugins(app_config_, "custom_page", input, log_place::kLoginPlugins, output)) {
    return;
  }
  private_result_ = output.get("PRIVATE", "");
}

int SharingLogin::FormOutput() {
  result_ = Json::Value(Json::objectValue);
  result_[sharing::SZK_SHARING_SID] = sid_;
  result_["private"] = private_result_;
  return 0;
}

int SharingLogout::Execute() {
  const std::string sharing_id = request_->GetSharingID();
  std::string sid = request_->GetParam(sharing::SZK_SHARING_SID, "").asString();
  if (sid.empty()) sid = request_->GetSharingSID();

  if (!request_->IsSharing()) return Fail(kErrorParam, "only allow sharing request");
  if (VeltSharingLogout(sharing_id, sid) == 0) return Fail(kErrorLogout, "logout fail");
  return 0;
}

SharingInitdata::SharingInitdata(APIRequest* request, APIResponse* response)
    : SharingAPIBase(request, response) {}

SharingInitdata::~SharingInitdata() = default;

int SharingInitdata::ParseParams() {
  try {
    action_ = request_->GetParam(sharing::SZK_ACTION, "").asString();
  } catch (const std::exception& error) {
    return Fail(kErrorParam, error.what());
  }
  return 0;
}

int SharingInitdata::Execute() {
  handler_ = std::make_unique<sharing::InitDataHandler>(request_);
  if (action_ == sharing::SZK_EXTERNAL_IP_) {
    handler_->InitExternalService(result_);
  } else if (action_ == sharing::SZK_ASSISTANT) {
    handler_->InitAssistant(result_);
  } else if (action_ == sharing::SZK_JSCONFIG) {
    handler_->InitReloadJS(result_);
  } else {
    handler_->InitDesktop(result_, false);
  }
  return 0;
}

}  // namespace VELT
