// The host's side of APIRequest: what the host knows of a request.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "veltsharing/Owners.h"
#include "veltsharing/View.h"
#include "veltwebapi/APIRequest.h"

namespace VELT {

// A parameter as it was received: in `json` from a JSON body (`typed`), in `text` from a form.
struct RawParameter {
  bool typed = false;
  Json::Value json;
  std::string text;
};

struct RequestContext {
  // The uid of a request without a user. It is not 0xFFFFFFFF, which means every owner in the
  // store.
  static constexpr unsigned int kNobody = 0xFFFFFFFE;

  // How deep JSON in a visitor's parameters may be nested. Every level makes an answer that repeats
  // them longer, up to ten times their size with this many.
  static constexpr std::size_t kVisitorLevels = 16;

  std::map<std::string, RawParameter> parameters;
  std::map<std::string, std::string> cookies;
  std::map<std::string, std::string> headers;  // those that APIRequest::GetHeader knows
  bool is_head = false;
  unsigned int login_uid = kNobody;
  bool is_admin = false;
  bool is_sharing = false;
  APIClient client;
  // Who calls at the owners' address; nobody at a link's.
  sharing::owners::Owner owner;
  std::string server_name;
  std::string raw_body;
  // For methods of the pool "upload", see APIRequest.
  std::int64_t body_length = -1;
  std::function<std::size_t(std::span<char>)> read_body;
  std::optional<APICredentials> credentials;
  std::string sharing_id;
  std::string sharing_sid;
  // Whose request it is for the store, and what was found of a visitor's before the method began.
  sharing::View view;
  sharing::Visit visit;
  std::string base_url;
  std::string language = "enu";
};

}  // namespace VELT
