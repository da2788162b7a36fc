#include "LinkPage.h"

#include <charconv>
#include <cstdint>
#include <optional>

#include "Access.h"
#include "Redirect.h"
#include "veltsharing/Keys.h"
#include "veltsharing/SharingDB.h"
#include "veltsys/JsonFile.h"
#include "veltweb/WebUtils.h"

namespace VELT::host {
namespace {

using sharing::record::Entry;

constexpr const char* kConfigurationFolder = "/usr/velt/etc.defaults/sharing";

// Application pages may use everything of this site but frames around the page and inline code.
constexpr const char* kContentSecurityPolicy =
    "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "object-src 'none'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'";

// Seconds.
constexpr const char* kRetryAfter = "120";

enum class State { kUnavailable, kUnknown, kPending, kExpired, kUsedUp, kLogin, kOpen };

// What a state without content says, and the error code under which the session script tells it.
struct Ending {
  int status;
  const char* error;
  const char* heading;
  const char* text;
};

const Ending* EndingOf(State state) {
  static constexpr Ending kUnavailable{
      503, "117", "Links can’t be opened just now",
      "The device that keeps them is busy or being repaired. Try again in a few minutes."};
  // One text for a link that never was and one that is turned off: nobody learns which ids exist.
  static constexpr Ending kUnknown{
      404, "1000", "This link doesn’t work",
      "It may be mistyped, turned off or deleted. Ask whoever sent it to you for a "
      "new one."};
  static constexpr Ending kPending{403, "1000", "This link isn’t open yet",
                                   "Come back when it opens:"};
  static constexpr Ending kExpired{
      410, "1000", "This link has expired",
      "The time it was made for is over. Ask whoever sent it to you for a new one."};
  static constexpr Ending kUsedUp{
      410, "1012", "This link is used up",
      "It was made for a limited number of visits, and all of them have taken place. Ask "
      "whoever sent it to you for a new one."};
  switch (state) {
    case State::kUnavailable:
      return &kUnavailable;
    case State::kUnknown:
      return &kUnknown;
    case State::kPending:
      return &kPending;
    case State::kExpired:
      return &kExpired;
    case State::kUsedUp:
      return &kUsedUp;
    case State::kLogin:
    case State::kOpen:
      return nullptr;
  }
  return nullptr;
}

std::string Escaped(const std::string& text) { return WebUtils::EncodeHtml(text, true); }

// The link as this visitor finds it. `form` becomes the link's JSON form when there is a link.
State FindState(const PageRequest& request, bool error_given, Entry& entry, Json::Value& form) {
  sharing::db::SharingDB& db = *sharing::db::SharingDB::Instance();
  if (!db.IsGood()) {
    return State::kUnavailable;
  }
  if (!sharing::db::EntryDB(db).GetByHash(request.id, entry)) {
    return State::kUnknown;
  }
  entry.ToJSON(form);
  const std::string status = form["status"].asString();
  // An application that turns a visitor away sends him back with an error to show. The session he
  // has didn't do: he logs in anew, and no redirect sends him round in circles.
  if (HoldsToken(entry, request.sharing_sid)) {
    return error_given ? State::kLogin : State::kOpen;
  }
  if (status == "pending") {
    return State::kPending;
  }
  if (status == "expired") {
    return State::kExpired;
  }
  return status == "used_up" ? State::kUsedUp : State::kLogin;
}

const char* StatusText(const Entry& entry) {
  switch (entry.get_protect_type()) {
    case Entry::ProtectType::kNone:
      break;
    case Entry::ProtectType::kPassword:
      return sharing::SZK_PROTECT_PROTECT_PASSWORD;
    case Entry::ProtectType::kUser:
      return sharing::SZK_PROTECT_PROTECT_USER;
  }
  return sharing::SZK_PROTECT_PROTECT_NONE;
}

std::string TitleOf(const Entry& entry, const Json::Value& configuration) {
  if (!entry.get_protect_title().empty()) {
    return entry.get_protect_title();
  }
  const bool titled = configuration.isObject() && configuration["protect_title"].isString();
  const std::string title = titled ? configuration["protect_title"].asString() : "";
  return title.empty() ? "Shared link" : title;
}

// The error code that the query asks the page to show, in text form; empty: none.
std::string GivenError(const std::map<std::string, std::string>& parameters) {
  const auto given = parameters.find("sharing_error");
  if (given == parameters.end()) {
    return "";
  }
  const std::string& text = given->second;
  std::int32_t code = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), code);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && code != -1 ? std::to_string(code) : "";
}

// What the page's script finds: where the visitor stands, and the form that login asks for.
std::string Form(const Entry& entry) {
  std::string fields;
  switch (entry.get_protect_type()) {
    case Entry::ProtectType::kNone:
      break;
    case Entry::ProtectType::kUser:
      fields = R"(<p>This link is for certain accounts of this device.</p>
<label>Account
<input name="mosk_username" autocomplete="username" autocapitalize="none" spellcheck="false" required></label>
<label>Password
<input name="mosk_password" type="password" autocomplete="current-password" required></label>
)";
      break;
    case Entry::ProtectType::kPassword:
      // Password managers keep one password for each name at a site: each link is a name.
      fields = "<p>This link asks for a password.</p>\n<input autocomplete=\"username\" value=\"" +
               Escaped(entry.get_hash()) + "\" hidden readonly>\n";
      fields += R"(<label>Password
<input name="password" type="password" autocomplete="current-password" required></label>
)";
      break;
  }
  // A POST, so that a form sent before its script runs leaves no password in an address.
  return "<form id=\"login\" method=\"post\" hidden>\n" + fields +
         "<button class=\"primary\">Open</button>\n</form>\n";
}

struct Document {
  std::string title;
  std::string session;  // the parameters of the session script
  std::string tags;     // of the application
  std::string body;     // attributes of the body element, each after a blank
  std::string main;
};

PageAnswer Page(int status, const std::string& id, const Document& document) {
  const std::string script = "/sharing/" + PercentEncoded(id) +
                             "/webapi?api=VELT.Core.Sharing.Session&version=1&method=get" +
                             document.session;
  const std::string title = Escaped(document.title);
  PageAnswer answer;
  answer.status = status;
  answer.headers = {{"Content-Type", "text/html; charset=UTF-8"},
                    {"Content-Security-Policy", kContentSecurityPolicy},
                    {"Cross-Origin-Opener-Policy", "same-origin"},
                    {"Cross-Origin-Resource-Policy", "same-origin"},
                    {"Referrer-Policy", "no-referrer"},
                    {"X-Content-Type-Options", "nosniff"},
                    {"X-Robots-Tag", "noindex"},
                    {"Cache-Control", "no-store"}};
  answer.body =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<title>" +
      title +
      "</title>\n"
      "<link rel=\"icon\" type=\"image/svg+xml\" href=\"/shared/icon.svg\">\n"
      "<link rel=\"stylesheet\" href=\"/shared/theme.css\">\n"
      "<link rel=\"stylesheet\" href=\"/link/link.css\">\n"
      "<script src=\"/link/namespace.js\"></script>\n"
      "<script src=\"" +
      Escaped(script) +
      "\"></script>\n"
      "<script type=\"module\" src=\"/link/link.js\"></script>\n" +
      document.tags + "</head>\n<body" + document.body +
      ">\n"
      "<header><h1>" +
      title + "</h1></header>\n<main>\n" + document.main + "</main>\n</body>\n</html>\n";
  return answer;
}

PageAnswer EndingPage(const std::string& id, const Ending& ending, const std::string& opens) {
  Document document;
  document.title = ending.heading;
  // Without the link's id: a page that ends here shows nothing of the link.
  document.session = std::string("&sharing_error=") + ending.error;
  document.body = " data-state=\"ended\"";
  document.main = std::string("<p>") + ending.text + "</p>\n";
  if (!opens.empty()) {
    document.main +=
        "<p><time>" + Escaped(opens) + "</time> (by the clock of the device that keeps it)</p>\n";
  }
  PageAnswer answer = Page(ending.status, id, document);
  if (ending.status == 503) {
    answer.headers.emplace_back("Retry-After", kRetryAfter);
  }
  return answer;
}

}  // namespace

LinkPage::LinkPage(PluginLookup lookup) : lookup_(std::move(lookup)) {}

PageAnswer LinkPage::Answer(const PageRequest& request) const {
  const std::string error = GivenError(request.parameters);
  Entry entry;
  Json::Value form;
  const State state = FindState(request, !error.empty(), entry, form);
  if (const Ending* ending = EndingOf(state)) {
    return EndingPage(request.id, *ending,
                      state == State::kPending ? form["start_at"].asString() : "");
  }

  const std::optional<std::string> target = RedirectTarget(entry);
  if (state == State::kOpen && target) {
    return PageAnswer{
        302,
        {{"Location", *target}, {"Referrer-Policy", "no-referrer"}, {"Cache-Control", "no-store"}},
        ""};
  }

  const Json::Value configuration = ReadJsonFile(kConfigurationFolder, entry.get_project_name());
  Document document;
  document.title = TitleOf(entry, configuration);
  document.session = "&sharing_id=" + PercentEncoded(entry.get_hash()) +
                     "&sharing_status=" + StatusText(entry) +
                     (error.empty() ? "" : "&sharing_error=" + error);
  document.tags = PluginTags(lookup_, configuration, entry, StatusText(entry));
  document.body = std::string(" data-state=\"") + (state == State::kOpen ? "open" : "login") +
                  "\" data-protect=\"" + StatusText(entry) + "\"" +
                  (target ? " data-redirect" : "");
  if (!target && entry.get_redirect_type() != Entry::RedirectType::kNone) {
    document.main =
        "<p class=\"notice error\">This link is made to lead on, but to an address that isn’t safe "
        "to follow.</p>\n";
  }
  document.main +=
      "<noscript><p class=\"notice error\">This page needs JavaScript.</p></noscript>\n" +
      Form(entry);
  return Page(200, request.id, document);
}

}  // namespace VELT::host
