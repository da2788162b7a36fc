// The plugin "open_graph": how an application describes its links to link-preview services.
#pragma once

#include <json/value.h>

#include <string>

#include "sharing/Export.h"
#include "sharing/Plugins.h"
#include "veltsharing/Entry.h"

namespace VELT::sharing {

// Writes "OPEN_GRAPH" (meta tags, one a line, after what earlier plugins gave).
class OpenGraphPlugin : public RenderPluginBase {
 public:
  using RenderPluginBase::RenderPluginBase;
  VELT_EXPORT void Run(const record::Entry& entry, const char* status, const Json::Value& extra,
                       Json::Value& output) override;

 private:
  // One tag for each object of the array `tags`.
  static std::string GetOpenGraphTpl(const Json::Value& tags);
};

}  // namespace VELT::sharing
