#include <cstdio>

#include "veltplugin/RenderPlugin.h"

bool CustomPageFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                    const Json::Value& /*extra*/, Json::Value& result) {
  std::puts("a stray line");
  result["SESSION"]["printed"] = true;
  return true;
}

bool OpenGraphFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,
                   const Json::Value& /*extra*/, Json::Value& result) {
  std::puts("a stray line");
  result.append(Json::Value(Json::objectValue));
  return true;
}
