// One call of the one function that a plugin takes from its library.
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
// dropped. Throws std::runtime_error with the text of whatever the function throws.
class PluginCall {
 public:
  PluginCall(const Json::Value& params, const char* symbol, const record::Entry& entry,
             const char* status, const Json::Value& extra);

  // What the function gave, when it returned true and gave a value of this type of at most 1 MiB of
  // text; else null. Owned by this object; the caller may take parts out of it.
  Json::Value* Result(Json::ValueType type);

 private:
  struct LibCloser {
    void operator()(void* handle) const { ClosePluginLib(handle); }
  };

  Json::Value result_;
  bool used_ = false;
  const std::string path_;
  const StrayOutput output_;                  // until after the library's end
  std::unique_ptr<void, LibCloser> library_;  // last: closed before the result is released
};

}  // namespace VELT::sharing
