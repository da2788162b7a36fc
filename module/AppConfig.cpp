#include "module/AppConfig.h"

#include "sharing/Log.h"
#include "sharing/Plugins.h"
#include "veltsharing/SharingDB.h"
#include "veltsys/JsonFile.h"

namespace VELT {
namespace {

constexpr char kConfigFolder[] = "/usr/velt/etc.defaults/sharing/";

// What of an element of "plugins" keeps it from being run; null: nothing.
const char* FaultOf(const Json::Value& plugin) {
  if (!plugin.isObject()) return "it is no object";
  if (!plugin.get("name", "").isString()) return "\"name\" is no text";
  if (!plugin.get("params", Json::Value(Json::objectValue)).isObject()) {
    return "\"params\" is no object";
  }
  return nullptr;
}

// For the application's author. A configuration is read only under a file's name, so the project
// is one here.
void LogFault(Json::ArrayIndex index, const sharing::record::Entry& entry, const char* fault) {
  LOG_AT(log_place::kPluginElement, LOG_ERR, "plugin %u of the configuration of %s: %s", index + 1,
         entry.get_project_name().c_str(), fault);
}

}  // namespace

bool FindSharingEntry(const std::string& sharing_id, sharing::record::Entry& entry) {
  sharing::db::SharingDB* database = sharing::db::SharingDB::Instance();
  sharing::db::EntryDB entry_db(*database);
  return database->IsGood() && entry_db.GetByHash(sharing_id, entry);
}

Json::Value ReadSharingAppConfig(const sharing::record::Entry& entry) {
  return ReadJsonFile(kConfigFolder, entry.get_project_name());
}

bool DispatchRenderPlugins(const Json::Value& config, const char* only_name,
                           const RenderPluginInput& input, const LogPlace& place,
                           Json::Value& output) {
  if (!config.isObject()) return false;
  const Json::Value plugins = config.get("plugins", Json::Value(Json::arrayValue));
  if (!plugins.isArray()) {
    LOG_AT(place, LOG_ERR, "Error plugins config");
    return false;
  }

  for (Json::ArrayIndex i = 0; i < plugins.size(); ++i) {
    const Json::Value& plugin = plugins[i];
    // An element of another shape is its application's mistake and costs nobody else's plugin.
    if (const char* fault = FaultOf(plugin); fault != nullptr) {
      LogFault(i, input.entry, fault);
      continue;
    }
    const std::string name = plugin.get("name", "").asString();
    if (only_name != nullptr && name != only_name) continue;
    const sharing::PluginRunnerFunc runner = sharing::GetSharingPlugin("render", name);
    if (runner == nullptr) continue;
    const Json::Value params = plugin.get("params", Json::Value(Json::objectValue));
    if (!params.get("lib", "").isString()) LogFault(i, input.entry, "\"lib\" is no text");
    runner(params, input.entry, input.status, input.extra, output);
  }
  return true;
}

}  // namespace VELT
