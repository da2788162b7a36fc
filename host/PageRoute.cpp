#include "PageRoute.h"

#include <map>
#include <utility>
#include <vector>

#include "Answer.h"
#include "RequestReader.h"
#include "veltsharing/Keys.h"

namespace VELT::host {

VisitPagePluginsFunc FindPluginsIn(const Registry& registry) {
  return reinterpret_cast<VisitPagePluginsFunc>(registry.Symbol("VisitPagePlugins"));
}

std::string AnswerPage(const LinkPage& page, const WebRequest& request, const std::string& id) {
  std::vector<std::pair<std::string, std::string>> pairs;
  if (!DecodeForm(request.Variable("QUERY_STRING"), "query", pairs).empty()) {
    return PlainAnswer("400 Bad Request", "The address is malformed.");
  }
  const auto cookies = ReadCookies(request.Variable("HTTP_COOKIE"));
  const auto sid = cookies.find(sharing::SZK_SHARING_SID);
  const PageAnswer answer = page.Answer(
      {id, {pairs.begin(), pairs.end()}, sid != cookies.end() ? sid->second : std::string()});
  std::string text = "Status: " + std::to_string(answer.status) + "\r\n";
  for (const auto& [name, value] : answer.headers) {
    text.append(name).append(": ").append(value).append("\r\n");
  }
  text += "\r\n";
  if (request.Variable("REQUEST_METHOD") != "HEAD") text += answer.body;
  return text;
}

}  // namespace VELT::host
