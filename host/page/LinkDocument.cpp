#include "host/page/LinkDocument.h"

#include <ctemplate/template.h>
#include <syslog.h>

#include <cstddef>
#include <string_view>

#include "veltsys/Text.h"
#include "veltwebapi/ErrorCodes.h"

namespace VELT::host {
namespace {

using sharing::record::Entry;

constexpr const char* kTemplate = "/usr/velt/web/link/page.html";

// A state in which the link is not served: the page only says why.
struct Ending {
  LinkState state;
  int status;
  ErrorCode error;      // the code under which the session script reports it
  const char* title;    // a text's key
  const char* section;  // of the template
};

// A disabled link gets the page of an unknown one, so that nobody learns which ids exist.
constexpr Ending kEndings[] = {
    {LinkState::kUnavailable, 503, kErrorStore, "unavailable_title", "UNAVAILABLE"},
    {LinkState::kUnknown, 404, kErrorLogin, "unknown_title", "UNKNOWN"},
    {LinkState::kPending, 403, kErrorLogin, "pending_title", "PENDING"},
    {LinkState::kExpired, 410, kErrorLogin, "expired_title", "EXPIRED"},
    {LinkState::kUsedUp, 410, kErrorExpireTimes, "used_up_title", "USED_UP"},
};

const Ending* EndingOf(LinkState state) {
  for (const Ending& ending : kEndings) {
    if (ending.state == state) return &ending;
  }
  return nullptr;
}

// The session script's address. Without a served link it names none, so the script reveals nothing
// about the link.
std::string SessionScript(const LinkDocument& document, const Ending* ending) {
  std::string address = "/sharing/" + EncodePercent(document.id) +
                        "/webapi?api=VELT.Core.Sharing.Session&version=1&method=get";
  if (ending != nullptr) return address + "&sharing_error=" + std::to_string(ending->error);
  address += "&sharing_id=" + EncodePercent(document.entry.get_hash()) +
             "&sharing_status=" + document.entry.get_protect_type_str();
  return document.error.empty() ? address : address + "&sharing_error=" + document.error;
}

void FillLanguage(const PageLanguage& language, ctemplate::TemplateDictionary& page) {
  page.SetValue("LANGUAGE", language.tag);
  page.SetValue("LANGUAGE_CODE", language.code);
  page.SetValue("DIRECTION", language.direction);
  for (const auto& [key, text] : language.texts) page.SetValue(key, text);
  for (const PageLanguage& each : PageLanguages()) {
    ctemplate::TemplateDictionary* option = page.AddSectionDictionary("LANGUAGES");
    option->SetValue("CODE", each.code);
    option->SetValue("TAG", each.tag);
    option->SetValue("NAME", each.name);
    if (each.code == language.code) option->ShowSection("CHOSEN");
  }
}

// The text with the server's name in its place.
std::string WithServer(std::string text, const std::string& name) {
  constexpr std::string_view kPlace = "{server}";
  const std::size_t at = text.find(kPlace);
  return at == std::string::npos ? text : text.replace(at, kPlace.size(), name);
}

void FillServed(const LinkDocument& document, ctemplate::TemplateDictionary& page) {
  page.ShowSection("SERVED");
  page.ShowSection("PROTECT");
  page.SetValue("PROTECT_TYPE", document.entry.get_protect_type_str());
  page.SetValue("LINK", document.entry.get_hash());
  switch (document.entry.get_protect_type()) {
    case Entry::ProtectType::kNone:
      break;
    case Entry::ProtectType::kPassword:
      page.ShowSection("PASSWORD");
      break;
    case Entry::ProtectType::kUser:
      page.ShowSection("USER");
      page.SetValue("asks_account",
                    WithServer(document.language->Text("asks_account"), document.server_name));
      break;
  }
  if (document.tags.empty()) page.ShowSection("BARE");
  if (document.leads_on) page.ShowSection("LEADS_ON");
  if (document.unsafe_redirect) page.ShowSection("UNSAFE_REDIRECT");
}

}  // namespace

int StatusOf(LinkState state) {
  const Ending* ending = EndingOf(state);
  return ending != nullptr ? ending->status : 200;
}

std::optional<std::string> Expand(const LinkDocument& document) {
  const Ending* ending = EndingOf(document.state);
  ctemplate::TemplateDictionary page("link page");
  FillLanguage(*document.language, page);
  page.SetValue("TITLE",
                ending != nullptr ? document.language->Text(ending->title) : document.title);
  page.SetValue("SESSION_SCRIPT", SessionScript(document, ending));
  page.SetValue("TAGS", document.tags);
  page.SetValue("OPENS", document.opens);
  page.SetIntValue("OPENS_IN", static_cast<long>(document.opens_in));
  if (ending != nullptr) {
    page.SetValue("STATE", "ended");
    page.ShowSection(ending->section);
  } else {
    page.SetValue("STATE", document.state == LinkState::kOpen ? "open" : "login");
    FillServed(document, page);
  }
  std::string html;
  if (ctemplate::ExpandTemplate(kTemplate, ctemplate::STRIP_BLANK_LINES, &page, &html)) return html;
  syslog(LOG_ERR, "link page: the template %s can't be read", kTemplate);
  return std::nullopt;
}

}  // namespace VELT::host
