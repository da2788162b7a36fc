#include "veltplugin/RenderPlugin.h"

bool CustomPageFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                    const Json::Value& /*extra*/, Json::Value& /*result*/) {
  return true;
}

bool OpenGraphFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                   const Json::Value& /*extra*/, Json::Value& /*result*/) {
  return true;
}
