// notify: tells owners what happened to their links.
#include <json/writer.h>
#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "host/process/Privileges.h"
#include "tools/Command.h"
#include "tools/Database.h"
#include "tools/Output.h"
#include "tools/notify/Mail.h"
#include "tools/notify/NoticeText.h"
#include "tools/notify/Webhook.h"
#include "veltsharing/Notices.h"
#include "veltsys/Accounts.h"

namespace VELT::tools {
namespace {

namespace notify = sharing::notify;

// Seconds between two looks at the queue, and when the database can't be used, which each look
// writes to the log.
constexpr int kPause = 5;
constexpr int kFailedPause = 60;
constexpr int kLookForEnds = 60;  // seconds

std::string BodyOf(const notify::Message& message, const NoticeText& text) {
  Json::Value body;
  body["type"] = "velt.sharing.notices";
  body["id"] = message.id;
  body["timestamp"] = Json::Int64{std::time(nullptr)};
  body["account"] = message.owner.account;
  body["title"] = text.title;
  body["text"] = text.text;
  body["notices"] = text.data;
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, body);
}

// The host's name in what links' addresses begin with.
std::string DomainOf(const std::string& site) {
  const std::size_t scheme = site.find("://");
  const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
  return site.substr(begin, site.find_first_of(":/", begin) - begin);
}

// Returns why it was not sent, or "".
std::string Send(const HostOptions& options, const NotifyOptions& how,
                 const notify::Message& message) {
  const auto user = accounts::FindUser(message.owner.uid);
  if (!user || user->name != message.owner.account) return "there is no such account";
  const std::string site = SiteOf(options);
  const NoticeText text = Compose(message, site);
  if (message.is_mail) {
    return SendMail(how.sendmail, {message.id, message.address, how.mail_from, DomainOf(site),
                                   text.title, text.text});
  }
  return Post(
      {message.address, message.id, message.secret, BodyOf(message, text), how.private_networks});
}

void Log(const notify::Message& message, const std::string& error) {
  const char* way = message.is_mail ? "mail" : "webhook";
  if (error.empty()) {
    syslog(LOG_INFO, "notify: %s of %zu notices to %s: sent, %s", way, message.notices.size(),
           message.owner.account.c_str(), message.id.c_str());
  } else {
    syslog(LOG_WARNING, "notify: %s to %s: %s, %s", way, message.owner.account.c_str(),
           Shown(error).c_str(), message.id.c_str());
  }
}

// Blocked, they only end a pause, so that no message is cut off.
class Stop {
 public:
  Stop() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGTERM);
    sigaddset(&signals_, SIGINT);
    sigprocmask(SIG_BLOCK, &signals_, nullptr);
  }
  bool Within(int seconds) const {
    const timespec time{seconds, 0};
    return sigtimedwait(&signals_, nullptr, &time) > 0;
  }

 private:
  sigset_t signals_{};
};

Json::Value TestOf(const HostOptions& options, const NotifyOptions& how) {
  std::vector<notify::Message> messages;
  if (!notify::TestMessages(static_cast<unsigned int>(UidOf(how.test)), messages)) {
    throw Failure("the database can't be read");
  }
  if (messages.empty()) throw Failure(how.test + " has no confirmed address");
  Json::Value result;
  result["success"] = true;
  result["messages"] = Json::Value(Json::arrayValue);
  for (const notify::Message& message : messages) {
    const std::string error = Send(options, how, message);
    Json::Value& row = result["messages"].append(Json::objectValue);
    row["way"] = message.is_mail ? "mail" : "webhook";
    row["id"] = message.id;
    row["error"] = error;
    if (!error.empty()) result["success"] = false;
  }
  return result;
}

}  // namespace

Json::Value Notify(const HostOptions& options, const NotifyOptions& how) {
  // Nothing that comes from the web is read with root's rights, and mail is from the service's
  // account.
  if (geteuid() == 0) host::LowerForGood(host::FindIds(options.user, options.group));
  UseStore(options);
  if (!how.test.empty()) return TestOf(options, how);
  const Stop stop;
  std::chrono::steady_clock::time_point ends;
  for (int pause = 0; !stop.Within(pause);) {
    pause = kPause;
    if (std::chrono::steady_clock::now() >= ends) {
      ends = std::chrono::steady_clock::now() + std::chrono::seconds(kLookForEnds);
      if (!notify::NoticeEnds()) pause = kFailedPause;
    }
    std::optional<notify::Message> message;
    if (!notify::TakeMessage(how.wait, message)) {
      pause = kFailedPause;
    } else if (message) {
      const std::string error = Send(options, how, *message);
      Log(*message, error);
      notify::ReportMessage(*message, error);
      pause = 0;
    }
  }
  return Json::Value(Json::objectValue);
}

}  // namespace VELT::tools
