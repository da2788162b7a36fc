// One request as the web server passes it on. Nothing in it has been checked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>

namespace VELT::host {

struct WebRequest {
  // The meta-variable `name` (RFC 3875, section 4.1); empty when there is none.
  std::string Variable(const std::string& name) const {
    const auto found = variables.find(name);
    return found != variables.end() ? found->second : std::string();
  }
  // What CONTENT_LENGTH says; -1: nothing.
  std::int64_t AnnouncedLength() const;
  bool IsHttps() const { return Variable("HTTPS") == "on"; }

  std::map<std::string, std::string> variables;
  std::string body;            // only the beginning if it is larger than any method accepts
  bool body_complete = false;  // it had as many bytes as CONTENT_LENGTH says
  // Reads on in a body that is still to come; 0: it is at its end or was cut off. Empty when the body is
  // above.
  std::function<std::size_t(std::span<char>)> read_body;
  bool judged = false;  // the worker that handed it over has found that the call may be made
};

}  // namespace VELT::host
