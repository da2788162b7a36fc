// How the host gets an application's render plugins for the page of a link. The module that has
// them exports one C function besides its tables:
//
//   extern "C" void VisitPagePlugins(const VELT::sharing::record::Entry& link,
//                                    VELT::PagePluginVisitor& visitor);
//
// It passes the configuration of the link's application to the visitor, and then each plugin that
// can be run, in order. It throws nothing but what the visitor throws.
#pragma once

#include <json/value.h>

#include "veltsharing/Entry.h"

namespace VELT {

// Implemented by the host; lives for one call of VisitPagePlugins. All arguments are borrowed for
// the call.
class PagePluginVisitor {
 public:
  // Adds the plugin's result to `output`, an object. May throw any exception.
  using Runner = void (*)(const Json::Value& params, const sharing::record::Entry& entry,
                          const char* status, const Json::Value& extra, Json::Value& output);

  // The whole configuration: an object, or null where there is none.
  virtual void VisitConfiguration(const Json::Value& configuration) = 0;
  // The plugin at position `number`, counted from 1, in the configuration's list.
  virtual void VisitPlugin(unsigned int number, Runner runner, const Json::Value& params) = 0;

 protected:
  ~PagePluginVisitor() = default;
};

using VisitPagePluginsFunc = void (*)(const sharing::record::Entry& link,
                                      PagePluginVisitor& visitor);

}  // namespace VELT
