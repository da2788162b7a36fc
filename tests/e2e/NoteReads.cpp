// Preloaded into the service: appends to the file VELT_READS a line "API method name how" for each parameter that a
// module reads. `how` is "check" for the readers that only pre-checks use, else "value".
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "veltwebapi/APIRequest.h"

namespace VELT {
namespace {

// Calls the function of the same name in the library that is really meant.
template <typename Function, typename... Arguments>
auto CallNext(const APIRequest& request, Function function, const Arguments&... arguments) {
  void* address = nullptr;
  std::memcpy(&address, &function, sizeof address);
  Dl_info own{};
  dladdr(address, &own);
  address = dlsym(RTLD_NEXT, own.dli_sname);
  std::memcpy(&function, &address, sizeof address);
  return (request.*function)(arguments...);
}

void Note(const APIRequest& request, const std::string& name, const char* how) {
  const char* path = std::getenv("VELT_READS");
  const int file = path != nullptr ? open(path, O_WRONLY | O_APPEND | O_CLOEXEC) : -1;
  if (file < 0) return;
  std::string line;
  for (const char* part : {"api", "method"}) {
    line +=
        CallNext(request, &APIRequest::GetParam, std::string(part), Json::Value("")).asString() +
        ' ';
  }
  line += name + ' ' + how + '\n';
  if (write(file, line.data(), line.size()) < 0) std::abort();
  close(file);
}

}  // namespace

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& fallback) const {
  Note(*this, name, "value");
  return CallNext(*this, &APIRequest::GetParam, name, fallback);
}

bool APIRequest::HasParam(const std::string& name) const {
  Note(*this, name, "check");
  return CallNext(*this, &APIRequest::HasParam, name);
}

APIParameter<std::string> APIRequest::GetAndCheckString(
    const std::string& name, PARAM_NECESSITY necessity,
    bool (*validator)(const std::string&)) const {
  Note(*this, name, "check");
  return CallNext(*this, &APIRequest::GetAndCheckString, name, necessity, validator);
}

APIParameter<int> APIRequest::GetAndCheckInt(const std::string& name, PARAM_NECESSITY necessity,
                                             bool (*validator)(const int&)) const {
  Note(*this, name, "check");
  return CallNext(*this, &APIRequest::GetAndCheckInt, name, necessity, validator);
}

APIParameter<bool> APIRequest::GetAndCheckBool(const std::string& name, PARAM_NECESSITY necessity,
                                               bool (*validator)(const bool&)) const {
  Note(*this, name, "check");
  return CallNext(*this, &APIRequest::GetAndCheckBool, name, necessity, validator);
}

APIParameter<Json::Value> APIRequest::GetAndCheckObject(
    const std::string& name, PARAM_NECESSITY necessity,
    bool (*validator)(const Json::Value&)) const {
  Note(*this, name, "check");
  return CallNext(*this, &APIRequest::GetAndCheckObject, name, necessity, validator);
}

APIParameter<Json::Value> APIRequest::GetAndCheckUnitArray(
    const std::string& name, PARAM_NECESSITY necessity,
    bool (*validator)(const Json::Value&)) const {
  Note(*this, name, "check");
  return CallNext(*this, &APIRequest::GetAndCheckUnitArray, name, necessity, validator);
}

}  // namespace VELT
