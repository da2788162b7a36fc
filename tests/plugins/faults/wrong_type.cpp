#include "veltplugin/RenderPlugin.h"

bool CustomPageFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                    const Json::Value& /*extra*/, Json::Value& result) {
  result = Json::Value(Json::arrayValue);
  return true;
}

bool OpenGraphFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                   const Json::Value& /*extra*/, Json::Value& result) {
  result = Json::Value(Json::objectValue);
  return true;
}
