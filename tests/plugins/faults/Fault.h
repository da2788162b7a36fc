// Defines both functions of a plugin library with the same body. The body may use `result` and
// `is_page`, which is true in CustomPageFunc.
#pragma once

#include <string>

#include "veltplugin/RenderPlugin.h"

#define FAULT(...)                                                                           \
  static bool Body([[maybe_unused]] Json::Value& result, [[maybe_unused]] bool is_page) {    \
    __VA_ARGS__                                                                              \
  }                                                                                          \
  bool CustomPageFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/, \
                      const Json::Value& /*extra*/, Json::Value& result) {                   \
    return Body(result, true);                                                               \
  }                                                                                          \
  bool OpenGraphFunc(const VELT::sharing::record::Entry& /*entry*/, const char* /*status*/,  \
                     const Json::Value& /*extra*/, Json::Value& result) {                    \
    return Body(result, false);                                                              \
  }
