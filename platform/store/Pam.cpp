#include "platform/store/Pam.h"

#include <crypt.h>
#include <security/pam_appl.h>
#include <shadow.h>
#include <sys/prctl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/store/Secrets.h"
#include "veltsys/Counters.h"
#include "veltsys/ForkedCall.h"

namespace VELT::sharing {
namespace {

using Kind = PamRequest::Kind;
using Verdict = PamReply::Verdict;

const char* ServiceOf(Kind kind) { return kind == Kind::kVisitor ? "velt-sharing" : "velt-owner"; }

struct Conversation {
  const PamRequest& request;
  std::size_t next = 0;  // the answer to an owner's next question
  PamReply& reply;

  // Null when there is no answer.
  const std::string* AnswerTo(const pam_message& message) {
    const bool hidden = message.msg_style == PAM_PROMPT_ECHO_OFF;
    if (request.kind == Kind::kVisitor) return hidden ? &request.answers.front() : nullptr;
    if (!hidden && message.msg_style != PAM_PROMPT_ECHO_ON) return nullptr;
    if (next < request.answers.size()) return &request.answers[next++];
    if (reply.verdict != Verdict::kAsks) {
      reply.verdict = Verdict::kAsks;
      reply.question = message.msg;
      reply.hidden = hidden;
    }
    return nullptr;
  }
};

// pam_conv(3)
int Answer(int count, const pam_message** messages, pam_response** responses, void* data) {
  if (count <= 0 || count > PAM_MAX_NUM_MSG) return PAM_CONV_ERR;
  const auto size = static_cast<std::size_t>(count);
  // NOLINTNEXTLINE(cppcoreguidelines-no-malloc): PAM releases the answers with free(3).
  auto* answers = static_cast<pam_response*>(std::calloc(size, sizeof(pam_response)));
  if (answers == nullptr) return PAM_BUF_ERR;
  auto& conversation = *static_cast<Conversation*>(data);
  for (int index = 0; index < count; ++index) {
    const std::string* answer = conversation.AnswerTo(*messages[index]);
    if (answer != nullptr) answers[index].resp = strdup(answer->c_str());
  }
  *responses = answers;
  return conversation.reply.verdict == Verdict::kAsks ? PAM_CONV_ERR : PAM_SUCCESS;
}

// Switches PAM's delay after a wrong password off. The store limits guesses, and a delay would make
// the process's other callers wait.
void NoDelay(int /*status*/, unsigned int /*microseconds*/, void* /*data*/) {}

int Converse(pam_handle_t* handle, const PamRequest& request, std::string& name) {
  int status = pam_set_item(handle, PAM_FAIL_DELAY, reinterpret_cast<const void*>(NoDelay));
  if (status == PAM_SUCCESS) status = pam_set_item(handle, PAM_RHOST, request.address.c_str());
  if (status == PAM_SUCCESS && request.kind != Kind::kAccount) {
    status = pam_authenticate(handle, PAM_SILENT);
  }
  if (status == PAM_SUCCESS) status = pam_acct_mgmt(handle, PAM_SILENT);
  const void* user = nullptr;
  if (status == PAM_SUCCESS) status = pam_get_item(handle, PAM_USER, &user);
  if (user != nullptr) name = static_cast<const char*>(user);
  return status;
}

Verdict VerdictOf(int status) {
  switch (status) {
    case PAM_SUCCESS:
      return Verdict::kRight;
    case PAM_AUTH_ERR:
    case PAM_USER_UNKNOWN:
    case PAM_MAXTRIES:
    case PAM_PERM_DENIED:
    case PAM_ACCT_EXPIRED:
    case PAM_AUTHTOK_EXPIRED:
    case PAM_NEW_AUTHTOK_REQD:
    case PAM_CRED_EXPIRED:
      return Verdict::kWrong;
    default:
      return Verdict::kFailed;
  }
}

bool IsHash(const std::string& text) { return text.starts_with('$'); }

// The hashes of the passwords that owners sign in with and the system has not, a line NAME:HASH each,
// as pam_pwdfile reads it. `name` empty: those of all accounts.
std::vector<std::string> OwnersHashes(const std::string& name) {
  std::vector<std::string> hashes;
  std::ifstream file("/usr/velt/etc/owners");
  for (std::string row; std::getline(file, row);) {
    const std::size_t colon = row.find(':');
    if (colon == std::string::npos || (!name.empty() && row.substr(0, colon) != name)) continue;
    hashes.push_back(row.substr(colon + 1, row.find(':', colon + 1) - colon - 1));
  }
  return hashes;
}

// The hashes of the account's passwords, empty where there are none or the system does not show them.
std::string PasswordHash(const std::string& name) {
  const spwd* entry = getspnam(name.c_str());
  const auto owners = OwnersHashes(name);
  return (owners.empty() ? "" : owners.front()) +
         (entry != nullptr && entry->sp_pwdp != nullptr ? entry->sp_pwdp : "");
}

// What it takes to refuse a password of the account that the hash is of.
struct Effort {
  std::string setting;  // crypt(3)
  int times = 1;
};

// Of each account that can be signed in to.
std::vector<Effort> Efforts() {
  std::vector<Effort> efforts;
  for (const std::string& hash : OwnersHashes("")) efforts.push_back({hash});
  setspent();
  while (const spwd* entry = getspent()) {
    if (IsHash(entry->sp_pwdp)) efforts.push_back({entry->sp_pwdp, 2});  // as pam_unix does
  }
  endspent();
  return efforts;
}

// Hashes the password of nobody as it would be for an account that is always the same for a name, for
// the time that this takes.
void HashInVain(const std::string& name, const std::string& password) {
  const auto efforts = Efforts();
  crypt_data data{};
  Effort effort;
  if (!efforts.empty()) {
    const std::size_t place = std::hash<std::string>()(Digest(name + efforts.front().setting));
    effort = efforts[place % efforts.size()];
  } else if (crypt_gensalt_rn(nullptr, 0, nullptr, 0, data.output, sizeof data.output) != nullptr) {
    effort.setting = data.output;
  }
  while (effort.times-- > 0) crypt_r(password.c_str(), effort.setting.c_str(), &data);
}

// PAM's modules read the accounts' secrets. The worker has kept root as its saved id for that; a
// host that was not started as root asks with what it has.
bool TakeRoot(pid_t parent) {
  if (setresuid(0, 0, 0) != 0) return true;
  // The change of ids has cancelled both.
  return setresgid(0, 0, 0) == 0 && prctl(PR_SET_DUMPABLE, 0) == 0 &&
         prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent;
}

struct Result {
  int status = PAM_SYSTEM_ERR;  // pam(3)
  PamReply reply;
};

Result Ask(const PamRequest& request, pid_t parent) {
  Result result;
  if (request.kind != Kind::kVisitor && !TakeRoot(parent)) return result;
  auto& [status, reply] = result;
  Conversation data{request, 0, reply};
  const pam_conv conversation{Answer, &data};
  const char* service = ServiceOf(request.kind);
  reply.name = request.name;
  pam_handle_t* handle = nullptr;
  status = pam_start(service, request.name.c_str(), &conversation, &handle);
  if (status == PAM_SUCCESS) {
    status = Converse(handle, request, reply.name);
    pam_end(handle, status);
  }
  if (reply.verdict != Verdict::kAsks) reply.verdict = VerdictOf(status);
  if (request.kind == Kind::kVisitor) return result;
  const std::string hash = PasswordHash(reply.name);
  if (reply.verdict == Verdict::kWrong && !request.answers.empty() && !IsHash(hash)) {
    HashInVain(request.name, request.answers.front());
  }
  reply.credential = Digest(hash);
  return result;
}

// The text in which the process that asks PAM returns its result: a line of numbers, then texts, none
// of which holds a NUL.
std::string Serialized(const Result& result) {
  const auto& [status, reply] = result;
  std::ostringstream text;
  text << status << ' ' << static_cast<int>(reply.verdict) << ' ' << reply.hidden << '\n';
  for (const std::string& field : {reply.name, reply.question, reply.credential}) {
    text << field << '\0';
  }
  return text.str();
}

Result Deserialized(const std::string& text) {
  Result result;
  auto& [status, reply] = result;
  std::istringstream stream(text);
  int verdict = 0;
  if (!(stream >> status >> verdict >> reply.hidden) || stream.get() != '\n') return {};
  reply.verdict = static_cast<Verdict>(verdict);
  for (std::string* field : {&reply.name, &reply.question, &reply.credential}) {
    std::getline(stream, *field, '\0');
  }
  return result;
}

// Some of PAM's modules log the name without escaping it.
bool IsLoggable(const std::string& name) {
  return !name.empty() && name.size() <= 256 && name.front() != '-' && name.front() != '+' &&
         std::none_of(name.begin(), name.end(),
                      [](unsigned char c) { return c < ' ' || c == 0x7F; });
}

}  // namespace

PamReply AskPam(const PamRequest& request, std::chrono::milliseconds limit) {
  PamRequest checked = request;
  if (!IsLoggable(request.name)) {
    if (request.kind == Kind::kVisitor) return {Verdict::kWrong, {}, {}, {}, {}};
    checked.name = "?";  // nobody's name, so that it takes the time of an unknown one
  }
  Count(Event::kPamRun);
  const pid_t parent = getpid();
  std::string text;
  const char* fault = nullptr;
  switch (CallInFork([&] { return Serialized(Ask(checked, parent)); }, limit, text)) {
    case ForkedCall::kReturned: {
      const Result result = Deserialized(text);
      if (result.reply.verdict == Verdict::kFailed) {
        syslog(LOG_ERR, "sharing store: PAM service %s failed: %s", ServiceOf(request.kind),
               pam_strerror(nullptr, result.status));
      }
      return result.reply;
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
  syslog(LOG_ERR, "sharing store: PAM service %s %s", ServiceOf(request.kind), fault);
  return {};
}

}  // namespace VELT::sharing
