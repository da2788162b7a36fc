#include "veltwebapi/APIRequest.h"

#include <cstddef>
#include <map>
#include <type_traits>
#include <utility>

#include "veltsys/JsonText.h"
#include "veltsys/Text.h"
#include "veltwebapi/RequestContext.h"

namespace VELT {
namespace {

const RawParameter* Find(const RequestContext& context, const std::string& name) {
  const auto found = context.parameters.find(name);
  return found != context.parameters.end() ? &found->second : nullptr;
}

// The parameter's value for a caller that wants a string, or another type. The JSON text of a form
// value may contain escapes for characters that the host refuses. It is then not treated as JSON.
Json::Value ValueOf(const RequestContext& context, const RawParameter& raw, bool as_string) {
  if (raw.typed) return raw.json;
  Json::Value parsed;
  const std::size_t levels = context.is_sharing ? RequestContext::kVisitorLevels : 64;
  const bool is_json = !as_string && ParseJsonText(raw.text, parsed, levels) && IsCleanJson(parsed);
  return is_json ? parsed : Json::Value(raw.text);
}

template <typename T>
struct Reader;

template <>
struct Reader<std::string> {
  static bool Is(const Json::Value& value) { return value.isString(); }
  static std::string From(const Json::Value& value) { return value.asString(); }
};

template <>
struct Reader<int> {
  static bool Is(const Json::Value& value) { return value.isInt(); }
  static int From(const Json::Value& value) { return value.asInt(); }
};

template <>
struct Reader<bool> {
  static bool Is(const Json::Value& value) { return value.isBool(); }
  static bool From(const Json::Value& value) { return value.asBool(); }
};

template <Json::ValueType type>
struct ContainerReader {
  static bool Is(const Json::Value& value) { return value.type() == type; }
  static Json::Value From(const Json::Value& value) { return value; }
};

template <typename T, typename R = Reader<T>>
APIParameter<T> Read(const RequestContext& context, const std::string& name,
                     PARAM_NECESSITY necessity, bool (*validator)(const T&)) {
  const RawParameter* raw = Find(context, name);
  if (raw == nullptr) return {false, necessity == PARAM_REQUIRED, T()};
  const Json::Value value = ValueOf(context, *raw, std::is_same_v<T, std::string>);
  if (!R::Is(value)) return {true, true, T()};
  T read = R::From(value);
  const bool refused = validator != nullptr && !validator(read);
  return {true, refused, std::move(read)};
}

}  // namespace

APIRequest::APIRequest(std::unique_ptr<const RequestContext> context)
    : context_(std::move(context)) {}

APIRequest::~APIRequest() = default;

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& fallback) const {
  const RawParameter* raw = Find(*context_, name);
  return raw != nullptr ? ValueOf(*context_, *raw, fallback.isString()) : fallback;
}

bool APIRequest::HasParam(const std::string& name) const {
  return Find(*context_, name) != nullptr;
}

APIParameter<std::string> APIRequest::GetAndCheckString(
    const std::string& name, PARAM_NECESSITY necessity,
    bool (*validator)(const std::string&)) const {
  return Read(*context_, name, necessity, validator);
}

APIParameter<int> APIRequest::GetAndCheckInt(const std::string& name, PARAM_NECESSITY necessity,
                                             bool (*validator)(const int&)) const {
  return Read(*context_, name, necessity, validator);
}

APIParameter<bool> APIRequest::GetAndCheckBool(const std::string& name, PARAM_NECESSITY necessity,
                                               bool (*validator)(const bool&)) const {
  return Read(*context_, name, necessity, validator);
}

APIParameter<Json::Value> APIRequest::GetAndCheckObject(
    const std::string& name, PARAM_NECESSITY necessity,
    bool (*validator)(const Json::Value&)) const {
  return Read<Json::Value, ContainerReader<Json::objectValue>>(*context_, name, necessity,
                                                               validator);
}

APIParameter<Json::Value> APIRequest::GetAndCheckUnitArray(
    const std::string& name, PARAM_NECESSITY necessity,
    bool (*validator)(const Json::Value&)) const {
  return Read<Json::Value, ContainerReader<Json::arrayValue>>(*context_, name, necessity,
                                                              validator);
}

unsigned int APIRequest::GetLoginUID() const { return context_->login_uid; }
bool APIRequest::IsAdmin() const { return context_->is_admin; }
bool APIRequest::IsSharing() const { return context_->is_sharing; }
std::string APIRequest::GetSharingID() const { return context_->sharing_id; }
std::string APIRequest::GetSharingSID() const { return context_->sharing_sid; }

sharing::record::Entry APIRequest::GetSharingEntry() const { return context_->visit.link; }
bool APIRequest::HasVisit() const { return context_->visit.is_legal; }

std::string APIRequest::GetSharingURL(const std::string& path) const {
  return context_->base_url + path;
}

const std::string& APIRequest::GetRawBody() const { return context_->raw_body; }
std::int64_t APIRequest::GetBodyLength() const { return context_->body_length; }
std::size_t APIRequest::ReadBody(char* buffer, std::size_t size) const {
  return context_->read_body ? context_->read_body({buffer, size}) : 0;
}
const std::optional<APICredentials>& APIRequest::GetCredentials() const {
  return context_->credentials;
}

const APIClient& APIRequest::GetClient() const { return context_->client; }
const sharing::owners::Owner& APIRequest::GetOwner() const { return context_->owner; }
std::string APIRequest::GetServerName() const { return context_->server_name; }

bool APIRequest::IsHead() const { return context_->is_head; }

std::string APIRequest::GetHeader(const std::string& name) const {
  const auto found = context_->headers.find(name);
  return found != context_->headers.end() ? found->second : std::string();
}

std::string APIRequest::GetCookie(const std::string& name, const std::string& fallback) const {
  const auto found = context_->cookies.find(name);
  return found != context_->cookies.end() ? found->second : fallback;
}

std::string APIRequest::GetUILanguage() const { return context_->language; }

}  // namespace VELT
