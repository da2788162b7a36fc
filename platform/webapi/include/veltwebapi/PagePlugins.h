// How the host has an application's render plugins for the page of a link. The module that knows
// them exports one C function beside its tables:
//
//   extern "C" void VisitPagePlugins(const VELT::sharing::record::Entry& link,
//                                    VELT::PagePluginVisitor& visitor);
//
// It gives the visitor what the application of the link has configured, and then each plugin that
// can be run, in order. It throws nothing but what the visitor throws.
#pragma once

#include <json/value.h>

#include "veltsharing/Entry.h"

namespace VELT {

// Implemented by the host; lives for one visit. Everything that it is given is borrowed for the
// call.
class PagePluginVisitor {
 public:
  // Adds what the plugin gives to `output`, an object. May throw what the plugin throws.
  using Runner = void (*)(const Json::Value& params, const sharing::record::Entry& entry,
                          const char* status, const Json::Value& extra, Json::Value& output);

  // The whole configuration: an object, or null where there is none.
  virtual void VisitConfiguration(const Json::Value& configuration) = 0;
  // The plugin that stands at `number` in the configuration's list, counted from 1.
  virtual void VisitPlugin(unsigned int number, Runner runner, const Json::Value& params) = 0;

 protected:
  ~PagePluginVisitor() = default;
};

using VisitPagePluginsFunc = void (*)(const sharing::record::Entry& link,
                                      PagePluginVisitor& visitor);

}  // namespace VELT
