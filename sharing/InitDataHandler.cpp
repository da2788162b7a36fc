#include "sharing/InitDataHandler.h"

#include <vector>

#include "sharing/LogPlaces.h"
#include "sharing/RunAsGuard.h"
#include "veltsharing/Users.h"
#include "veltsys/PackageManager.h"
#include "veltweb/InitUIFileHandler.h"
#include "veltweb/MobileDetector.h"
#include "veltweb/WebMan.h"
#include "veltwebapi/APIRequest.h"

namespace VELT::sharing {
namespace {

// The modules that every link's page may load.
const std::vector<std::string> gAllowModuleList = {
    "ACEEditor", "Chooser",          "MOSKNotify",     "FileChooser", "FileTaskMonitor",
    "Flotr",     "PixlrImageEditor", "PollingTask",    "TinyMCE",     "Uploader",
    "Utils",     "Widgets",          "SharingManager",
};

// A module's name is the third part of its keys: <vendor>/<group>/<Module>/...
constexpr unsigned int kModulePiece = 2;

bool AllowsSharing(const Json::Value& member) {
  return member.isObject() && member["allowSharing"] == Json::Value(true);
}

void SetPackageStatus(Json::Value& member) {
  IF_RUN_AS(0, 0, log_place::kPackageGuard) {
    if (!member.isMember("pkgId")) return;
    const Json::Value& id = member["pkgId"];
    VELTPackageTool::PackageManager packages;
    const bool running = id.isConvertibleTo(Json::stringValue) && packages.isStarted(id.asString());
    member["pkgStatus"] = running ? "running" : "disable";
  }
  else {
    LogPermissionDenied(log_place::kPackageDenied);
  }
}

void KeepMembers(Json::Value& object, const std::set<std::string>& modules, const char* delim) {
  Json::Value kept(Json::objectValue);
  if (object.isObject()) {
    for (const std::string& name : object.getMemberNames()) {
      std::string module;
      if (Extractor(name, module, delim, kModulePiece) && modules.contains(module)) {
        kept[name].swap(object[name]);
      }
    }
  }
  object.swap(kept);
}

}  // namespace

bool Extractor(const std::string& src, std::string& dst, const char* delim, unsigned int index) {
  std::vector<std::string> pieces;
  if (!StringExplode(pieces, src, delim) || index >= pieces.size()) return false;
  dst = pieces[index];
  return true;
}

InitDataHandler::InitDataHandler(APIRequest* request)
    : ::InitDataHandler(request),
      allowModules(gAllowModuleList.begin(), gAllowModuleList.end()),
      entry(request->GetSharingEntry()) {
  user_name_ = entry.get_owner_user();
  theme_cls_.clear();
  is_admin_ = false;
}

InitDataHandler::InitDataHandler(WebMan* page, const record::Entry& link)
    : allowModules(gAllowModuleList.begin(), gAllowModuleList.end()), entry(link) {
  user_name_ = entry.get_owner_user();
  theme_cls_.clear();
  language_ = page->GetUILanguage();
  is_admin_ = false;
  mobile_ = MobileDetector(*page).IsMobile();
}

InitDataHandler::~InitDataHandler() = default;

void InitDataHandler::InitDesktop(Json::Value& data, bool flag) {
  InitUIFileHandler loader(language_.c_str(), flag, entry.get_project_name().c_str());
  InitVeltServices(data);
  loader.GetInitData(data);
  GetSession(data["Session"]);
  data["UserSettings"] = GetUserSettings();
  data["GroupSettings"] = GetGroupSettings();
  GetActionPrivilege(data);
  AppendAllowSharing(data["JSConfig"]);
  FilterJSConfig(data["JSConfig"]);
  FilterCSSFiles(data["CSSFiles"]);
  FilterStrings(data["Strings"]);
  data["Sharing"] = Json::Value(Json::objectValue);
  GetSharing(data["Sharing"]);
}

Json::Value InitDataHandler::GetUserSettings() { return {Json::objectValue}; }

Json::Value InitDataHandler::GetGroupSettings() { return {Json::objectValue}; }

bool InitDataHandler::IsLogined() { return false; }

void InitDataHandler::AppendAllowSharing(Json::Value& config) {
  if (!config.isObject()) return;
  for (const std::string& name : config.getMemberNames()) {
    std::string module;
    if (!Extractor(name, module, "/", kModulePiece) || allowModules.contains(module)) continue;
    Json::Value& classes = config[name];
    if (!classes.isObject()) continue;
    for (auto member = classes.begin(); member != classes.end(); ++member) {
      if (!AllowsSharing(*member)) continue;
      std::string opened;
      if (Extractor(member.name(), opened, ".", kModulePiece)) {
        allowModules.insert(opened);
        SetPackageStatus(*member);
      }
      allowModules.insert(module);
      break;
    }
  }
}

void InitDataHandler::FilterJSConfig(Json::Value& config) {
  KeepMembers(config, allowModules, "/");
}

void InitDataHandler::FilterCSSFiles(Json::Value& files) {
  Json::Value kept(Json::arrayValue);
  if (files.isArray()) {
    for (const Json::Value& file : files) {
      std::string module;
      if (file.isString() && Extractor(file.asString(), module, "/", kModulePiece) &&
          allowModules.contains(module)) {
        kept.append(file);
      }
    }
  }
  files.swap(kept);
}

void InitDataHandler::FilterStrings(Json::Value& strings) {
  KeepMembers(strings, allowModules, ".");
}

void InitDataHandler::GetSharing(Json::Value& out) { entry.ToJSON(out); }

}  // namespace VELT::sharing
