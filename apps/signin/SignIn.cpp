// Signing in and out, and who is signed in.
#include <string>

#include "apps/signin/Methods.h"
#include "declared/VELT.Core.SignIn.h"
#include "veltsharing/Owners.h"
#include "veltwebapi/BrowserName.h"

namespace VELT::signin {
namespace {

using sharing::owners::Outcome;
using sharing::owners::Owner;

constexpr long kBrowserLife = 365L * 24 * 60 * 60;  // seconds

const char* NameOf(Owner::How how) {
  switch (how) {
    case Owner::How::kNobody:
      return "";
    case Owner::How::kSession:
      return "session";
    case Owner::How::kToken:
      return "token";
    case Owner::How::kBasic:
      return "basic";
    case Owner::How::kWebServer:
      return "web-server";
  }
  return "";
}

sharing::owners::Attempt AttemptOf(const APIRequest& request) {
  using Method = params::SignInLogin;
  const APIClient& client = request.GetClient();
  sharing::owners::Attempt attempt;
  attempt.account = params::Read(request, Method::kAccount);
  attempt.answers = {params::Read(request, Method::kPassword)};
  for (const Json::Value& answer : params::Read(request, Method::kAnswers)) {
    attempt.answers.push_back(answer.asString());
  }
  attempt.address = client.address;
  attempt.known_browser = request.GetCookie(sharing::owners::BrowserCookie(client.secure), "");
  attempt.old_session = request.GetCookie(sharing::owners::SessionCookie(client.secure), "");
  attempt.browser = BrowserName(client.program);
  attempt.stay = params::Read(request, Method::kStay);
  return attempt;
}

void Refuse(const Outcome& outcome, APIResponse* response) {
  Json::Value detail;
  switch (outcome.kind) {
    case Outcome::Kind::kSignedIn:
    case Outcome::Kind::kFailed:
      return response->SetError(kNotPossible, "signing in is not possible now");
    case Outcome::Kind::kWrong:
      return response->SetError(kWrong, "wrong account or password");
    case Outcome::Kind::kQuestion:
      detail["question"] = outcome.question;
      detail["hidden"] = outcome.hidden;
      return response->SetError(kQuestion, detail);
    case Outcome::Kind::kBraked:
      detail["seconds"] = Json::Int64{outcome.wait};
      response->SetRetryAfter(outcome.wait);
      return response->SetError(kBraked, detail);
  }
}

}  // namespace

void Login(APIRequest* request, APIResponse* response) {
  const sharing::owners::Attempt attempt = AttemptOf(*request);
  const Outcome outcome = SignIn(attempt);
  if (outcome.kind != Outcome::Kind::kSignedIn) return Refuse(outcome, response);
  const bool secure = request->GetClient().secure;
  const long life = attempt.stay ? static_cast<long>(sharing::owners::kStayingLife) : 0;
  response->AddCookie("/", sharing::owners::SessionCookie(secure), outcome.session, life, "",
                      secure, true);
  response->AddCookie("/", sharing::owners::BrowserCookie(secure), outcome.known_browser,
                      kBrowserLife, "", secure, true);
  Json::Value data;
  data["account"] = outcome.account;
  data["failed_attempts"] = Json::Int64{outcome.failures};
  response->SetSuccess(data);
}

void Logout(APIRequest* request, APIResponse* response) {
  const std::string cookie = sharing::owners::SessionCookie(request->GetClient().secure);
  if (!sharing::owners::SignOut(request->GetCookie(cookie, ""))) {
    return response->SetError(kErrorStore, "db error");
  }
  // -1: the browser is to forget it.
  response->AddCookie("/", cookie, "", -1, "", request->GetClient().secure, true);
  response->SetSuccess(Json::Value(Json::objectValue));
}

void Get(APIRequest* request, APIResponse* response) {
  const Owner& owner = request->GetOwner();
  Json::Value data;
  data["account"] = owner.account;
  data["administrator"] = request->IsAdmin();
  data["how"] = NameOf(owner.how);
  data["expire_at"] = sharing::owners::TimeText(owner.expire_at);
  data["failed_attempts"] = Json::Int64{owner.failures};
  data["server"] = request->GetServerName();
  response->SetSuccess(data);
}

}  // namespace VELT::signin
