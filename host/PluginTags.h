// The tags that an application's plugins add to the pages of its links.
#pragma once

#include <json/value.h>

#include <functional>
#include <string>

#include "veltsharing/Entry.h"

namespace VELT::host {

// One run of an application's plugin: adds what it gives to `output`. May throw what the plugin
// throws.
using PluginRunner = void (*)(const Json::Value& params, const sharing::record::Entry& entry,
                              const char* status, const Json::Value& extra, Json::Value& output);

// The runner of the plugin of this kind ("render") and name, or null. Kind and name come from a
// configuration file: any text.
using PluginLookup = std::function<PluginRunner(const std::string& kind, const std::string& name)>;

// Runs the plugins that the application's `configuration` lists, in order, and returns their Open
// Graph, stylesheet and script tags, fit to stand in the page's head. A configuration or a plugin
// that is malformed, throws or gives more than 1 MiB adds nothing; the others still count. `status`
// is the link's protection as plugins are told it.
std::string PluginTags(const PluginLookup& lookup, const Json::Value& configuration,
                       const sharing::record::Entry& entry, const char* status);

}  // namespace VELT::host
