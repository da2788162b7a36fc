#include "host/request/Registry.h"

#include <dlfcn.h>
#include <json/value.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/Limits.h"
#include "host/Pool.h"
#include "veltsys/JsonFile.h"

namespace VELT::host {
namespace {

[[noreturn]] void Fail(std::initializer_list<std::string_view> pieces) {
  std::string text;
  for (const std::string_view piece : pieces) text += piece;
  throw std::runtime_error(text);
}

std::string Text(const Json::Value& object, const char* member) {
  if (!object.isObject() || !object[member].isString() || object[member].asString().empty()) {
    Fail({"\"", member, "\" must be a string that is not empty"});
  }
  return object[member].asString();
}

Access ReadAccess(const Json::Value& levels) {
  if (!levels.isArray() || levels.empty()) {
    Fail({R"("access" must be a list of levels)"});
  }
  Access access;
  for (const Json::Value& level : levels) {
    if (level == "anyone") {
      access.anyone = true;
    } else if (level == "user") {
      access.user = true;
    } else if (level == "visitor") {
      access.visitor = true;
    } else if (level == "token") {
      access.token = true;
    } else {
      Fail({R"("access" may hold "anyone", "user", "visitor" and "token" only)"});
    }
  }
  return access;
}

bool ReadFlag(const Json::Value& row, const char* name) {
  const Json::Value value = row.get(name, false);
  if (!value.isBool()) Fail({"\"", name, "\" must be true or false"});
  return value.asBool();
}

Pool ReadPool(const Json::Value& row) {
  const Json::Value& value = row["pool"];
  if (value.isNull()) return Pool::kFront;
  const auto pool = value.isString() ? FindPool(value.asString()) : std::nullopt;
  if (!pool) Fail({R"("pool" must be "login", "program", "long", "stream", "bulk" or "upload")"});
  if ((pool == Pool::kUpload) == row["put"].isNull())
    Fail({R"("put" goes with the pool "upload")"});
  return *pool;
}

std::size_t ReadRawBody(const Json::Value& row) {
  const Json::Value& value = row["raw_body"];
  if (value.isNull()) return 0;
  if (!value.isUInt() || value.asUInt() == 0 || value.asUInt() > kLargestRawBody) {
    Fail({R"("raw_body" must be a number of bytes, at most )", std::to_string(kLargestRawBody)});
  }
  if (row["post_only"] != true) Fail({R"("raw_body" needs "post_only")"});
  return value.asUInt();
}

void* LoadModule(const std::string& path) {
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) Fail({"cannot load library: ", dlerror()});
  return module;
}

// The first row of the table that the module's function `name` returns.
template <typename Row>
const Row* Table(void* module, const char* name) {
  const auto function = reinterpret_cast<const Row* (*)()>(dlsym(module, name));
  const Row* table = function != nullptr ? function() : nullptr;
  if (table == nullptr) Fail({"the library has no ", name});
  return table;
}

template <typename Row>
std::map<std::tuple<std::string, int, std::string>, const Row*> Index(const Row* table) {
  std::map<std::tuple<std::string, int, std::string>, const Row*> rows;
  for (const Row* row = table; row->api != nullptr; ++row) {
    if (row->method == nullptr ||
        !rows.emplace(std::tuple(row->api, row->version, row->method), row).second) {
      Fail({"the library's tables have a bad row"});
    }
  }
  return rows;
}

std::vector<std::string> FilesOf(const std::string& folder) {
  std::error_code error;
  std::vector<std::string> files;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().extension() == ".json") files.push_back(entry->path().filename());
  }
  if (error) Fail({folder, ": ", error.message()});
  if (files.empty()) Fail({folder, ": no API module is registered here"});
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

Registry Registry::Load(const std::string& folder) {
  Registry registry;
  for (const std::string& file : FilesOf(folder)) {
    try {
      registry.AddModule(folder, file);
    } catch (const std::runtime_error& error) {
      Fail({folder, "/", file, ": ", error.what()});
    }
  }
  return registry;
}

void Registry::AddModule(const std::string& folder, const std::string& file) {
  const Json::Value content = ReadJsonFile(folder, file);
  if (!content.isObject() || !content["methods"].isArray()) {
    Fail({R"(not a readable JSON object with a list "methods")"});
  }
  // An absolute path on the right side of `/` replaces the left one.
  void* module = LoadModule(std::filesystem::absolute(folder) / Text(content, "library"));
  modules_.push_back(module);
  const auto handlers = Index(Table<APITableEntry>(module, "GetAPITable"));
  const auto checks = Index(Table<APICheckTableEntry>(module, "GetAPICheckTable"));
  for (const Json::Value& row : content["methods"]) {
    const std::string api = Text(row, "api");
    const std::string name = Text(row, "method");
    if (!row["version"].isInt()) Fail({R"("version" must be a number)"});
    const Key key(api, row["version"].asInt(), name);
    const auto handler = handlers.find(key);
    const auto check = checks.find(key);
    if (handler == handlers.end() || check == checks.end() || handler->second->handler == nullptr ||
        check->second->check == nullptr) {
      Fail({"the library has no handler or no check for ", api, " ", name});
    }
    const Method method{handler->second->handler,
                        check->second->check,
                        ReadAccess(row["access"]),
                        ReadFlag(row, "post_only"),
                        ReadPool(row),
                        ReadRawBody(row),
                        ReadFlag(row, "through_links"),
                        row.get("put", "").asString(),
                        row.get("pool_when", "").asString()};
    if (!methods_.emplace(key, method).second) {
      Fail({api, " ", name, " is registered twice"});
    }
  }
}

void Registry::Number(const RowOf& row_of) {
  for (auto& [key, method] : methods_) {
    const auto& [api, version, name] = key;
    method.row = row_of(api, version, name);
  }
}

std::optional<ErrorCode> Registry::Find(const std::string& api, int version,
                                        const std::string& name, const Method** method) const {
  const auto found = methods_.find({api, version, name});
  if (found != methods_.end()) {
    *method = &found->second;
    return std::nullopt;
  }
  bool has_api = false;
  bool has_version = false;
  for (const auto& [key, unused] : methods_) {
    has_api = has_api || std::get<0>(key) == api;
    has_version = has_version || (std::get<0>(key) == api && std::get<1>(key) == version);
  }
  if (!has_api) return kErrorNoAPI;
  return has_version ? kErrorNoMethod : kErrorNoVersion;
}

const Method* Registry::FindPut(const std::string& project) const {
  const auto found = std::ranges::find_if(methods_, [&project](const auto& row) {
    return !row.second.put.empty() && row.second.put == project;
  });
  return found != methods_.end() ? &found->second : nullptr;
}

std::size_t Registry::LargestBody() const {
  std::size_t largest = kLargestBody;
  for (const auto& [key, method] : methods_) largest = std::max(largest, method.raw_body);
  return largest;
}

std::vector<void*> Registry::Symbols(const char* symbol) const {
  std::vector<void*> addresses;
  for (void* module : modules_) {
    if (void* address = dlsym(module, symbol); address != nullptr) addresses.push_back(address);
  }
  return addresses;
}

}  // namespace VELT::host
