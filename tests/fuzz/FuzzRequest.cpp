// Any text as query, host, cookies, language and body: what is accepted must be clean and within the limits.
#include "host/Limits.h"
#include "host/page/Language.h"
#include "host/request/RequestReader.h"
#include "host/request/Site.h"
#include "tests/fuzz/Fuzz.h"
#include "veltsys/Text.h"

void VELT::Try(const std::string& input) {
  std::string text = input;
  host::WebRequest request;
  request.variables["QUERY_STRING"] = TakeLine(text);
  request.variables["HTTP_HOST"] = request.variables["QUERY_STRING"];
  request.body = text;
  request.body_complete = true;
  for (const char* type : {"application/json", "application/x-www-form-urlencoded"}) {
    request.variables["CONTENT_TYPE"] = type;
    host::Parameters parameters;
    if (!host::ReadParameters(request, parameters).empty()) continue;
    Require(parameters.size() <= host::kMostParameters, "the number of parameters has a limit");
    for (const auto& [name, value] : parameters) {
      Require(IsCleanText(name) && IsCleanText(value.text) && IsCleanJson(value.json),
              "parameters are clean");
    }
  }
  for (const auto& [name, value] : host::ReadCookies(text)) {
    Require(!name.empty() && IsCleanText(name + value), "cookies have names and are clean");
  }
  const std::string base = host::BaseURL(request, {});
  Require(base.find_first_of(" /\"<>\r\n", 8) == std::string::npos,
          "a base URL is scheme and host");
  Require(host::UILanguage(text).size() == 3, "a language has three letters");
}
