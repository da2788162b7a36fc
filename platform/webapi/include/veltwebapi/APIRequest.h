// One web API request, as the framework hands it to a module.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "veltsharing/Entry.h"
#include "veltwebapi/APIParameter.h"

namespace VELT {

struct RequestContext;

// Read-only; lives for one handler call and belongs to the framework. One thread at a time.
//
// A parameter of a JSON body keeps its JSON type. A form-encoded one has no type of its own and
// takes the reader's: as a string it is the text as it stands, for every other type the text parsed
// as JSON.
class APIRequest {
 public:
  // For the host: see RequestContext.h. The context is taken over.
  explicit APIRequest(std::unique_ptr<const RequestContext> context);
  ~APIRequest();
  APIRequest(const APIRequest&) = delete;
  APIRequest& operator=(const APIRequest&) = delete;

  // The parameter, or `fallback` when the request lacks it. A form-encoded value takes the type of
  // `fallback` (null: any JSON); text that is no JSON then comes as a JSON string, so that the
  // caller's conversion refuses it.
  Json::Value GetParam(const std::string& name, const Json::Value& fallback) const;
  bool HasParam(const std::string& name) const;

  // Read and judge a parameter for a pre-check. A null validator accepts every value of the type.
  // An integer is one that fits 32 bits; a JSON null is of no type.
  APIParameter<std::string> GetAndCheckString(const std::string& name, PARAM_NECESSITY necessity,
                                              bool (*validator)(const std::string&)) const;
  APIParameter<int> GetAndCheckInt(const std::string& name, PARAM_NECESSITY necessity,
                                   bool (*validator)(const int&)) const;
  APIParameter<bool> GetAndCheckBool(const std::string& name, PARAM_NECESSITY necessity,
                                     bool (*validator)(const bool&)) const;
  APIParameter<Json::Value> GetAndCheckObject(const std::string& name, PARAM_NECESSITY necessity,
                                              bool (*validator)(const Json::Value&)) const;
  // A JSON array, whatever its elements.
  APIParameter<Json::Value> GetAndCheckUnitArray(const std::string& name, PARAM_NECESSITY necessity,
                                                 bool (*validator)(const Json::Value&)) const;

  // The logged-in user; meaningless for a visitor's request, and then no account's uid.
  unsigned int GetLoginUID() const;
  bool IsAdmin() const;

  // Whether a share-link visitor makes the request, and under which link and visitor session. The
  // last two are what the visitor claims: empty or unknown ids are the caller's to refuse.
  bool IsSharing() const;
  std::string GetSharingID() const;
  std::string GetSharingSID() const;
  // The link of a visitor's request as the store has it now; an empty record when there is none.
  sharing::record::Entry GetSharingEntry() const;

  // The base of link addresses: scheme, host and port, without a slash at the end. `path` is
  // appended as it stands.
  std::string GetSharingURL(const std::string& path) const;

  // The body, any bytes, where the registry lets the method take it as it comes; else empty.
  const std::string& GetRawBody() const;

  std::string GetCookie(const std::string& name, const std::string& fallback) const;
  // A language code such as "enu", from the visitor's browser; "enu" when it names none we have.
  std::string GetUILanguage() const;

 private:
  std::unique_ptr<const RequestContext> context_;
};

}  // namespace VELT
