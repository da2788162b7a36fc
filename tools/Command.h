// What the commands share: their options, and how one fails.
#pragma once

#include <json/value.h>

#include <cstdint>
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

Json::Value Backup(const HostOptions& options, const std::string& file, bool force);
Json::Value Restore(const HostOptions& options, const std::string& file, bool force);

// Passwords are asked for at the terminal; without one they are lines of standard input.
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

// `show_progress` draws a bar on standard error.
Json::Value Migrate(const std::string& from, const std::string& to, bool show_progress);

}  // namespace VELT::tools
