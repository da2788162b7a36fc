// One web API request, as the framework hands it to a module.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "veltsharing/Entry.h"
#include "veltsharing/Owners.h"
#include "veltwebapi/APIParameter.h"

namespace VELT {

struct RequestContext;

struct APIClient {
  std::string address;
  std::string program;  // what it calls itself (User-Agent); any text
  bool secure = false;  // whether it uses HTTPS
};

// What a client presents by HTTP Basic.
struct APICredentials {
  std::string account;
  std::string password;
};

// Read-only. Lives for one handler call and is owned by the framework. One thread at a time.
//
// A parameter of a JSON body keeps its JSON type. A form-encoded one has no type: it is the text
// itself for a caller that wants a string, and the text parsed as JSON for every other type.
class APIRequest {
 public:
  // For the host: see RequestContext.h.
  explicit APIRequest(std::unique_ptr<const RequestContext> context);
  ~APIRequest();
  APIRequest(const APIRequest&) = delete;
  APIRequest& operator=(const APIRequest&) = delete;

  // The parameter, or `fallback` when the request lacks it. A form-encoded value is read as a
  // string if `fallback` is one, else as JSON. Text that is not JSON is then returned as a string,
  // so that the caller's conversion fails.
  Json::Value GetParam(const std::string& name, const Json::Value& fallback) const;
  bool HasParam(const std::string& name) const;

  // Read and check a parameter for a pre-check. A null validator accepts every value of the type.
  // An integer must fit into 32 bits. A JSON null has none of the types.
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

  // The logged-in user. For a visitor's request it is meaningless, and is no account's uid.
  unsigned int GetLoginUID() const;
  bool IsAdmin() const;

  // Whether a visitor of a share link makes the request, and the link and the session that the
  // visitor claims. These may be empty or unknown, which the caller must check.
  bool IsSharing() const;
  std::string GetSharingID() const;
  std::string GetSharingSID() const;
  // The link of a visitor's request as it was before the method began; an empty record, whose id is
  // 0, when there is none or the visitor may not know of it.
  sharing::record::Entry GetSharingEntry() const;
  // Whether the visitor's session held a legal token for that link then.
  bool HasVisit() const;

  // The beginning of links, which is scheme, host and port without a slash at the end, with `path`
  // appended unchanged.
  std::string GetSharingURL(const std::string& path) const;

  // The body, if the registry lets the method take a raw one; else empty. It may contain any bytes.
  const std::string& GetRawBody() const;

  // The body of a method for files that are sent whole ("put" in the registry): its length as the
  // client announces it, -1 if it does not; and the next bytes of it, for which this waits. ReadBody
  // returns 0 at the end, and earlier when the client has left or is too slow.
  std::int64_t GetBodyLength() const;
  std::size_t ReadBody(char* buffer, std::size_t size) const;
  // The password, and the account, that the client presents to such a method.
  const std::optional<APICredentials>& GetCredentials() const;

  // The client, and who it is at the owners' address. The owner of a visitor's request is nobody.
  const APIClient& GetClient() const;
  const sharing::owners::Owner& GetOwner() const;
  // What the server is called where owners sign in.
  std::string GetServerName() const;

  // Whether the client asks for the header of a GET's answer alone, which must change nothing (HEAD).
  bool IsHead() const;
  // A field of the request's header about conditions or parts: If-Match, If-None-Match,
  // If-Modified-Since, If-Unmodified-Since, If-Range or Range. Empty when there is none.
  std::string GetHeader(const std::string& name) const;

  std::string GetCookie(const std::string& name, const std::string& fallback) const;
  // The code of the browser's preferred language, such as "ger"; "enu" when the appliance has none
  // of the browser's languages.
  std::string GetUILanguage() const;

 private:
  std::unique_ptr<const RequestContext> context_;
};

}  // namespace VELT
