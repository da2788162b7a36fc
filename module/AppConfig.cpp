#include "module/AppConfig.h"

#include <syslog.h>

#include "sharing/Export.h"
#include "sharing/Log.h"
#include "sharing/Plugins.h"
#include "veltsharing/SharingDB.h"
#include "veltsys/JsonFile.h"
#include "veltwebapi/PagePlugins.h"

namespace VELT {
namespace {

constexpr char kConfigFolder[] = "/usr/velt/etc.defaults/sharing/";

Json::Value PluginsOf(const Json::Value& config) {
  return config.get("plugins", Json::Value(Json::arrayValue));
}

Json::Value ParamsOf(const Json::Value& plugin) {
  return plugin.get("params", Json::Value(Json::objectValue));
}

// Why an element of "plugins" can't be run; null when it can.
const char* FaultOf(const Json::Value& plugin) {
  if (!plugin.isObject()) return "it is not an object";
  if (!plugin.get("name", "").isString()) return "\"name\" is not a string";
  return ParamsOf(plugin).isObject() ? nullptr : "\"params\" is not an object";
}

// For the application's author. The project is the name of an installed configuration file here,
// never a text that a visitor made up.
void LogFault(unsigned int number, const sharing::record::Entry& entry, const char* fault) {
  LOG_AT(log_place::kPluginElement, LOG_ERR, "plugin %u of the configuration of %s: %s", number,
         entry.get_project_name().c_str(), fault);
}

// Calls `visit` for each element of "plugins" with its number, counted from 1, and its fault. A
// malformed element is its author's mistake and must not stop the other plugins.
template <typename Visit>
void ForEachPlugin(const Json::Value& plugins, Visit visit) {
  for (Json::ArrayIndex index = 0; index < plugins.size(); ++index) {
    visit(index + 1, plugins[index], FaultOf(plugins[index]));
  }
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
  const Json::Value plugins = PluginsOf(config);
  if (!plugins.isArray()) {
    LOG_AT(place, LOG_ERR, "Error plugins config");
    return false;
  }

  ForEachPlugin(plugins, [&](unsigned int number, const Json::Value& plugin, const char* fault) {
    if (fault != nullptr) return LogFault(number, input.entry, fault);
    const std::string name = plugin.get("name", "").asString();
    if (only_name != nullptr && name != only_name) return;
    const sharing::PluginRunnerFunc runner = sharing::GetSharingPlugin("render", name);
    if (runner == nullptr) return;
    const Json::Value params = ParamsOf(plugin);
    if (!params.get("lib", "").isString()) LogFault(number, input.entry, "\"lib\" is not a string");
    runner(params, input.entry, input.status, input.extra, output);
  });
  return true;
}

}  // namespace VELT

// Faults of the configuration are not logged here. Every page loads the session script, which logs
// them.
extern "C" VELT_EXPORT void VisitPagePlugins(const VELT::sharing::record::Entry& link,
                                             VELT::PagePluginVisitor& visitor) {
  const Json::Value config = VELT::ReadSharingAppConfig(link);
  visitor.VisitConfiguration(config.isObject() ? config : Json::Value());
  if (!config.isObject()) return;
  const Json::Value plugins = VELT::PluginsOf(config);
  if (!plugins.isArray()) return;
  VELT::ForEachPlugin(
      plugins, [&](unsigned int number, const Json::Value& plugin, const char* fault) {
        if (fault != nullptr) return;
        const auto runner =
            VELT::sharing::GetSharingPlugin("render", plugin.get("name", "").asString());
        if (runner != nullptr) visitor.VisitPlugin(number, runner, VELT::ParamsOf(plugin));
      });
}
