// What the commands share: their options, and how one fails.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace VELT::tools {

// The options of every command, read from the command line and the host's option file.
struct HostOptions {
  std::string config;  // the file; empty: none was given
  std::string database;
  std::string socket;
  std::string registry;
  std::string user;
  std::string group;
  std::string external_url;
};

// The command failed; the text is for the administrator.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Each command returns its output, as --json prints it. It throws Failure, a soci::soci_error or
// another std::exception. With a member "success" that is false the program prints the output and
// then fails.

Json::Value Check(const HostOptions& options);

// The link that a plugin is tried with.
struct PluginSample {
  std::string project = {};
  Json::Value app{Json::objectValue};
};
Json::Value CheckPlugin(const std::string& file, const PluginSample& sample);

struct LinkFilter {
  std::string owner;        // an account's name or number; empty: everybody's
  std::string project;      // empty: all
  std::string status;       // as in a link's JSON form; empty: all
  std::uint64_t limit = 0;  // 0: none
};
Json::Value List(const HostOptions& options, const LinkFilter& filter);
Json::Value Stats(const HostOptions& options);
Json::Value CollectGarbage(const HostOptions& options, const std::string& owner,
                           const std::string& project);

// An account's number. One that is gone can be named by its number only. Throws Failure.
long long UidOf(const std::string& owner);

// What links' addresses begin with: the option, or else the machine's name.
std::string SiteOf(const HostOptions& options);

// Parameters of the API's method `set`, as in a form. A link is named by its id or its beginning.
using LinkFields = std::map<std::string, std::string>;
Json::Value CreateLink(const HostOptions& options, const std::string& owner, LinkFields fields);
Json::Value ShowLink(const HostOptions& options, const std::string& id);
Json::Value EditLink(const HostOptions& options, const std::string& id, LinkFields fields);
Json::Value DeleteLink(const HostOptions& options, const std::string& id);

Json::Value Backup(const HostOptions& options, const std::string& file, bool force);
Json::Value Restore(const HostOptions& options, const std::string& file, bool force);

// Asks twice, at the terminal; without one the passwords are lines of standard input. `whose` completes
// "Password of". Throws Failure.
std::string AskPassword(const std::string& whose);

Json::Value AddOwner(const HostOptions& options, const std::string& name);
Json::Value ChangePassword(const HostOptions& options, const std::string& name);
Json::Value RemoveOwner(const HostOptions& options, const std::string& name);
Json::Value ListOwners(const HostOptions& options);

struct NewToken {
  std::string owner;
  std::string name;
  std::string scope = "read";
  std::vector<std::string> projects;  // empty: all
  std::string expire_at;              // as in a link's JSON form
};
Json::Value CreateToken(const HostOptions& options, const NewToken& token);
Json::Value ListTokens(const HostOptions& options, const std::string& owner);
Json::Value DeleteToken(const HostOptions& options, const std::string& owner, long long id);

struct NotifyOptions {
  std::string sendmail = "/usr/sbin/sendmail";
  std::string mail_from;          // the header's field; empty: the mail program's choice
  bool private_networks = false;  // whether webhooks may be in them
  std::int64_t wait = 120;        // seconds in which what happens makes one message
  std::string test;               // the account that gets a message to try with, and nobody another
};
// Without `test` until SIGTERM or SIGINT.
Json::Value Notify(const HostOptions& options, const NotifyOptions& how);

// `show_progress` draws a bar on standard error.
Json::Value Migrate(const std::string& from, const std::string& to, bool show_progress);

}  // namespace VELT::tools
