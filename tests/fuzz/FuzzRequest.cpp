// Anything as query, cookies, language, host and body: what is let through must be clean and within
// limits.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/Language.h"
#include "host/Limits.h"
#include "host/RequestReader.h"
#include "host/Site.h"
#include "veltsys/Text.h"

using VELT::host::Parameters;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::size_t half = text.find('\n');
  VELT::host::WebRequest request;
  request.variables["QUERY_STRING"] = text.substr(0, half);
  request.variables["HTTP_HOST"] = request.variables["QUERY_STRING"];
  request.body = half == std::string::npos ? std::string() : text.substr(half + 1);
  request.body_complete = true;
  for (const char* type : {"application/json", "application/x-www-form-urlencoded"}) {
    request.variables["CONTENT_TYPE"] = type;
    Parameters parameters;
    if (!VELT::host::ReadParameters(request, parameters).empty()) continue;
    if (parameters.size() > VELT::host::kMostParameters) std::abort();
    for (const auto& [name, value] : parameters) {
      if (!VELT::IsCleanText(name) || !VELT::IsCleanText(value.text)) std::abort();
      if (!VELT::IsCleanJson(value.json)) std::abort();
    }
  }
  for (const auto& [name, value] : VELT::host::ReadCookies(request.body)) {
    if (name.empty() || !VELT::IsCleanText(name + value)) std::abort();
  }
  if (VELT::host::BaseURL(request, {}).find_first_of(" /\"<>\r\n", 8) != std::string::npos)
    std::abort();
  VELT::host::UILanguage(request.body);
  return 0;
}
