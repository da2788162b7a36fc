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

// Why an element of "plugins" has no name; null when it has one, be it missing.
const char* FaultOf(const Json::Value& plugin) {
  if (!plugin.isObject()) return "it is not an object";
  return plugin.get("name", "").isString() ? nullptr : "\"name\" is not a string";
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

  for (Json::ArrayIndex index = 0; index < plugins.size(); ++index) {
    const Json::Value& plugin = plugins[index];
    // Its author's mistake, which must not stop the other plugins. The project is the name of an
    // installed file here, never a text that a visitor made up.
    if (const char* fault = FaultOf(plugin); fault != nullptr) {
      LOG_AT(log_place::kPluginElement, LOG_ERR, "plugin %u of the configuration of %s: %s",
             index + 1, input.entry.get_project_name().c_str(), fault);
      continue;
    }
    const std::string name = plugin.get("name", "").asString();
    if (only_name != nullptr && name != only_name) continue;
    const sharing::PluginRunnerFunc runner = sharing::GetSharingPlugin("render", name);
    if (runner != nullptr) runner(ParamsOf(plugin), input.entry, input.status, input.extra, output);
  }
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
  for (Json::ArrayIndex index = 0; index < plugins.size(); ++index) {
    const Json::Value& plugin = plugins[index];
    if (VELT::FaultOf(plugin) != nullptr) continue;
    const auto runner =
        VELT::sharing::GetSharingPlugin("render", plugin.get("name", "").asString());
    if (runner != nullptr) visitor.VisitPlugin(index + 1, runner, VELT::ParamsOf(plugin));
  }
}
