// What an application's plugins add to the page of one of its links.
#pragma once

#include <json/value.h>

#include <string>

#include "veltsharing/Entry.h"
#include "veltwebapi/PagePlugins.h"

namespace VELT::host {

struct PluginPage {
  Json::Value configuration;  // the application's; null when there is none
  std::string tags;           // safe to insert into the page's head
};

// Runs the plugins that `visit` lists for the link, in order, and keeps their Open Graph,
// stylesheet and script tags. A plugin is left out when it throws or when the tags exceed 1 MiB
// with its own. A null `visit` means that there are none. `status` is the name of the link's
// protection, which plugins receive.
PluginPage RunPagePlugins(VisitPagePluginsFunc visit, const sharing::record::Entry& entry,
                          const char* status);

}  // namespace VELT::host
