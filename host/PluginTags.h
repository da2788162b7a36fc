// What an application's plugins add to the page of one of its links.
#pragma once

#include <json/value.h>

#include <string>

#include "veltsharing/Entry.h"
#include "veltwebapi/PagePlugins.h"

namespace VELT::host {

struct PluginPage {
  Json::Value configuration;  // the application's; null where there is none
  std::string tags;           // fit to stand in the page's head
};

// Runs the plugins that `visit` knows for the link, in order, and keeps their Open Graph, stylesheet
// and script tags. A plugin that throws or gives more than 1 MiB adds nothing; the others still
// count. `visit` may be null: there are none then. `status` is the link's protection as plugins
// get it.
PluginPage RunPagePlugins(VisitPagePluginsFunc visit, const sharing::record::Entry& entry,
                          const char* status);

}  // namespace VELT::host
