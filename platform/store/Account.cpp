#include "platform/store/Account.h"

#include <security/pam_appl.h>
#include <syslog.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "veltsys/Accounts.h"
#include "veltsys/Counters.h"
#include "veltsys/ForkedCall.h"

namespace VELT::sharing {
namespace {

constexpr const char* kService = "velt-sharing";

// pam_conv(3): answers every hidden prompt with the password and nothing else.
int Answer(int count, const pam_message** messages, pam_response** responses, void* password) {
  if (count <= 0 || count > PAM_MAX_NUM_MSG) return PAM_CONV_ERR;
  const auto size = static_cast<std::size_t>(count);
  // NOLINTNEXTLINE(cppcoreguidelines-no-malloc): PAM releases the answers with free(3).
  auto* answers = static_cast<pam_response*>(std::calloc(size, sizeof(pam_response)));
  if (answers == nullptr) return PAM_BUF_ERR;
  for (int index = 0; index < count; ++index) {
    if (messages[index]->msg_style != PAM_PROMPT_ECHO_OFF) continue;
    answers[index].resp = strdup(static_cast<const std::string*>(password)->c_str());
  }
  *responses = answers;
  return PAM_SUCCESS;
}

// Switches PAM's delay after a wrong password off. The store limits guesses, and a delay would make
// the process's other visitors wait.
void NoDelay(int /*status*/, unsigned int /*microseconds*/, void* /*password*/) {}

int Authenticate(pam_handle_t* handle, const std::string& address, std::string& name) {
  int status = pam_set_item(handle, PAM_FAIL_DELAY, reinterpret_cast<const void*>(NoDelay));
  if (status == PAM_SUCCESS) status = pam_set_item(handle, PAM_RHOST, address.c_str());
  if (status == PAM_SUCCESS) status = pam_authenticate(handle, PAM_SILENT);
  if (status == PAM_SUCCESS) status = pam_acct_mgmt(handle, PAM_SILENT);
  const void* user = nullptr;
  if (status == PAM_SUCCESS) status = pam_get_item(handle, PAM_USER, &user);
  if (user != nullptr) name = static_cast<const char*>(user);
  return status;
}

struct PamResult {
  int status = PAM_SYSTEM_ERR;
  std::string name;  // the account's name as PAM has it, which a module may have changed
};

PamResult AskPam(const std::string& name, const std::string& password, const std::string& address) {
  std::string secret = password;
  const pam_conv conversation{Answer, &secret};
  pam_handle_t* handle = nullptr;
  PamResult result{pam_start(kService, name.c_str(), &conversation, &handle), name};
  if (result.status != PAM_SUCCESS) return result;
  result.status = Authenticate(handle, address, result.name);
  pam_end(handle, result.status);
  return result;
}

// The text in which the process that asks PAM returns its result.
std::string Serialized(const PamResult& result) {
  std::string text(sizeof result.status, '\0');
  std::memcpy(text.data(), &result.status, sizeof result.status);
  return text + result.name;
}

PamResult Deserialized(const std::string& text) {
  PamResult result;
  if (text.size() < sizeof result.status) return result;
  std::memcpy(&result.status, text.data(), sizeof result.status);
  result.name = text.substr(sizeof result.status);
  return result;
}

AccountCheck ToAccountCheck(int status) {
  switch (status) {
    case PAM_SUCCESS:
      return AccountCheck::kRight;
    case PAM_AUTH_ERR:
    case PAM_USER_UNKNOWN:
    case PAM_MAXTRIES:
    case PAM_PERM_DENIED:
    case PAM_ACCT_EXPIRED:
    case PAM_AUTHTOK_EXPIRED:
    case PAM_NEW_AUTHTOK_REQD:
    case PAM_CRED_EXPIRED:
      return AccountCheck::kWrong;
    default:
      syslog(LOG_ERR, "sharing store: PAM service %s failed: %s", kService,
             pam_strerror(nullptr, status));
      return AccountCheck::kFailed;
  }
}

// Some of PAM's modules log the name without escaping it.
bool IsLoggable(const std::string& name) {
  return !name.empty() && name.size() <= 256 && name.front() != '-' && name.front() != '+' &&
         std::none_of(name.begin(), name.end(),
                      [](unsigned char c) { return c < ' ' || c == 0x7F; });
}

}  // namespace

bool OwnerExists(long long uid) {
  return accounts::FindUserCached(static_cast<uid_t>(uid)).has_value();
}

AccountCheck CheckAccount(std::string& name, const std::string& password,
                          const std::string& address, std::chrono::milliseconds limit) {
  if (!IsLoggable(name)) return AccountCheck::kWrong;
  Count(Event::kPamRun);
  std::string reply;
  const char* fault = nullptr;
  switch (CallInFork([&] { return Serialized(AskPam(name, password, address)); }, limit, reply)) {
    case ForkedCall::kReturned: {
      const PamResult result = Deserialized(reply);
      if (result.status == PAM_SUCCESS) name = result.name;
      return ToAccountCheck(result.status);
    }
    case ForkedCall::kNotStarted:
      fault = "could not be started";
      break;
    case ForkedCall::kTooLate:
      Count(Event::kPamTimeout);
      fault = "took too long and was ended";
      break;
    case ForkedCall::kDied:
      fault = "crashed during a login";
      break;
  }
  syslog(LOG_ERR, "sharing store: PAM service %s %s", kService, fault);
  return AccountCheck::kFailed;
}

}  // namespace VELT::sharing
