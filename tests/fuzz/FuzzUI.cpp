// Any text as two UI modules' config.json (first two lines) and texts (third and fourth): the start-up data keeps
// its form, and a visitor gets only the modules and classes that are for visitors.
#include <filesystem>
#include <fstream>

#include "sharing/InitDataHandler.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/SyslogCapture.h"
#include "veltweb/WebMan.h"

namespace VELT {
namespace {

constexpr const char* kRoot = "/usr/velt/web/";

void Write(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(kRoot + path).parent_path());
  std::filesystem::remove(kRoot + path);  // a file that is written over is flushed to the disk
  Require(static_cast<bool>(std::ofstream(kRoot + path) << text), "the files can be written");
}

bool Opens(const Json::Value& modules, const std::string& name) {
  for (auto module = modules.begin(); module != modules.end(); ++module) {
    for (auto member = module->begin(); member != module->end(); ++member) {
      if (!member->isObject() || (*member)["allowSharing"] != true) continue;
      if (module.name().ends_with("/" + name)) return true;
      if (member.name().find(name) != std::string::npos) return true;
    }
  }
  return false;
}

}  // namespace

void Try(const std::string& input) {
  std::string text = input;
  for (const char* path :
       {"v/g/Widgets/config.json", "v/g/Mod/config.json", "v/g/Mod/texts/enu.json",
        "v/g/Mod/texts/ger.json", "v/g/Mod/style.css"}) {
    Write(path, TakeLine(text));
  }
  sharing::record::Entry entry;
  entry.set_project_name("album");
  WebMan page("ger", "");
  Json::Value data(Json::objectValue);
  sharing::InitDataHandler(&page, entry).InitDesktop(data, false);

  const Json::Value& modules = data["JSConfig"];
  Require(modules.isObject() && data["CSSFiles"].isArray() && data["Strings"].isObject(),
          "the form");
  for (auto module = modules.begin(); module != modules.end(); ++module) {
    Require(module.name() == "v/g/Widgets" || (module.name() == "v/g/Mod" && Opens(modules, "Mod")),
            "a visitor gets open modules");
    for (const Json::Value& member : *module) {
      Require(!member.isObject() || !member.isMember("project") || member["project"] == "album",
              "a visitor gets his application's classes");
    }
  }
  Require(data["CSSFiles"].size() == (modules.isMember("v/g/Mod") ? 1U : 0U), "stylesheets");
  for (auto texts = data["Strings"].begin(); texts != data["Strings"].end(); ++texts) {
    Require(texts.name() == "v.g.Mod" && texts->isObject() && modules.isMember("v/g/Mod"), "texts");
  }
  Log().clear();
}

}  // namespace VELT
