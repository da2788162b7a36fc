// The start-up data of the appliance's pages. A derived class overrides the steps in which its page
// differs. The order of the virtual functions is part of the interface.
#pragma once

#include <json/value.h>

#include <string>

namespace VELT {
class APIRequest;
}

// One object serves one page, on one thread. Functions that take a JSON object add members to it.
class InitDataHandler {
 public:
  // A page in English without a logged-in user.
  InitDataHandler();
  // The page of a request, which only the constructor uses.
  explicit InitDataHandler(const VELT::APIRequest* request);
  virtual ~InitDataHandler();
  InitDataHandler(const InitDataHandler&) = delete;
  InitDataHandler& operator=(const InitDataHandler&) = delete;

  // "configured": whether the appliance's first set-up is done, from the setting of that name; true
  // without it.
  virtual void InitAssistant(Json::Value& data);
  // "external_url": the beginning of links, if the page has a request.
  virtual void InitExternalService(Json::Value& data);
  // Everything that the page starts with. `every_project`: see InitUIFileHandler.h.
  virtual void InitDesktop(Json::Value& data, bool every_project);
  // "version": the version of the web UI. A page that was loaded with another one must be reloaded.
  virtual void InitReloadJS(Json::Value& data);
  // Makes `strings` the texts of the UI modules whose keys ("<vendor>.<group>.<Module>") the array
  // `modules` lists.
  virtual void GetModuleStrings(const Json::Value& modules, Json::Value& strings);
  // The UI modules, with their texts or without: see InitUIFileHandler.h.
  virtual void InitUIConfig(Json::Value& data, bool every_project, bool with_strings);
  // "UserService" and "VeltServices": what pages may use besides the web API. Both are empty
  // objects on this appliance.
  virtual void InitUserService(Json::Value& data);
  virtual void InitVeltServices(Json::Value& data);
  // "isLogined", "lang", "mobile", "theme_cls" and what GetDateTimeFormat adds; of a logged-in user
  // also "user" and "is_admin".
  virtual void GetSession(Json::Value& session);
  // "AppPrivilege" and, from GetActionPrivilege, "ActionPrivilege": special rights of the page's
  // user. Both are empty objects on this appliance.
  virtual void GetAppPrivilege(Json::Value& data);
  // "date_format" and "time_format", in strftime(3)'s form, from the appliance's settings.
  virtual void GetDateTimeFormat(Json::Value& session);
  // Preferences of the user and of their groups: empty objects on this appliance.
  virtual Json::Value GetUserSettings();
  virtual Json::Value GetGroupSettings();
  // The class of the page's root element; empty for the default theme.
  virtual std::string GetThemeCls();
  virtual void GetActionPrivilege(Json::Value& data);
  virtual bool IsLogined();

 protected:
  std::string user_name_;  // whose data the page shows
  std::string theme_cls_;
  std::string language_ = "enu";
  bool is_admin_ = false;
  bool mobile_ = false;

 private:
  std::string external_url_;
};
