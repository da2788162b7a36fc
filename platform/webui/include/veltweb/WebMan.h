// The context of the page that is being served.
#pragma once

#include <string>
#include <utility>

class WebMan {
 public:
  // `ui_language`: a language code such as "enu"; `user_agent`: the browser's own text (RFC 9110,
  // section 10.1.5), empty when it sent none.
  WebMan(std::string ui_language, std::string user_agent)
      : ui_language_(std::move(ui_language)), user_agent_(std::move(user_agent)) {}

  // Both live as long as this object.
  const char* GetUILanguage() const { return ui_language_.c_str(); }
  const std::string& GetUserAgent() const { return user_agent_; }

 private:
  std::string ui_language_;
  std::string user_agent_;
};
