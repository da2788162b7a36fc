#include <string>

#include "veltplugin/RenderPlugin.h"

bool CustomPageFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                    const Json::Value& /*extra*/, Json::Value& result) {
  for (int i = 0; i < 10 * 1024; ++i) result["JSFILE"].append("/" + std::string(1023, 'x'));
  return true;
}

bool OpenGraphFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                   const Json::Value& /*extra*/, Json::Value& result) {
  Json::Value tag;
  tag["content"] = std::string(1024, 'x');
  for (int i = 0; i < 10 * 1024; ++i) result.append(tag);
  return true;
}
