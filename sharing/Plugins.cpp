#include "sharing/Plugins.h"

#include <dlfcn.h>
#include <syslog.h>

#include "sharing/CustomPagePlugin.h"
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
    syslog(LOG_ERR, "%s:%d error plugin lib", log_place::kPluginPath.source,
           log_place::kPluginPath.line);
    return false;
  }
  *handle = dlopen(path.c_str(), RTLD_LAZY);
  if (*handle == nullptr) {
    syslog(LOG_ERR, "%s:%d cannot open library: %s. error = %s", log_place::kPluginOpen.source,
           log_place::kPluginOpen.line, path.c_str(), dlerror());
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
  syslog(LOG_DEBUG, "%s:%d cannot load Func %s: %s", log_place::kPluginSymbol.source,
         log_place::kPluginSymbol.line, symbol.c_str(), error);
  return false;
}

void ClosePluginLib(void* handle) {
  if (handle != nullptr) dlclose(handle);
}

}  // namespace VELT::sharing
