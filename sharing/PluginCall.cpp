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

// Takes the length of the value's JSON text, escapes left out, from `left`; false once that is used
// up.
bool TakeTextSize(const Json::Value& value, std::size_t& left) {
  std::size_t size = 2;  // the quotes of a string, or the brackets
  if (value.isString()) {
    const char* begin = nullptr;
    const char* end = nullptr;
    if (value.getString(&begin, &end)) size += static_cast<std::size_t>(end - begin);
  } else if (!value.isArray() && !value.isObject()) {
    size = value.asString().size();
  }
  if (size > left) return false;
  left -= size;
  if (!value.isArray() && !value.isObject()) return true;
  for (auto member = value.begin(); member != value.end(); ++member) {
    // A comma; with a name, its quotes and the colon as well.
    const char* name_end = nullptr;
    const char* name = value.isObject() ? member.memberName(&name_end) : nullptr;
    const std::size_t around = name == nullptr ? 1 : 4 + static_cast<std::size_t>(name_end - name);
    if (around > left) return false;
    left -= around;
    if (!TakeTextSize(*member, left)) return false;
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
