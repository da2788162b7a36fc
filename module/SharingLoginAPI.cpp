#include "module/SharingLoginAPI.h"

#include <syslog.h>

#include "declared/VELT.Core.Sharing.h"
#include "module/AppConfig.h"
#include "sharing/InitDataHandler.h"
#include "sharing/Log.h"
#include "sharing/LogPlaces.h"
#include "sharing/RunAsGuard.h"
#include "veltsharing/Keys.h"
#include "veltsharing/Login.h"

namespace VELT {
namespace {

using sharing::LoginResult;

ErrorCode CodeOf(LoginResult failure) {
  switch (failure) {
    case LoginResult::kWrongAccount:
      return kErrorUserLogin;
    case LoginResult::kNotServed:
      return kErrorLogin;
    case LoginResult::kDenied:
      return kErrorAddress;
    case LoginResult::kWrongPassword:
      return kErrorProtectPassword;
    case LoginResult::kNotListed:
      return kErrorProtectUser;
    case LoginResult::kUsedUp:
      return kErrorExpireTimes;
    default:
      return kErrorStore;
  }
}

}  // namespace

int SharingLogin::ParseParams() {
  sharing_id_ = Read(params::SharingLoginLogin::kSharingId);
  password_ = Read(params::SharingLoginLogin::kPassword);
  mosk_username_ = Read(params::SharingLoginLogin::kMoskUsername);
  mosk_password_ = Read(params::SharingLoginLogin::kMoskPassword);
  sid_ = request_->GetCookie(sharing::SZK_SHARING_SID, "");
  return 0;
}

// As root, because the store checks passwords of the appliance's accounts.
int SharingLogin::Execute() {
  IF_RUN_AS(0, 0, log_place::kLoginGuard) { return Login(); }
  // NOLINTNEXTLINE(readability-else-after-return): the guard ends after this block.
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
  const auto result = static_cast<LoginResult>(VeltSharingLogin(sid, &params, false));
  if (result != LoginResult::kLoggedIn) {
    const ErrorCode code = CodeOf(result);
    return code == kErrorStore ? Fail(code, "login internal error") : Fail(code);
  }

  if (!response_->AddCookie("/", sharing::SZK_SHARING_SID, sid, 0, "", false, false)) {
    LOG_AT(log_place::kLoginCookie, LOG_ERR, "AddCookie fail");
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
  std::string sid = Read(params::Text{sharing::SZK_SHARING_SID});
  if (sid.empty()) sid = request_->GetSharingSID();

  if (!request_->IsSharing()) return Fail(kErrorParam, "only allow sharing request");
  if (VeltSharingLogout(sharing_id, sid) == 0) return Fail(kErrorLogout);
  return 0;
}

SharingInitdata::SharingInitdata(APIRequest* request, APIResponse* response)
    : SharingAPIBase(request, response) {}

SharingInitdata::~SharingInitdata() = default;

int SharingInitdata::ParseParams() {
  action_ = Read(params::SharingInitdataGet::kAction);
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
