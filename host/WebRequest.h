// One request as the web server hands it over, before anything in it is believed.
#pragma once

#include <map>
#include <string>

namespace VELT::host {

struct WebRequest {
  // The meta-variable `name` (RFC 3875, section 4.1); empty when there is none.
  std::string Variable(const std::string& name) const {
    const auto found = variables.find(name);
    return found != variables.end() ? found->second : std::string();
  }
  bool IsHttps() const { return Variable("HTTPS") == "on"; }

  std::map<std::string, std::string> variables;
  std::string body;            // of one that is larger than any method takes, the beginning
  bool body_complete = false;  // as many bytes came as CONTENT_LENGTH announced
};

}  // namespace VELT::host
