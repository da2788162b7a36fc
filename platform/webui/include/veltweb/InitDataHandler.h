// The start-up data of the appliance's pages. A class derived from this one replaces the steps in
// which its page differs; the order of the virtual operations is part of the interface.
#pragma once

#include <json/value.h>

#include <string>

namespace VELT {
class APIRequest;
}

// One object serves one page and belongs to one thread. Operations that take an object add members
// to it.
class InitDataHandler {
 public:
  // A page that nobody is logged in to, in English.
  InitDataHandler();
  // The request's page. The request is used by the constructor only.
  explicit InitDataHandler(const VELT::APIRequest* request);
  virtual ~InitDataHandler();
  InitDataHandler(const InitDataHandler&) = delete;
  InitDataHandler& operator=(const InitDataHandler&) = delete;

  // "configured": whether the appliance's first set-up is done; the setting of that name, "yes"
  // without one.
  virtual void InitAssistant(Json::Value& data);
  // "external_url": the base of link addresses, when the request has one.
  virtual void InitExternalService(Json::Value& data);
  // Everything that the page starts with. `every_project`: see InitUIFileHandler.h.
  virtual void InitDesktop(Json::Value& data, bool every_project);
  // "version": the web UI's. A page that was loaded with another one has to be loaded anew.
  virtual void InitReloadJS(Json::Value& data);
  // Makes `strings` the texts of the UI modules whose keys ("<vendor>.<group>.<Module>") the array
  // `modules` lists.
  virtual void GetModuleStrings(const Json::Value& modules, Json::Value& strings);
  // The UI modules, with their texts or without: see InitUIFileHandler.h.
  virtual void InitUIConfig(Json::Value& data, bool every_project, bool with_strings);
  // "UserService" and "VeltServices": what a page may use of the appliance besides the web API.
  // Nothing: empty objects.
  virtual void InitUserService(Json::Value& data);
  virtual void InitVeltServices(Json::Value& data);
  // "isLogined", "lang", "mobile", "theme_cls" and what GetDateTimeFormat adds; of a logged-in user
  // also "user" and "is_admin".
  virtual void GetSession(Json::Value& session);
  // "AppPrivilege" and "ActionPrivilege": what the page's user may do by special grant. None are
  // given on this appliance: empty objects.
  virtual void GetAppPrivilege(Json::Value& data);
  // "date_format" and "time_format", in strftime(3)'s form, from the appliance's settings.
  virtual void GetDateTimeFormat(Json::Value& session);
  // What the user or the user's groups chose for their pages: empty objects.
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
