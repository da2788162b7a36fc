#include "sharing/PluginCall.h"

#include <syslog.h>

#include <cstddef>
#include <exception>
#include <stdexcept>
#include <string>

#include "sharing/Log.h"
#include "sharing/LogPlaces.h"
#include "veltplugin/RenderPlugin.h"

namespace VELT::sharing {
namespace {

constexpr std::size_t kLargestResult = std::size_t{1024} * 1024;

std::string LibraryPath(const Json::Value& params) {
  if (!params.isObject()) return "";
  const Json::Value& path = params["lib"];
  return path.isString() ? path.asString() : "";
}

// No text of a number, a boolean or null is longer.
constexpr std::size_t kNumberSize = 24;

// Roughly the length of the value's JSON text, without escapes. Counting stops soon after `limit`.
std::size_t TextSize(const Json::Value& value, std::size_t limit) {
  const Json::ValueType type = value.type();
  if (type == Json::stringValue) {
    const char* begin = nullptr;
    const char* end = nullptr;
    value.getString(&begin, &end);
    return 2 + static_cast<std::size_t>(end - begin);
  }
  if (type != Json::arrayValue && type != Json::objectValue) return kNumberSize;

  std::size_t size = 2;  // the brackets; every member but the first has a comma before it
  const auto end = value.end();
  for (auto member = value.begin(); member != end && size <= limit; ++member) {
    size += size == 2 ? 0 : 1;
    size += TextSize(*member, limit);
    if (type == Json::objectValue) {
      const char* name_end = nullptr;
      const char* name = member.memberName(&name_end);
      size += 3 + static_cast<std::size_t>(name_end - name);
    }
  }
  return size;
}

bool CallLibFunc(PluginLibFunc func, const record::Entry& entry, const char* status,
                 const Json::Value& extra, Json::Value& result) {
  // The exception's code may be part of the library, which is closed before the caller handles the
  // exception. So only its text is passed on.
  try {
    return func(entry, status, extra, result);
  } catch (const std::exception& error) {
    throw std::runtime_error(error.what());
  } catch (...) {
    throw std::runtime_error("plugin threw an exception that is no std::exception");
  }
}

}  // namespace

PluginCall::PluginCall(const Json::Value& params, const char* symbol, const record::Entry& entry,
                       const char* status, const Json::Value& extra)
    : path_(LibraryPath(params)), output_(path_) {
  void* handle = nullptr;
  if (!OpenPluginLib(path_, &handle)) return;
  library_.reset(handle);

  void* address = nullptr;
  if (!GetPluginLibFunc(handle, symbol, &address)) return;
  if (address == nullptr) {
    LOG_AT(log_place::kPluginSymbol, LOG_DEBUG, "cannot load Func %s: %s", symbol,
           "its address is null");
    return;
  }
  const auto func = reinterpret_cast<PluginLibFunc>(address);
  if (!CallLibFunc(func, entry, status, extra, result_)) return;

  usable_ = TextSize(result_, kLargestResult) <= kLargestResult;
  if (!usable_) {
    LOG_AT(log_place::kPluginOutput, LOG_ERR, "plugin output exceeds %zu bytes: %s", kLargestResult,
           path_.c_str());
  }
}

Json::Value* PluginCall::Result(Json::ValueType type) {
  return usable_ && result_.type() == type ? &result_ : nullptr;
}

}  // namespace VELT::sharing
