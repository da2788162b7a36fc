// A render plugin that returns the arguments of its call, and its user.
#include <unistd.h>

#include "veltplugin/RenderPlugin.h"
#include "veltsharing/Entry.h"

extern "C" bool CustomPageFunc(const VELT::sharing::record::Entry& entry, const char* status,
                               const Json::Value& extra, Json::Value& result) {
  Json::Value& call = result["PRIVATE"];
  call["project"] = entry.get_project_name();
  call["title"] = entry.get_protect_title();
  call["status"] = status;
  call["extra"] = extra;
  call["euid"] = static_cast<int>(geteuid());
  result["SESSION"] = call;
  return true;
}
