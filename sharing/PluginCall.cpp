#include "sharing/PluginCall.h"

#include <syslog.h>

#include <cstddef>
#include <exception>
#include <stdexcept>
#include <string>

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

bool Take(std::size_t size, std::size_t& left) {
  if (size > left) return false;
  left -= size;
  return true;
}

// Takes the length of the value's JSON text, escapes left out, from `left`; false when that is less.
bool TakeTextSize(const Json::Value& value, std::size_t& left) {
  if (value.isString()) {
    const char* begin = nullptr;
    const char* end = nullptr;
    value.getString(&begin, &end);
    return Take(2 + static_cast<std::size_t>(end - begin), left);
  }
  if (!value.isArray() && !value.isObject()) return Take(value.asString().size(), left);

  // The brackets, and a comma before every member but the first.
  if (!Take(value.empty() ? 2 : 1, left)) return false;
  for (auto member = value.begin(); member != value.end(); ++member) {
    std::size_t around = 1;
    if (value.isObject()) {
      const char* name_end = nullptr;
      const char* name = member.memberName(&name_end);
      around += 3 + static_cast<std::size_t>(name_end - name);
    }
    if (!Take(around, left) || !TakeTextSize(*member, left)) return false;
  }
  return true;
}

bool CallLibFunc(PluginLibFunc func, const record::Entry& entry, const char* status,
                 const Json::Value& extra, Json::Value& result) {
  // The exception's code may stand in the library, which is closed before the caller looks at it:
  // only its text goes on.
  try {
    return func(entry, status, extra, result);
  } catch (const std::exception& error) {
    throw std::runtime_error(error.what());
  } catch (...) {
    throw std::runtime_error("plugin threw something else than a std::exception");
  }
}

}  // namespace

PluginCall::PluginCall(const Json::Value& params, const char* symbol, const record::Entry& entry,
                       const char* status, const Json::Value& extra) {
  const std::string path = LibraryPath(params);
  void* handle = nullptr;
  if (!OpenPluginLib(path, &handle)) return;
  library_.reset(handle);

  void* address = nullptr;
  if (!GetPluginLibFunc(handle, symbol, &address)) return;
  if (address == nullptr) {
    syslog(LOG_DEBUG, "%s:%d cannot load Func %s: %s", log_place::kPluginSymbol.source,
           log_place::kPluginSymbol.line, symbol, "its address is null");
    return;
  }
  const auto func = reinterpret_cast<PluginLibFunc>(address);
  if (!CallLibFunc(func, entry, status, extra, result_)) return;

  std::size_t left = kLargestResult;
  used_ = TakeTextSize(result_, left);
  if (!used_) {
    syslog(LOG_ERR, "%s:%d plugin output exceeds %zu bytes: %s", log_place::kPluginOutput.source,
           log_place::kPluginOutput.line, kLargestResult, path.c_str());
  }
}

const Json::Value* PluginCall::Result(Json::ValueType type) const {
  return used_ && result_.type() == type ? &result_ : nullptr;
}

}  // namespace VELT::sharing
