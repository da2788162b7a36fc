// Returns its argument `extra`, so that a test can choose the result.
#include "veltplugin/RenderPlugin.h"
#include "veltsharing/Entry.h"

bool CustomPageFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                    const Json::Value& extra, Json::Value& result) {
  result = extra;
  return true;
}

bool OpenGraphFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                   const Json::Value& extra, Json::Value& result) {
  result = extra;
  return true;
}
