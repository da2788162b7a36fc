#include "host/request/PageRoute.h"

#include <map>
#include <utility>
#include <vector>

#include "host/page/Language.h"
#include "host/request/Answer.h"
#include "host/request/RequestReader.h"
#include "veltsharing/Keys.h"

namespace VELT::host {

namespace {

// Empty when there is no such cookie.
std::string ValueOf(const std::map<std::string, std::string>& cookies, const char* name) {
  const auto found = cookies.find(name);
  return found != cookies.end() ? found->second : std::string();
}

}  // namespace

VisitPagePluginsFunc FindPluginsIn(const Registry& registry) {
  const auto found = registry.Symbols("VisitPagePlugins");
  return found.empty() ? nullptr : reinterpret_cast<VisitPagePluginsFunc>(found.front());
}

std::string AnswerPage(const LinkPage& page, const WebRequest& request, const std::string& id) {
  std::vector<std::pair<std::string, std::string>> pairs;
  if (!DecodeForm(request.Variable("QUERY_STRING"), "query", pairs).empty()) {
    return PlainAnswer("400 Bad Request", "The address is malformed.");
  }
  const auto cookies = ReadCookies(request.Variable("HTTP_COOKIE"));
  const PageAnswer answer = page.Answer({id,
                                         {pairs.begin(), pairs.end()},
                                         ValueOf(cookies, sharing::SZK_SHARING_SID),
                                         ValueOf(cookies, kLanguageCookie),
                                         request.Variable("HTTP_ACCEPT_LANGUAGE")});
  std::string text = "Status: " + std::to_string(answer.status) + "\r\n";
  for (const auto& [name, value] : answer.headers) {
    text.append(name).append(": ").append(value).append("\r\n");
  }
  text += "\r\n";
  if (request.Variable("REQUEST_METHOD") != "HEAD") text += answer.body;
  return text;
}

}  // namespace VELT::host
