#include "veltweb/InitDataHandler.h"

#include <strings.h>

#include <optional>

#include "veltsys/Accounts.h"
#include "veltsys/User.h"
#include "veltsys/VeltConf.h"
#include "veltweb/InitUIFileHandler.h"
#include "veltweb/WebUtils.h"
#include "veltwebapi/APIRequest.h"

InitDataHandler::InitDataHandler() = default;

InitDataHandler::InitDataHandler(const VELT::APIRequest* request)
    : language_(request->GetUILanguage()), external_url_(request->GetSharingURL("")) {
  if (request->IsSharing()) return;
  const auto user = VELT::accounts::FindUser(request->GetLoginUID());
  if (user) user_name_ = user->name;
  is_admin_ = request->IsAdmin();
}

InitDataHandler::~InitDataHandler() = default;

void InitDataHandler::InitAssistant(Json::Value& data) {
  data["configured"] = strcasecmp(VeltConf().Info("configured", "yes").c_str(), "yes") == 0;
}

void InitDataHandler::InitExternalService(Json::Value& data) {
  if (!external_url_.empty()) data["external_url"] = external_url_;
}

void InitDataHandler::InitDesktop(Json::Value& data, bool every_project) {
  InitVeltServices(data);
  InitUserService(data);
  InitUIConfig(data, every_project, true);
  GetSession(data["Session"]);
  data["UserSettings"] = GetUserSettings();
  data["GroupSettings"] = GetGroupSettings();
  GetAppPrivilege(data);
  GetActionPrivilege(data);
}

void InitDataHandler::InitReloadJS(Json::Value& data) {
  data["version"] = VELT::WebUtils::GetModifyTime(nullptr);
}

void InitDataHandler::GetModuleStrings(const Json::Value& modules, Json::Value& strings) {
  Json::Value ui;
  InitUIConfig(ui, true, true);
  strings = Json::Value(Json::objectValue);
  if (!modules.isArray()) return;
  for (const Json::Value& key : modules) {
    if (!key.isString() || !ui["Strings"].isMember(key.asString())) continue;
    strings[key.asString()].swap(ui["Strings"][key.asString()]);
  }
}

void InitDataHandler::InitUIConfig(Json::Value& data, bool every_project, bool with_strings) {
  InitUIFileHandler(language_.c_str(), every_project, "").GetInitData(data);
  if (!with_strings) data.removeMember("Strings");
}

void InitDataHandler::InitUserService(Json::Value& data) {
  data["UserService"] = Json::Value(Json::objectValue);
}

void InitDataHandler::InitVeltServices(Json::Value& data) {
  data["VeltServices"] = Json::Value(Json::objectValue);
}

void InitDataHandler::GetSession(Json::Value& session) {
  const bool logined = IsLogined();
  session["isLogined"] = logined;
  session["lang"] = language_;
  session["mobile"] = mobile_;
  session["theme_cls"] = GetThemeCls();
  GetDateTimeFormat(session);
  if (!logined) return;
  session["user"] = user_name_;
  session["is_admin"] = is_admin_;
}

void InitDataHandler::GetAppPrivilege(Json::Value& data) {
  data["AppPrivilege"] = Json::Value(Json::objectValue);
}

void InitDataHandler::GetDateTimeFormat(Json::Value& session) {
  const VeltConf settings;
  session["date_format"] = settings.Info("date_format", "%Y-%m-%d");
  session["time_format"] = settings.Info("time_format", "%H:%M");
}

Json::Value InitDataHandler::GetUserSettings() { return {Json::objectValue}; }

Json::Value InitDataHandler::GetGroupSettings() { return {Json::objectValue}; }

std::string InitDataHandler::GetThemeCls() { return theme_cls_; }

void InitDataHandler::GetActionPrivilege(Json::Value& data) {
  data["ActionPrivilege"] = Json::Value(Json::objectValue);
}

bool InitDataHandler::IsLogined() { return !user_name_.empty(); }
