// Render plugins: their list, their base classes, and how a plugin's library is opened, searched
// and closed. Nothing here keeps state; several threads may use it at once.
#pragma once

#include <json/value.h>

#include <string>

#include "sharing/Export.h"
#include "veltsharing/Entry.h"

namespace VELT::sharing {

// Runs one plugin. `params` are those of its entry in the application's configuration; `status` and
// `extra` are passed to the plugin's library unchanged. The plugin's result is added to `output`,
// an object that the plugins of one page share. A library that fails is logged and adds nothing.
// Throws std::runtime_error with the text of an exception of the plugin's function, and what
// JsonCpp's conversions of its result throw.
using PluginRunnerFunc = void (*)(const Json::Value& params, const record::Entry& entry,
                                  const char* status, const Json::Value& extra,
                                  Json::Value& output);

// The runner of the plugin of exactly this kind ("render") and name ("custom_page", "open_graph"),
// or null.
VELT_EXPORT PluginRunnerFunc GetSharingPlugin(const std::string& kind, const std::string& name);

// Opens the library at `path` (dlopen(3) describes how a path without a slash is searched). Returns
// false, with a log line, when it can't; `*handle` is then null or untouched. The caller closes it
// with ClosePluginLib.
VELT_EXPORT bool OpenPluginLib(const std::string& path, void** handle);

// Leaves the address of `symbol` in `*func`. Returns false, with a log line, when the library has
// no such symbol. A symbol may have a null address: true is returned for it as well.
VELT_EXPORT bool GetPluginLibFunc(void* handle, const std::string& symbol, void** func);

// A null handle is allowed.
VELT_EXPORT void ClosePluginLib(void* handle);

class PluginBase {
 public:
  explicit PluginBase(const Json::Value& params) : params_(params) {}
  virtual ~PluginBase() = default;
  PluginBase(const PluginBase&) = delete;
  PluginBase& operator=(const PluginBase&) = delete;

 protected:
  const Json::Value params_;
};

class RenderPluginBase : public PluginBase {
 public:
  using PluginBase::PluginBase;
  // See PluginRunnerFunc.
  virtual void Run(const record::Entry& entry, const char* status, const Json::Value& extra,
                   Json::Value& output) = 0;
};

// The runner of the plugin class T: one plugin object lives for one call.
template <typename T>
void RenderPluginRunner(const Json::Value& params, const record::Entry& entry, const char* status,
                        const Json::Value& extra, Json::Value& output) {
  T plugin(params);
  plugin.Run(entry, status, extra, output);
}

}  // namespace VELT::sharing
