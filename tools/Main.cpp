// velt-sharing: manages the database of share links, owners and their tokens, and tells owners what
// happened.
#include <json/writer.h>
#include <syslog.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/store/sql/Soci.h"
#include "tools/Command.h"
#include "tools/Database.h"
#include "tools/Output.h"
#include "veltsys/JsonText.h"

namespace VELT::tools {
namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr const char* kCheckPlugin = "check-plugin";
constexpr const char* kConfig = "/usr/velt/etc/webapid.conf";  // the packaged one

struct CommandLine {
  HostOptions options;
  bool json = false;
  LinkFilter filter;
  bool show_address = false;
  std::string owner;
  std::string id;
  std::vector<std::string> fields;
  bool ask_password = false;
  bool force = false;
  std::string file;
  std::string project;
  std::string app = "{}";
  std::string from;
  std::string to;
  NewToken token;
  NotifyOptions notify;
  long long token_id = 0;

  // The chosen command, and the function that prints its result for people.
  std::function<Json::Value()> run;
  std::function<void(const Json::Value&)> print;
};

// These are options of the host, so its option file can be read; its other options are ignored.
void DescribeHostOptions(CLI::App& app, CommandLine& line) {
  app.set_config("--config", kConfig, "Option file of velt-webapid, which gives the other options");
  app.allow_config_extras(CLI::config_extras_mode::ignore_all);
  app.add_option("--database", line.options.database,
                 R"("sqlite3 PATH" or "postgresql CONNECTION")");
  app.add_option("--socket", line.options.socket, "Unix socket at which the service listens");
  app.add_option("--external-url", line.options.external_url, "What links' addresses begin with");
  app.add_option("--registry", line.options.registry, "Folder of the API modules' *.json files");
  app.add_option("--user", line.options.user, "Account with whose rights requests are served");
  app.add_option("--group", line.options.group, "Group instead of the account's primary one");
  app.add_flag("--json", line.json, "Print one JSON object")->configurable(false);
}

CLI::App* Add(CLI::App& app, CommandLine& line, const char* name, const char* text,
              std::function<Json::Value()> run, std::function<void(const Json::Value&)> print) {
  CLI::App* command = app.add_subcommand(name, text);
  command->fallthrough();
  command->configurable(false);
  command->callback([&line, run = std::move(run), print = std::move(print)] {
    line.run = run;
    line.print = print;
  });
  return command;
}

CLI::App* AddGroup(CLI::App& app, const char* name, const char* text) {
  CLI::App* group = app.add_subcommand(name, text);
  group->fallthrough();
  group->configurable(false);
  group->require_subcommand(1);
  return group;
}

void AddFilter(CLI::App* command, CommandLine& line) {
  command->add_option("--owner", line.filter.owner, "Only links of this account");
  command->add_option("--project", line.filter.project, "Only links of this project");
}

void AddShowAddress(CLI::App* command, CommandLine& line) {
  command->add_flag("--show-address,--full-ids", line.show_address,
                    "Show whole addresses, which open links, instead of the ids' beginning");
}

void DescribeList(CLI::App& app, CommandLine& line) {
  auto* list = Add(
      app, line, "list", "Lists links, the newest first",
      [&line] { return List(line.options, line.filter); },
      [&line](const Json::Value& result) { PrintList(result, line.show_address); });
  AddFilter(list, line);
  list->add_option("--status", line.filter.status, "Only links of this status")
      ->check(CLI::IsMember({"active", "disabled", "pending", "expired", "used_up"}));
  line.filter.limit = 1000;
  list->add_option("--limit", line.filter.limit, "At most this many; 0: all")
      ->capture_default_str();
  AddShowAddress(list, line);
}

// Parameters of the API. A password among them would be seen in the list of processes.
LinkFields FieldsOf(const CommandLine& line) {
  LinkFields fields;
  for (const std::string& field : line.fields) {
    const std::size_t end = field.find('=');
    const std::string name = field.substr(0, end);
    if (end == std::string::npos) throw Failure(field + ": NAME=VALUE is needed");
    if (name == "protect_password") throw Failure("--ask-password is needed for a password");
    fields[name] = field.substr(end + 1);
  }
  if (line.ask_password) {
    fields["protect_type"] = "password";
    fields["protect_password"] = AskPassword("the link");
  }
  return fields;
}

void DescribeLink(CLI::App& app, CommandLine& line) {
  CLI::App& group = *AddGroup(app, "link", "Makes, shows, changes and deletes links");
  const auto add = [&](const char* name, const char* text, std::function<Json::Value()> run) {
    return Add(group, line, name, text, std::move(run),
               [&line](const Json::Value& result) { PrintLink(result, line.show_address); });
  };
  const auto add_fields = [&line](CLI::App* command) {
    command->add_option("FIELD", line.fields,
                        "NAME=VALUE, a parameter of the API's method set; may be repeated");
    command->add_flag("--ask-password", line.ask_password, "Ask for a password that opens it");
  };
  const auto add_id = [&line](CLI::App* command) {
    command->add_option("ID", line.id, "The link's id, or its beginning")->required();
    return command;
  };
  auto* create = add("create", "Makes a link and shows its address", [&line] {
    line.show_address = true;
    LinkFields fields = FieldsOf(line);
    fields["project_name"] = line.project;
    return CreateLink(line.options, line.owner, std::move(fields));
  });
  create->add_option("PROJECT", line.project, "The application, such as files")->required();
  create->add_option("--owner", line.owner, "The account whose link it is")->required();
  add_fields(create);
  AddShowAddress(
      add_id(add("show", "Shows a link", [&line] { return ShowLink(line.options, line.id); })),
      line);
  add_fields(add_id(add("edit", "Changes the fields that are given",
                        [&line] { return EditLink(line.options, line.id, FieldsOf(line)); })));
  add_id(Add(
      group, line, "delete", "Deletes a link, and ends its visits",
      [&line] { return DeleteLink(line.options, line.id); },
      [](const Json::Value&) { std::printf("The link is deleted\n"); }));
  DescribeList(group, line);
}

void DescribeLinks(CLI::App& app, CommandLine& line) {
  DescribeList(app, line);
  DescribeLink(app, line);
  Add(
      app, line, "stats", "Counts links and visits, and shows the database's size",
      [&line] { return Stats(line.options); }, PrintStats);
  auto* collect = Add(
      app, line, "gc", "Removes expired and used up links that are marked for it",
      [&line] { return CollectGarbage(line.options, line.filter.owner, line.filter.project); },
      [](const Json::Value& result) {
        std::printf("%s links removed\n", result["removed"].asString().c_str());
      });
  AddFilter(collect, line);
}

Json::Value RunCheckPlugin(const CommandLine& line) {
  PluginSample sample{line.project};
  if (sample.project.empty()) sample.project = std::filesystem::path(line.file).stem();
  if (!ParseJsonText(line.app, sample.app) || !sample.app.isObject()) {
    throw Failure("--app is no JSON object");
  }
  return CheckPlugin(line.file, sample);
}

void DescribeChecks(CLI::App& app, CommandLine& line) {
  Add(
      app, line, "check", "Checks whether the service can run here, and says what to do if not",
      [&line] { return Check(line.options); }, PrintCheck);
  auto* plugin = Add(
      app, line, kCheckPlugin,
      "Checks whether the service can use a plugin library, and says what to do if not",
      [&line] { return RunCheckPlugin(line); }, PrintCheck);
  plugin->add_option("FILE", line.file)->required();
  plugin->add_option("--project", line.project, "Project of the link that it is tried with");
  plugin->add_option("--app", line.app, "That link's data for the application, a JSON object");
}

void DescribeCopies(CLI::App& app, CommandLine& line) {
  const auto add_file = [&line](CLI::App* command, const char* forced) {
    command->add_option("FILE", line.file)->required();
    command->add_flag("--force", line.force, forced);
  };
  add_file(Add(
               app, line, "backup", "Copies the SQLite database to FILE; the service may run",
               [&line] { return Backup(line.options, line.file, line.force); },
               [](const Json::Value& result) {
                 std::printf("%s links in %s\n", result["links"].asString().c_str(),
                             result["file"].asString().c_str());
               }),
           "Replace FILE");
  add_file(Add(
               app, line, "restore", "Makes the SQLite database a copy of the backup FILE",
               [&line] { return Restore(line.options, line.file, line.force); },
               [](const Json::Value& result) {
                 std::printf("%s links from %s\n", result["links"].asString().c_str(),
                             result["file"].asString().c_str());
               }),
           "Replace a database that holds something, is in use or damaged");
  auto* migrate = Add(
      app, line, "migrate", "Copies everything from one database into another, empty one",
      [&line] { return Migrate(line.from, line.to, !line.json && isatty(STDERR_FILENO) == 1); },
      PrintMigrate);
  migrate->add_option("FROM", line.from, R"("sqlite3 PATH" or "postgresql CONNECTION")")
      ->required();
  migrate->add_option("TO", line.to, "The same; missing tables are made")->required();
}

void DescribeOwners(CLI::App& app, CommandLine& line) {
  CLI::App& group = *AddGroup(app, "owner", "Manages owners without an account of the system");
  const auto add = [&](const char* name, const char* text,
                       Json::Value (*run)(const HostOptions&, const std::string&),
                       std::function<void(const Json::Value&)> print) {
    Add(
        group, line, name, text, [&line, run] { return run(line.options, line.filter.owner); },
        std::move(print))
        ->add_option("NAME", line.filter.owner)
        ->required();
  };
  add("add", "Adds an account that can sign in here and nowhere else, and asks for its password",
      AddOwner, [](const Json::Value& result) {
        std::printf("%s can sign in\n", result["name"].asCString());
      });
  add("password", "Asks for a password that the account signs in with; its sessions end",
      ChangePassword, [](const Json::Value&) { std::printf("The password is changed\n"); });
  add("remove", "Removes an account that was added here; nobody can open its links any more",
      RemoveOwner, [](const Json::Value& result) {
        std::printf("Removed; %s links are left\n", result["links"].asString().c_str());
      });
  Add(
      group, line, "list", "Lists the accounts that were added here",
      [&line] { return ListOwners(line.options); }, PrintOwners);
}

void DescribeTokens(CLI::App& app, CommandLine& line) {
  CLI::App& group = *AddGroup(app, "token", "Manages the tokens with which programs call the API");
  const auto add = [&](const char* name, const char* text, std::function<Json::Value()> run,
                       std::function<void(const Json::Value&)> print) {
    CLI::App* command = Add(group, line, name, text, std::move(run), std::move(print));
    command->add_option("OWNER", line.token.owner, "The account's name")->required();
    return command;
  };
  auto* create = add(
      "create", "Makes a token and prints it, this once",
      [&line] { return CreateToken(line.options, line.token); },
      [](const Json::Value& result) { std::printf("%s\n", result["token"].asCString()); });
  create->add_option("NAME", line.token.name, "What it is for")
      ->required()
      ->check([](const std::string& name) {
        return name.empty() || name.size() > 100 ? "a name has 1 to 100 bytes" : "";
      });
  create->add_option("--scope", line.token.scope, "What it may do")
      ->check(CLI::IsMember({"read", "write"}))
      ->capture_default_str();
  create
      ->add_option("--project", line.token.projects, "Only links of this project; may be repeated")
      ->check([](const std::string& name) {
        return name.empty() || name.size() > 255 || name.find('\n') != std::string::npos
                   ? "no name of a project"
                   : "";
      });
  create->add_option("--expire-at", line.token.expire_at,
                     "When it ends (2030-01-31 12:00:00); without it: never");
  add(
      "list", "Lists an account's tokens, without what they are made of",
      [&line] { return ListTokens(line.options, line.token.owner); }, PrintTokens);
  add(
      "delete", "Deletes a token, which ends at once",
      [&line] { return DeleteToken(line.options, line.token.owner, line.token_id); },
      [](const Json::Value&) { std::printf("The token is deleted\n"); })
      ->add_option("ID", line.token_id)
      ->required();
}

void DescribeNotify(CLI::App& app, CommandLine& line) {
  auto* notify = Add(
      app, line, "notify", "Tells owners what happened to their links, until it is ended",
      [&line] { return Notify(line.options, line.notify); }, PrintNotify);
  notify->add_option("--test", line.notify.test,
                     "Send this account a message to try with now, and end");
  notify->add_option("--sendmail", line.notify.sendmail, "The program that takes mail")
      ->capture_default_str();
  notify->add_option("--mail-from", line.notify.mail_from,
                     "What mail is from; without it, what the program puts there");
  notify->add_flag("--private-webhooks", line.notify.private_networks,
                   "Let webhooks be on this machine and in private networks");
  notify->add_option("--wait", line.notify.wait, "Seconds in which what happens makes one message")
      ->check(CLI::Range(0, 3600))
      ->capture_default_str();
}

void PrintJson(const Json::Value& result) {
  Json::StreamWriterBuilder builder;
  builder["emitUTF8"] = true;
  std::cout << Json::writeString(builder, result) << std::endl;
}

int Fail(const CommandLine& line, const std::string& text, int status) {
  std::fprintf(stderr, "velt-sharing: %s\n", Shown(text).c_str());
  if (line.json) {
    Json::Value result;
    result["success"] = false;
    result["error"] = text;
    PrintJson(result);
  }
  return status;
}

int Run(const CommandLine& line) {
  Json::Value result = line.run();
  if (!result.isMember("success")) result["success"] = true;
  line.json ? PrintJson(result) : line.print(result);
  std::fflush(stdout);
  if (std::ferror(stdout) != 0 || !std::cout) throw Failure("standard output can't be written");
  return result["success"].asBool() ? 0 : kFailed;
}

// CLI11 asks for a command before it says which words it doesn't know.
std::string TextOf(const CLI::App& app, const CLI::ParseError& error) {
  const auto unknown = app.remaining();
  if (dynamic_cast<const CLI::RequiredError*>(&error) == nullptr || unknown.empty())
    return error.what();
  return CLI::ExtrasError(unknown).what();
}

int Main(int argc, char** argv) {
  CommandLine line;
  CLI::App app("Manages the database of share links, owners and their tokens, and checks plugins.",
               "velt-sharing");
  DescribeHostOptions(app, line);
  DescribeChecks(app, line);
  DescribeLinks(app, line);
  DescribeCopies(app, line);
  DescribeOwners(app, line);
  DescribeTokens(app, line);
  DescribeNotify(app, line);
  app.require_subcommand(1);
  app.set_version_flag("--version", "velt-sharing " VELT_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& answer) {  // --help, --version
    return app.exit(answer);
  } catch (const CLI::ParseError& error) {
    return Fail(line, TextOf(app, error), kUsage);
  }
  if (const auto* config = app.get_config_ptr(); config->count() != 0) {
    line.options.config = config->as<std::string>();
  } else if (access(kConfig, R_OK) == 0) {
    line.options.config = kConfig;
  }
  if (line.options.database.empty() && line.from.empty() && !app.got_subcommand(kCheckPlugin)) {
    const std::string& file = line.options.config;
    return Fail(line,
                file.empty() ? "--database or --config is needed" : file + " names no database",
                kUsage);
  }
  openlog("velt-sharing", LOG_PERROR, LOG_USER);
  try {
    return Run(line);
  } catch (const soci::soci_error& error) {
    return Fail(line, FirstLine(error), kFailed);
  } catch (const std::exception& error) {
    return Fail(line, error.what(), kFailed);
  }
}

}  // namespace
}  // namespace VELT::tools

int main(int argc, char** argv) {
  try {
    return VELT::tools::Main(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velt-sharing: %s\n", error.what());
    return VELT::tools::kFailed;
  }
}
