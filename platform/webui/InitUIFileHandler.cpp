#include "veltweb/InitUIFileHandler.h"

#include <dirent.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <vector>

#include "veltsys/JsonFile.h"

namespace {

constexpr const char* kWebRoot = "/usr/velt/web";
constexpr const char* kFallbackLanguage = "enu";

bool IsPlainName(std::string_view name, std::string_view also_allowed) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [also_allowed](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || also_allowed.find(c) != std::string_view::npos;
  });
}

std::string Below(std::string folder, const std::string& name) {
  return folder.append("/").append(name);
}

// The names in the folder that `accepts` takes, in byte order; none when it can't be read.
template <typename Predicate>
std::vector<std::string> List(const std::string& folder, Predicate accepts) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(folder.c_str()), closedir);
  if (!directory) return names;
  while (const dirent* entry = readdir(directory.get())) {
    if (accepts(*entry)) names.emplace_back(entry->d_name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> ListFolders(const std::string& folder) {
  return List(folder, [](const dirent& entry) {
    return entry.d_type != DT_REG && IsPlainName(entry.d_name, "");
  });
}

std::vector<std::string> ListStylesheets(const std::string& folder) {
  return List(folder, [](const dirent& entry) {
    const std::string_view name(entry.d_name);
    return entry.d_type != DT_DIR && name.ends_with(".css") && IsPlainName(name, ".");
  });
}

}  // namespace

InitUIFileHandler::InitUIFileHandler(const char* language, bool every_project, const char* project)
    : language_(language), every_project_(every_project), project_(project) {}

void InitUIFileHandler::GetInitData(Json::Value& data) {
  data["JSConfig"] = Json::Value(Json::objectValue);
  data["CSSFiles"] = Json::Value(Json::arrayValue);
  data["Strings"] = Json::Value(Json::objectValue);
  const std::string root = kWebRoot;
  for (const std::string& vendor : ListFolders(root)) {
    for (const std::string& group : ListFolders(Below(root, vendor))) {
      for (const std::string& name : ListFolders(Below(Below(root, vendor), group))) {
        AddModule(vendor, group, name, data);
      }
    }
  }
}

void InitUIFileHandler::AddModule(const std::string& vendor, const std::string& group,
                                  const std::string& name, Json::Value& data) const {
  std::string key = Below(Below(vendor, group), name);
  const std::string folder = Below(kWebRoot, key);
  Json::Value config = VELT::ReadJsonFile(folder, "config.json");
  if (!config.isObject() || !KeepClasses(config)) return;
  data["JSConfig"][key].swap(config);

  for (const std::string& file : ListStylesheets(folder)) {
    data["CSSFiles"].append(Below(key, file));
  }

  Json::Value texts = ReadTexts(folder);
  std::replace(key.begin(), key.end(), '/', '.');
  if (texts.isObject()) data["Strings"][key].swap(texts);
}

bool InitUIFileHandler::KeepClasses(Json::Value& config) const {
  if (every_project_ || config.empty()) return true;
  for (const std::string& name : config.getMemberNames()) {
    const Json::Value& entry = config[name];
    if (entry.isObject() && entry.isMember("project") && entry["project"] != project_) {
      config.removeMember(name);
    }
  }
  return !config.empty();
}

Json::Value InitUIFileHandler::ReadTexts(const std::string& folder) const {
  const std::string texts_folder = Below(folder, "texts");
  Json::Value texts = VELT::ReadJsonFile(texts_folder, std::string(kFallbackLanguage) + ".json");
  if (language_ == kFallbackLanguage) return texts;
  Json::Value translated = VELT::ReadJsonFile(texts_folder, language_ + ".json");
  if (!translated.isObject()) return texts;
  if (!texts.isObject()) return translated;
  for (const std::string& name : translated.getMemberNames()) {
    texts[name].swap(translated[name]);
  }
  return texts;
}
