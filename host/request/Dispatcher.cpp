#include "host/request/Dispatcher.h"

#include <syslog.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "host/Limits.h"
#include "host/page/Language.h"
#include "host/request/Access.h"
#include "host/request/Address.h"
#include "host/request/Answer.h"
#include "host/request/Caller.h"
#include "host/request/PageRoute.h"
#include "host/request/RequestReader.h"
#include "host/request/Site.h"
#include "host/watch/Statistics.h"
#include "veltsharing/Keys.h"
#include "veltsharing/Owners.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/View.h"
#include "veltsys/Text.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/BrowserName.h"
#include "veltwebapi/ErrorCodes.h"
#include "veltwebapi/LinksChanged.h"
#include "veltwebapi/ResponseState.h"

namespace VELT::host {
namespace {

// What APIRequest::GetHeader knows, and the variables that have it.
constexpr std::pair<const char*, const char*> kPassedHeaders[] = {
    {"If-Match", "HTTP_IF_MATCH"},
    {"If-None-Match", "HTTP_IF_NONE_MATCH"},
    {"If-Modified-Since", "HTTP_IF_MODIFIED_SINCE"},
    {"If-Unmodified-Since", "HTTP_IF_UNMODIFIED_SINCE"},
    {"If-Range", "HTTP_IF_RANGE"},
    {"Range", "HTTP_RANGE"},
};

constexpr const char* kBadHost = "malformed Host header";

std::string TextOf(const Parameters& parameters, const char* name) {
  const auto found = parameters.find(name);
  if (found == parameters.end()) return {};
  const RawParameter& raw = found->second;
  if (!raw.typed) return raw.text;
  return raw.json.isString() ? raw.json.asString() : std::string();
}

// -1, which no API has, for anything but an integer.
int VersionOf(const Parameters& parameters) {
  const auto found = parameters.find("version");
  if (found == parameters.end()) return -1;
  const RawParameter& raw = found->second;
  if (raw.typed) return raw.json.isInt() ? raw.json.asInt() : -1;
  int version = -1;
  const char* end = raw.text.data() + raw.text.size();
  const auto [stop, error] = std::from_chars(raw.text.data(), end, version);
  return error == std::errc() && stop == end ? version : -1;
}

// False when `work` throws. The exception's text may hold parameters of the request, such as a
// password, so it is not logged.
template <typename Work>
bool ReturnsNormally(const std::string& name, Work work) {
  try {
    work();
    return true;
  } catch (const std::exception&) {
    syslog(LOG_ERR, "%s: an exception left the handler", name.c_str());
  } catch (...) {
    syslog(LOG_ERR, "%s: an exception that is no std::exception left the handler", name.c_str());
  }
  return false;
}

void LogDropped(const std::string& name, const std::optional<std::string>& printed) {
  if (!printed.has_value()) {
    syslog(LOG_ERR, "%s: too much was printed", name.c_str());
  } else if (!printed->empty()) {
    syslog(LOG_WARNING, "%s: %zu printed bytes were dropped", name.c_str(), printed->size());
  }
}

// The answer that the handler has set in `state` or printed.
std::string AnswerOf(ResponseState& state, const std::string& label, bool returned,
                     std::optional<std::string> printed, bool secure) {
  if (returned && !state.output_enabled && printed.has_value() && !printed->empty()) {
    return HeaderLines(state, secure, *printed) + *printed;
  }
  LogDropped(label, printed);
  if (!returned || !state.output_enabled || state.outcome == ResponseState::Outcome::kNone) {
    // Cookies stay: if a login fails after it has made a session, the visitor still needs its id.
    state.outcome = ResponseState::Outcome::kError;
    state.error_code = kErrorUnexpected;
    state.body = MessageOf(kErrorUnexpected);
  }
  return JsonAnswer(state, secure);
}

// Whether the browser uses HTTPS, either to us or to a proxy that passes the external host on.
// Otherwise cookies must not be Secure: over plain HTTP the browser would drop them.
bool IsSecure(const WebRequest& request, const std::string& base_url) {
  return request.IsHttps() || base_url == "https://" + request.Variable("HTTP_HOST");
}

Dispatcher::Outcome Refusal(ErrorCode code, const std::string& detail,
                            const char* status = "200 OK", std::int64_t retry_after = 0) {
  Dispatcher::Outcome outcome(ErrorAnswer(code, detail, status, retry_after));
  outcome.code = code;
  return outcome;
}

// Why the request may not call the method, whoever makes it; in the order in which it is told.
std::optional<Dispatcher::Outcome> JudgeAddress(const WebRequest& request, Address::Kind door,
                                                const Method& method,
                                                const RequestContext& context) {
  if (method.post_only && request.Variable("REQUEST_METHOD") != "POST") {
    return Refusal(kErrorNotAllowed, "this method needs POST");
  }
  if (IsFromOtherSite(request, context.base_url)) {
    return Refusal(kErrorNotAllowed, "another site's page may not call this method");
  }
  if (AsksForAnotherLink(context)) {
    return Refusal(kErrorNotAllowed, "only this address's own link can be asked about");
  }
  // The web server passes on what comes from this address as fast as its client reads.
  if (context.is_sharing && (door == Address::Kind::kStream) != (method.pool == Pool::kStream)) {
    return Refusal(kErrorNotAllowed,
                   "what is sent in pieces is called at the link's /stream, and nothing else");
  }
  if (method.pool == Pool::kUpload)
    return Refusal(kErrorNotAllowed, "this method is called by PUT");
  return std::nullopt;
}

// Why its caller may not call the method, or not with this body.
std::optional<Dispatcher::Outcome> JudgeCaller(const WebRequest& request, const Method& method,
                                               const RequestContext& context,
                                               bool signs_owners_in) {
  if (!MayCall(method, context, signs_owners_in)) {
    // No WWW-Authenticate: it would open the browser's own dialogue.
    const bool signed_out = !context.is_sharing && context.owner.account.empty();
    return Refusal(kErrorNotAllowed, "not allowed", signed_out ? "401 Unauthorized" : "200 OK");
  }
  const std::string beyond = BeyondToken(method, context);
  if (!beyond.empty()) return Refusal(kErrorNotAllowed, beyond);
  if (HasRawBody(request) && request.body.size() > method.raw_body) {
    return Refusal(kErrorMalformed, method.raw_body == 0
                                        ? "request body is neither a form nor JSON"
                                        : "request body is larger than the method takes");
  }
  return std::nullopt;
}

// The pool whose workers run this call.
Pool PoolOf(const Method& method, APIRequest& request) {
  if (method.pool_when.empty()) return method.pool;
  const Json::Value value = request.GetParam(method.pool_when, false);
  const bool is_set = value.isConvertibleTo(Json::booleanValue) && value.asBool();
  return is_set ? method.pool : Pool::kFront;
}

// What the link's owner may want to know of the call. Of what is refused, a login alone is.
std::vector<sharing::LinkEvent> EventsOf(const APIRequest& request, const ResponseState& state,
                                         sharing::View::LoginOutcome login) {
  std::vector<sharing::LinkEvent> events;
  const auto add = [&](const std::string& kind, const std::string& file, const char* result) {
    const APIClient& client = request.GetClient();
    events.push_back({request.GetSharingID(), 0, kind, file, result, client.address,
                      BrowserName(client.program)});
  };
  using Login = sharing::View::LoginOutcome;
  if (login == Login::kVisit) add("visit", "", "ok");
  if (login == Login::kRefused) add("login", "", "refused");
  if (login == Login::kBraked) add("login", "", "braked");
  if (!state.event_kind.empty() && state.outcome != ResponseState::Outcome::kError) {
    add(state.event_kind, state.event_file, "ok");
  }
  return events;
}

}  // namespace

Dispatcher::Dispatcher(const Options& options, const Registry& registry, OutputCapture& output,
                       Pool pool)
    : options_(options),
      registry_(registry),
      output_(output),
      pool_(pool),
      page_(FindPluginsIn(registry), options.server_name),
      told_of_links_(registry.Symbols("LinksChanged")) {}

void Dispatcher::TellOfLinks(const char* sharing_id) const {
  // All links, or an application would take those that one owner's token does not open for removed.
  sharing::View view{sharing::View::Of::kOwner};
  const sharing::Viewing viewing(view);
  for (void* function : told_of_links_) {
    reinterpret_cast<LinksChangedFunc>(function)(sharing_id);
  }
}

struct Dispatcher::Call {
  const Method& method;
  std::string label;
  bool secure;
  bool judged;
  bool head_only;
  const Sink& sink;
  RequestNote& note;
};

Dispatcher::Outcome Dispatcher::Answer(const WebRequest& request, const Sink& sink,
                                       RequestNote& note) {
  const Address address = AddressOf(request);
  note.SetLink(address.link);
  switch (address.kind) {
    case Address::Kind::kOwner:
    case Address::Kind::kVisitor:
    case Address::Kind::kStream:
      return AnswerApi(request, address, sink, note);
    case Address::Kind::kFile:
      return AnswerPut(request, address, sink, note);
    case Address::Kind::kPage: {
      note.method = Statistics::kPage;
      const std::string verb = request.Variable("REQUEST_METHOD");
      if (verb != "GET" && verb != "HEAD") {
        return PlainAnswer("405 Method Not Allowed", "This address is for reading.");
      }
      sharing::View view = sharing::VisitorView(request.Variable("REMOTE_ADDR"));
      const sharing::Viewing viewing(view);
      output_.Begin();
      std::string answer = AnswerPage(page_, request, address.link);
      LogDropped("link page", output_.End());
      return answer;
    }
    case Address::Kind::kNone:
      break;
  }
  return PlainAnswer("404 Not Found", "There is nothing at this address.");
}

Dispatcher::Outcome Dispatcher::AnswerApi(const WebRequest& request, const Address& address,
                                          const Sink& sink, RequestNote& note) {
  const bool is_sharing = address.kind != Address::Kind::kOwner;
  if (is_sharing && request.body.size() > kLargestVisitorBody && !HasRawBody(request)) {
    return Refusal(kErrorMalformed, "request body is larger than 64 KiB");
  }
  Parameters parameters;
  const std::string error =
      ReadParameters(request, parameters, is_sharing ? RequestContext::kVisitorLevels : 64);
  if (!error.empty()) return Refusal(kErrorMalformed, error);
  auto context = ContextOf(request, address);
  if (!context) return Refusal(kErrorMalformed, kBadHost);
  context->parameters = std::move(parameters);
  return AnswerMethod(request, address, std::move(context), sink, note);
}

// What programs send whole by PUT, which want an answer in plain text.
Dispatcher::Outcome Dispatcher::AnswerPut(const WebRequest& request, const Address& address,
                                          const Sink& sink, RequestNote& note) {
  if (request.Variable("REQUEST_METHOD") != "PUT") {
    return PlainAnswer("405 Method Not Allowed", "Files are sent here by PUT.", "Allow: PUT\r\n");
  }
  if (address.rest.empty() || address.rest.find('/') != std::string::npos ||
      !IsCleanText(address.rest)) {
    return PlainAnswer("400 Bad Request",
                       "The address must end with the file's name, in UTF-8 and without slashes.");
  }
  auto context = ContextOf(request, address);
  if (!context) return PlainAnswer("400 Bad Request", kBadHost);
  if (IsFromOtherSite(request, context->base_url)) {
    return PlainAnswer("403 Forbidden", "Another site's page may not send files here.");
  }
  const Method* method = registry_.FindPut(context->visit.link.get_project_name());
  if (method == nullptr) {
    if (context->visit.link.get_id() == 0 && !sharing::db::SharingDB::Instance()->IsGood()) {
      return PlainAnswer("503 Service Unavailable", "Files can't be taken now; try again later.");
    }
    return PlainAnswer("404 Not Found", "There is no link here that takes files.");
  }
  note.method = method->row;
  context->parameters["name"] = {false, {}, address.rest};
  context->body_length = request.AnnouncedLength();
  context->read_body = request.read_body;
  context->credentials = BasicCredentials(request);
  const Call call{*method, "PUT", context->client.secure, false, false, sink, note};
  Outcome outcome = CallMethod(call, std::move(context));
  if (outcome.code != 0) {
    outcome.answer = PlainAnswer("500 Internal Server Error", "The file could not be taken.");
  }
  return outcome;
}

// Null when the Host header is malformed.
std::unique_ptr<RequestContext> Dispatcher::ContextOf(const WebRequest& request,
                                                      const Address& address) const {
  auto context = std::make_unique<RequestContext>();
  context->is_sharing = address.kind != Address::Kind::kOwner;
  context->base_url = BaseURL(request, options_.external_url);
  if (context->base_url.empty()) return nullptr;
  context->client = {request.Variable("REMOTE_ADDR"), request.Variable("HTTP_USER_AGENT"),
                     IsSecure(request, context->base_url)};
  context->server_name = options_.server_name;
  context->cookies = ReadCookies(request.Variable("HTTP_COOKIE"));
  context->is_head = request.Variable("REQUEST_METHOD") == "HEAD";
  for (const auto& [name, variable] : kPassedHeaders) {
    const std::string value = request.Variable(variable);
    if (!value.empty()) context->headers[name] = value;
  }
  const auto language = context->cookies.find(kLanguageCookie);
  const bool is_chosen = language != context->cookies.end() && IsUILanguage(language->second);
  context->language =
      is_chosen ? language->second : UILanguage(request.Variable("HTTP_ACCEPT_LANGUAGE"));
  if (context->is_sharing) {
    context->sharing_id = address.link;
    const auto sid = context->cookies.find(sharing::SZK_SHARING_SID);
    if (sid != context->cookies.end()) context->sharing_sid = sid->second;
    context->view = sharing::VisitorView(context->client.address);
    const sharing::Viewing viewing(context->view);
    context->visit = sharing::FindVisit(context->sharing_id, context->sharing_sid);
  }
  return context;
}

Dispatcher::Outcome Dispatcher::AnswerMethod(const WebRequest& request, const Address& address,
                                             std::unique_ptr<RequestContext> context,
                                             const Sink& sink, RequestNote& note) {
  const std::string api = TextOf(context->parameters, "api");
  const std::string name = TextOf(context->parameters, "method");
  const Method* method = nullptr;
  const auto unknown = registry_.Find(api, VersionOf(context->parameters), name, &method);
  if (unknown) return Refusal(*unknown, MessageOf(*unknown));
  note.method = method->row;
  if (!request.judged) {
    if (auto refusal = JudgeAddress(request, address.kind, *method, *context)) return *refusal;
  }
  if (!context->is_sharing) {
    const Caller caller = IdentifyCaller(request, options_, pool_, *context);
    if (caller.kind == Caller::Kind::kUnjudged) {
      return {Pool::kLogin, VisitorParty(context->client.address)};
    }
    if (caller.kind == Caller::Kind::kBraked) {
      return Refusal(kErrorNotAllowed, "too many attempts have failed", "429 Too Many Requests",
                     caller.wait);
    }
    if (caller.kind == Caller::Kind::kUnknown) {
      return Refusal(kErrorUnexpected, "the caller can't be judged now", "503 Service Unavailable");
    }
    if (caller.kind == Caller::Kind::kOwner) {
      context->view = {sharing::View::Of::kOwner, {}, context->owner.projects};
    }
  }
  if (!request.judged) {
    auto refusal = JudgeCaller(request, *method, *context, !options_.web_server_names_owners);
    if (refusal) return *refusal;
  }
  if (HasRawBody(request)) context->raw_body = request.body;
  const bool is_head = context->is_head;
  const Call call{*method, api + " " + name, context->client.secure, request.judged, is_head, sink,
                  note};
  return CallMethod(call, std::move(context));
}

Dispatcher::Outcome Dispatcher::CallMethod(const Call& call,
                                           std::unique_ptr<RequestContext> context) {
  const sharing::owners::Owner owner = context->owner;
  const Party party = context->login_uid != RequestContext::kNobody
                          ? OwnerParty(context->login_uid)
                          : VisitorParty(context->client.address);
  const bool may_change = !context->is_sharing && call.method.post_only;
  const std::string link = TextOf(context->parameters, sharing::SZK_SHARING_ID);
  const std::string sid = context->visit.use_due ? context->sharing_sid : "";
  sharing::View& view = context->view;
  APIRequest api_request(std::move(context));
  APIResponse api_response;
  const sharing::Viewing viewing(view);
  ResponseState& state = api_response.state();
  bool streamed = false;
  if (pool_ == Pool::kStream) {
    state.sink = [&](std::string_view piece) {
      if (!std::exchange(streamed, true)) {
        call.note.status = StatusOf(piece);
        if (!call.sink(HeaderLines(state, call.secure, piece))) return false;
      }
      // The first piece has the whole header.
      if (call.head_only) piece = piece.substr(0, piece.find("\r\n\r\n") + 4);
      return call.sink(piece) && !call.head_only;
    };
  }
  output_.Begin();
  Pool pool = pool_;
  const bool returned = ReturnsNormally(call.label, [&] {
    // The front's worker runs the check, so that a bad request is refused at once and does not wait
    // for a worker of its pool.
    if (!call.judged && !call.method.check(&api_request, &api_response)) return;
    const Pool own = PoolOf(call.method, api_request);
    // A worker of the pool "login" that had to judge the caller first goes on with a short call.
    if (own != Pool::kFront) pool = own;
    if (pool == pool_) call.method.handler(&api_request, &api_response);
  });
  std::optional<std::string> printed = output_.End();
  state.retry_after = std::max(state.retry_after, view.login_wait);
  if (pool != pool_) {
    Outcome outcome(pool, party);
    outcome.judged = true;
    if (owner.how == sharing::owners::Owner::How::kBasic) outcome.judged_owner = owner.account;
    return outcome;
  }
  Outcome outcome =
      streamed ? Outcome(std::string())
               : Outcome(AnswerOf(state, call.label, returned, std::move(printed), call.secure));
  outcome.broken_off = streamed && (!returned || state.broken_off);
  if (state.outcome == ResponseState::Outcome::kError) outcome.code = state.error_code;
  outcome.afterwards = std::move(state.afterwards);
  if (api_request.IsSharing()) outcome.events = EventsOf(api_request, state, view.login);
  const bool changed = may_change && state.outcome == ResponseState::Outcome::kSuccess;
  const bool visited = !sid.empty() && outcome.code == 0;
  if (changed || owner.use_due || visited) {
    outcome.at_once = [this, owner, link, sid, changed, visited] {
      if (owner.use_due) sharing::owners::NoteUse(owner);
      if (visited) sharing::NoteUse(sid);
      if (changed) TellOfLinks(link.empty() ? nullptr : link.c_str());
    };
  }
  return outcome;
}

}  // namespace VELT::host
