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

// What a dispatch hands to every plugin. All is borrowed for the call.
struct RenderPluginInput {
  const sharing::record::Entry& entry;
  const char* status;
  const Json::Value& extra;
};

// Runs the render plugins of `config` in their order, all of them or those called `only_name`
// (null: all), each writing into `output`. False when there is nothing to walk: no configuration,
// or "plugins" is no array, which is logged under `place`. An element of "plugins" whose shape is
// wrong is logged and passed over. Exceptions of a plugin pass on to the caller.
bool DispatchRenderPlugins(const Json::Value& config, const char* only_name,
                           const RenderPluginInput& input, const LogPlace& place,
                           Json::Value& output);

}  // namespace VELT
