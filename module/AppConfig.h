// What the session script and the login share: finding the configuration of a link's application
// and running the render plugins that it lists.
#pragma once

#include <json/value.h>

#include <string>

#include "sharing/LogPlaces.h"
#include "veltsharing/Entry.h"

namespace VELT {

// Fills `entry` with the link `sharing_id`. False when there is none or the database is not usable.
bool FindSharingEntry(const std::string& sharing_id, sharing::record::Entry& entry);

// The configuration that the application of the link's project has installed; null when there is
// none that can be read.
Json::Value ReadSharingAppConfig(const sharing::record::Entry& entry);

// What a dispatch passes to every plugin. Everything is borrowed for the call.
struct RenderPluginInput {
  const sharing::record::Entry& entry;
  const char* status;
  const Json::Value& extra;
};

// Runs the render plugins of `config` in order: those called `only_name`, or all when it is null.
// Each adds to `output`. Returns false when there is no list of plugins: `config` is not an object,
// or its "plugins" is not an array, which is logged at `place`. An element of "plugins" that can't
// have a name is logged and skipped. Exceptions of plugins reach the caller.
bool DispatchRenderPlugins(const Json::Value& config, const char* only_name,
                           const RenderPluginInput& input, const LogPlace& place,
                           Json::Value& output);

}  // namespace VELT
