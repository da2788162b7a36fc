#include "host/page/LinkPage.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <optional>
#include <utility>

#include "host/page/LinkDocument.h"
#include "host/page/LinkState.h"
#include "host/page/PluginTags.h"
#include "host/page/Redirect.h"
#include "veltsharing/Entry.h"

namespace VELT::host {
namespace {

using sharing::record::Entry;

// The page may use everything from this site, but no inline code, and may not be put into a frame.
constexpr const char* kContentSecurityPolicy =
    "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "object-src 'none'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'";

// Seconds.
constexpr const char* kRetryAfter = "120";

std::string TitleOf(const Entry& entry, const Json::Value& configuration,
                    const PageLanguage& language) {
  if (!entry.get_protect_title().empty()) return entry.get_protect_title();
  const bool titled = configuration.isObject() && configuration["protect_title"].isString();
  const std::string title = titled ? configuration["protect_title"].asString() : "";
  return title.empty() ? language.Text("untitled") : title;
}

// The error code that the query asks the page to show, in text form; empty: none.
std::string GivenError(const std::map<std::string, std::string>& parameters) {
  const auto given = parameters.find("sharing_error");
  if (given == parameters.end()) return "";
  const std::string& text = given->second;
  std::int32_t code = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), code);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && code != -1 ? std::to_string(code) : "";
}

PageAnswer Redirection(const std::string& target) {
  return {302,
          {{"Location", target}, {"Referrer-Policy", "no-referrer"}, {"Cache-Control", "no-store"}},
          ""};
}

PageAnswer Page(const LinkDocument& document) {
  PageAnswer answer{StatusOf(document.state),
                    {{"Content-Type", "text/html; charset=UTF-8"},
                     {"Content-Security-Policy", kContentSecurityPolicy},
                     {"Cross-Origin-Opener-Policy", "same-origin"},
                     {"Cross-Origin-Resource-Policy", "same-origin"},
                     {"Referrer-Policy", "no-referrer"},
                     {"X-Content-Type-Options", "nosniff"},
                     {"X-Robots-Tag", "noindex"},
                     {"Cache-Control", "no-store"}},
                    {}};
  if (document.state == LinkState::kUnavailable) {
    answer.headers.emplace_back("Retry-After", kRetryAfter);
  }
  if (auto html = Expand(document)) {
    answer.body = std::move(*html);
  } else {
    answer.status = std::max(answer.status, 500);
  }
  return answer;
}

}  // namespace

LinkPage::LinkPage(VisitPagePluginsFunc plugins, std::string server_name)
    : plugins_(plugins), server_name_(std::move(server_name)) {}

PageAnswer LinkPage::Answer(const PageRequest& request) const {
  LinkDocument document;
  document.language = &PageLanguageFor(request.language, request.accept_language);
  document.id = request.id;
  document.error = GivenError(request.parameters);
  Entry& entry = document.entry;
  document.state = FindLinkState(request.id, request.sharing_sid, !document.error.empty(), entry);
  if (document.state == LinkState::kPending) {
    document.opens = entry.get_start_at_str();
    document.opens_in = entry.get_start_at() - std::time(nullptr);
  }
  if (document.state != LinkState::kLogin && document.state != LinkState::kOpen) {
    return Page(document);
  }

  const std::optional<std::string> target = RedirectTarget(entry);
  if (document.state == LinkState::kOpen && target) return Redirection(*target);
  document.leads_on = target.has_value();
  document.unsafe_redirect = !target && entry.get_redirect_type() != Entry::RedirectType::kNone;

  PluginPage plugins = RunPagePlugins(plugins_, entry, entry.get_protect_type_str());
  document.title = TitleOf(entry, plugins.configuration, *document.language);
  document.tags = std::move(plugins.tags);
  document.server_name = server_name_;
  return Page(document);
}

}  // namespace VELT::host
