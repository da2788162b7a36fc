#include "sharing/Plugins.h"

#include <dlfcn.h>
#include <syslog.h>

#include "sharing/CustomPagePlugin.h"
#include "sharing/Log.h"
#include "sharing/LogPlaces.h"
#include "sharing/OpenGraphPlugin.h"

namespace VELT::sharing {

// The plugin classes are hidden, so their runners are exported by name.
template VELT_EXPORT void RenderPluginRunner<CustomPagePlugin>(const Json::Value&,
                                                               const record::Entry&, const char*,
                                                               const Json::Value&, Json::Value&);
template VELT_EXPORT void RenderPluginRunner<OpenGraphPlugin>(const Json::Value&,
                                                              const record::Entry&, const char*,
                                                              const Json::Value&, Json::Value&);

namespace {

struct SharingPlugin {
  const char* kind;
  const char* name;
  PluginRunnerFunc runner;
};

const SharingPlugin gSharingPluginTable[] = {
    {"render", "custom_page", RenderPluginRunner<CustomPagePlugin>},
    {"render", "open_graph", RenderPluginRunner<OpenGraphPlugin>},
    {nullptr, nullptr, nullptr},
};

}  // namespace

PluginRunnerFunc GetSharingPlugin(const std::string& kind, const std::string& name) {
  for (const SharingPlugin* row = gSharingPluginTable; row->kind != nullptr; ++row) {
    if (kind == row->kind && name == row->name) return row->runner;
  }
  return nullptr;
}

bool OpenPluginLib(const std::string& path, void** handle) {
  if (handle == nullptr) return false;
  if (path.empty()) {
    LOG_AT(log_place::kPluginPath, LOG_ERR, "error plugin lib");
    return false;
  }
  *handle = dlopen(path.c_str(), RTLD_LAZY);
  if (*handle == nullptr) {
    LOG_AT(log_place::kPluginOpen, LOG_ERR, "cannot open library: %s. error = %s", path.c_str(),
           dlerror());
    return false;
  }
  return true;
}

bool GetPluginLibFunc(void* handle, const std::string& symbol, void** func) {
  if (handle == nullptr || func == nullptr) return false;
  dlerror();
  *func = dlsym(handle, symbol.c_str());
  const char* error = dlerror();
  if (error == nullptr) return true;
  LOG_AT(log_place::kPluginSymbol, LOG_DEBUG, "cannot load Func %s: %s", symbol.c_str(), error);
  return false;
}

void ClosePluginLib(void* handle) {
  if (handle != nullptr) dlclose(handle);
}

}  // namespace VELT::sharing
