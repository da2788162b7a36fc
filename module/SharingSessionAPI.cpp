#include "module/SharingSessionAPI.h"

#include <strings.h>

#include <cstdio>

#include "module/AppConfig.h"
#include "sharing/LogPlaces.h"
#include "sharing/StyledJson.h"
#include "veltsharing/Keys.h"
#include "veltsys/KeyFile.h"
#include "veltsys/VeltConf.h"
#include "veltweb/SessionDataHandler.h"
#include "veltweb/WebUtils.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT {
namespace {

constexpr char kSystemInfoFile[] = "/etc.defaults/veltinfo.conf";
constexpr char kScriptHeader[] = "Content-Type: application/javascript; charset=\"UTF-8\"\r\n\r\n";

}  // namespace

int SharingSession::ParseParams() {
  sharing_id_ = Read(params::SharingSessionGet::kSharingId);
  sharing_status_ = Read(params::SharingSessionGet::kSharingStatus);
  sharing_error_ = Read(params::SharingSessionGet::kSharingError);
  preview_ = Read(params::SharingSessionGet::kPreview);
  if (!preview_) return 0;
  sharing_preview_status_ = Read(params::SharingSessionGet::kSharingPreviewStatus);
  sharing_preview_params_ = Read(params::SharingSessionGet::kSharingPreviewParams);
  sharing_preview_project_name_ = Read(params::SharingSessionGet::kSharingPreviewProjectName);
  return 0;
}

int SharingSession::Execute() {
  TALD::SessionDataHandler session_data(request_);
  if (preview_) InitSharingPreviewParam();
  if (preview_ || !sharing_id_.empty()) LoadSharingAppConfig();
  CollectMOSKSession();
  CollectSharingSession();
  RunRenderPlugins();
  session_data.GetLoginStyleParam(session_);
  session_data.GetFooterInfo(session_);
  return 0;
}

void SharingSession::InitSharingPreviewParam() {
  if (sharing_preview_status_ != sharing::SZK_PROTECT_PROTECT_PASSWORD &&
      sharing_preview_status_ != sharing::SZK_PROTECT_PROTECT_USER) {
    sharing_preview_status_ = sharing::SZK_PROTECT_PROTECT_PASSWORD;
  }
  entry_.set_project_name(sharing_preview_project_name_);

  preview_param_ = Json::Value(Json::objectValue);
  preview_param_["preview"] = true;
  preview_param_["sharing_status"] = sharing_preview_status_;
  preview_param_["sharing_preview_params"] = sharing_preview_params_;
  preview_param_["sharing_preview_project_name"] = sharing_preview_project_name_;
}

void SharingSession::LoadSharingAppConfig() {
  if (!preview_ && !FindSharingEntry(sharing_id_, entry_)) return;
  app_config_ = ReadSharingAppConfig(entry_);
}

void SharingSession::CollectMOSKSession() {
  const VeltConf settings;
  session_["hostname"] = WebUtils::EncodeHtml(WebUtils::GetServerName(), false);
  session_["version"] = WebUtils::GetModifyTime(nullptr);
  session_["fullversion"] = WebUtils::GetModifyTime(nullptr);
  session_["configured"] = strcasecmp(settings.Info("configured", "yes").c_str(), "yes") == 0;
  session_["lang"] = request_->GetUILanguage();
  session_["diskless"] = VLIBCFileCheckKeyValue(kSystemInfoFile, "kestrabox", "yes", 0) != 0;
}

void SharingSession::CollectSharingSession() {
  session_["enable_velt_token"] = "no";
  session_["isLogined"] = false;
  session_["sharing"] = true;
  session_["sharing_id"] = sharing_id_;
  session_["sharing_status"] = sharing_status_;

  const bool configured = app_config_.isObject();
  session_["sharing_theme"] = configured && app_config_.isMember("theme")
                                  ? app_config_["theme"]
                                  : Json::Value(Json::objectValue);
  if (!entry_.get_protect_title().empty()) {
    session_["protect_title"] = entry_.get_protect_title();
  } else {
    session_["protect_title"] = configured ? app_config_.get("protect_title", "") : Json::Value("");
  }

  if (sharing_error_ != params::SharingSessionGet::kSharingError.fallback)
    session_["sharing_error"] = sharing_error_;
  if (preview_) {
    for (const char* key :
         {"preview", "sharing_status", "sharing_preview_params", "sharing_preview_project_name"}) {
      session_[key] = preview_param_[key];
    }
  }
}

// Only the plugins' session data goes into the script. Their tags are part of the page, whose builder
// runs the plugins itself.
void SharingSession::RunRenderPlugins() {
  Json::Value output(Json::objectValue);
  const RenderPluginInput input{entry_, sharing_status_.c_str(), preview_param_};
  if (!DispatchRenderPlugins(app_config_, nullptr, input, log_place::kSessionPlugins, output)) {
    return;
  }
  if (output.isMember("SESSION")) extra_session_ = output["SESSION"].asString();
}

int SharingSession::FormOutput() {
  result_ = "VELT.TALD.Session = " + sharing::StyledJson(session_) + ";" + extra_session_;
  return 0;
}

void SharingSession::Run() {
  if (const int code = RunSteps(); code != 0) {
    response_->SetError(code, error_message_);
    return;
  }
  response_->SetEnableOutput(false);
  std::fputs(kScriptHeader, stdout);
  const std::string script = result_.asString();
  std::fwrite(script.data(), 1, script.size(), stdout);
}

}  // namespace VELT
