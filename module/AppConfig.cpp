#include "module/AppConfig.h"

#include <syslog.h>

#include "sharing/Plugins.h"
#include "veltsharing/SharingDB.h"
#include "veltsys/JsonFile.h"

namespace VELT {
namespace {

constexpr char kConfigFolder[] = "/usr/velt/etc.defaults/sharing/";

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
    syslog(LOG_ERR, "%s:%d Error plugins config", place.source, place.line);
    return false;
  }

  for (const Json::Value& plugin : plugins) {
    // An element of another shape is its application's mistake and costs nobody else's plugin.
    if (!plugin.isObject()) continue;
    const Json::Value name = plugin.get("name", "");
    const Json::Value params = plugin.get("params", Json::Value(Json::objectValue));
    if (!name.isString() || !params.isObject()) continue;
    if (only_name != nullptr && name.asString() != only_name) continue;

    const sharing::PluginRunnerFunc runner = sharing::GetSharingPlugin("render", name.asString());
    if (runner != nullptr) runner(params, input.entry, input.status, input.extra, output);
  }
  return true;
}

}  // namespace VELT
