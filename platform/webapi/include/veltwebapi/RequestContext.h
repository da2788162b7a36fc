// The host's half of APIRequest: what the host knows of a request before a module sees it.
#pragma once

#include <json/value.h>

#include <map>
#include <string>

namespace VELT {

// A parameter as it came. `json` holds it when the body was JSON, `text` when it was form-encoded.
struct RawParameter {
  bool typed = false;
  Json::Value json;
  std::string text;
};

struct RequestContext {
  // The uid of a request that no user made. It is not 0xFFFFFFFF, which the store takes for every
  // owner.
  static constexpr unsigned int kNobody = 0xFFFFFFFE;

  std::map<std::string, RawParameter> parameters;
  std::map<std::string, std::string> cookies;
  unsigned int login_uid = kNobody;
  bool is_admin = false;
  bool is_sharing = false;
  std::string raw_body;
  std::string sharing_id;
  std::string sharing_sid;
  std::string base_url;
  std::string language = "enu";
};

}  // namespace VELT
