// One call of the function that a plugin uses of its library.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "sharing/Plugins.h"
#include "sharing/StrayOutput.h"
#include "veltsharing/Entry.h"

namespace VELT::sharing {

// The constructor opens the library that `params` name, calls the function and keeps the library
// open for the object's life. What the library prints to standard output until it is closed is
// dropped. An exception of the function becomes a std::runtime_error with its text.
class PluginCall {
 public:
  PluginCall(const Json::Value& params, const char* symbol, const record::Entry& entry,
             const char* status, const Json::Value& extra);

  // The function's result, if it returned true and the result has this type and at most 1 MiB of
  // text; else null. Owned by this object; the caller may move parts out of it.
  Json::Value* Result(Json::ValueType type);

 private:
  struct LibCloser {
    void operator()(void* handle) const { ClosePluginLib(handle); }
  };

  Json::Value result_;
  bool usable_ = false;
  const std::string path_;
  const StrayOutput output_;                  // ends after the library
  std::unique_ptr<void, LibCloser> library_;  // last: closed before the result is released
};

}  // namespace VELT::sharing
