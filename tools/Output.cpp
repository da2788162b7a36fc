#include "tools/Output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "veltsys/Process.h"

namespace VELT::tools {
namespace {

constexpr std::size_t kShortId = 6;
constexpr Json::ArrayIndex kMostShown = 10;

// Counts code points, which is close enough to columns for names.
std::size_t Width(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

std::string OwnerOf(const Json::Value& row) {
  const std::string name = row["owner"].asString();
  return name.empty() ? row["owner_uid"].asString() + " (no account)" : Shown(name);
}

void PrintMost(const char* heading, const Json::Value& rows, bool owners) {
  std::vector<std::vector<std::string>> cells;
  for (const Json::Value& row : rows) {
    if (cells.size() == kMostShown) break;
    cells.push_back(
        {owners ? OwnerOf(row) : Shown(row["project_name"].asString()), row["links"].asString()});
  }
  std::printf("\n");
  PrintTable({heading, "LINKS"}, cells);
  if (rows.size() > kMostShown) std::printf("and %u more\n", rows.size() - kMostShown);
}

}  // namespace

std::string Shown(const std::string& text) {
  std::string shown;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const auto next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0U;
    if (byte == 0xC2 && next >= 0x80 && next < 0xA0) ++at;  // U+0080 to U+009F
    const bool control = byte < ' ' || byte == 0x7F || (byte == 0xC2 && next < 0xA0);
    shown += control ? '?' : text[at];
  }
  return shown;
}

void PrintTable(const std::vector<std::string>& headings,
                const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (std::size_t column = 0; column < headings.size(); ++column) {
    std::size_t width = headings[column].size();
    for (const auto& row : rows) width = std::max(width, Width(row[column]));
    widths.push_back(width);
  }
  const auto print = [&widths](const std::vector<std::string>& row) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      line += row[column];
      if (column + 1 < row.size()) line.append(widths[column] - Width(row[column]) + 2, ' ');
    }
    std::printf("%s\n", line.c_str());
  };
  print(headings);
  for (const auto& row : rows) print(row);
}

void PrintCheck(const Json::Value& result) {
  std::vector<std::vector<std::string>> rows;
  for (const Json::Value& check : result["checks"]) {
    rows.push_back(
        {check["state"].asString(), check["subject"].asString(), Shown(check["text"].asString())});
  }
  PrintTable({"STATE", "WHAT", ""}, rows);
}

void PrintList(const Json::Value& result, bool show_address) {
  std::vector<std::vector<std::string>> rows;
  for (const Json::Value& link : result["links"]) {
    const std::string id = link["sharing_id"].asString();
    std::string visits = link["visits"].asString();
    if (link["expire_times"].asInt64() != 0) visits += " of " + link["expire_times"].asString();
    rows.push_back({show_address ? link["url"].asString() : id.substr(0, kShortId) + "...",
                    OwnerOf(link), Shown(link["project_name"].asString()),
                    link["status"].asString(), visits, link["expire_at"].asString(),
                    Shown(link["protect_title"].asString())});
  }
  PrintTable({"LINK", "OWNER", "PROJECT", "STATUS", "VISITS", "EXPIRES", "TITLE"}, rows);
  if (result["more"].asBool()) std::printf("There are more; --limit 0 shows all.\n");
}

void PrintLink(const Json::Value& link, bool show_address) {
  const std::string id = link["sharing_id"].asString();
  const std::string url = link["url"].asString();
  std::vector<std::vector<std::string>> rows;
  for (const char* name : {"protect_title", "owner_user", "project_name", "status", "protect_type",
                           "start_at", "expire_at", "visits", "expire_times"}) {
    rows.push_back({name, Shown(link[name].asString())});
  }
  PrintTable({"LINK", show_address ? url : id.substr(0, kShortId) + "..."}, rows);
  if (!show_address || isatty(STDOUT_FILENO) == 0) return;
  FILE* code = VLIBCPopen("/usr/bin/qrencode", "r", "-t", "UTF8", url.c_str(),
                          static_cast<const char*>(nullptr));
  if (code == nullptr) return;
  for (int next = std::fgetc(code); next != EOF; next = std::fgetc(code)) std::putchar(next);
  VLIBCPclose(code);
}

void PrintStats(const Json::Value& result) {
  std::vector<std::vector<std::string>> rows;
  for (const char* name : {"database", "schema_version", "database_bytes", "links", "sessions",
                           "tokens", "failed_logins"}) {
    rows.push_back({name, result[name].asString()});
  }
  for (const std::string& status : result["status"].getMemberNames()) {
    rows.push_back({"links, " + status, result["status"][status].asString()});
  }
  PrintTable({"WHAT", ""}, rows);
  PrintMost("OWNER", result["owners"], true);
  PrintMost("PROJECT", result["projects"], false);
}

void PrintMigrate(const Json::Value& result) {
  std::vector<std::vector<std::string>> rows;
  for (const std::string& table : result["tables"].getMemberNames()) {
    rows.push_back({table, result["tables"][table].asString()});
  }
  PrintTable({"TABLE", "ROWS"}, rows);
}

void PrintOwners(const Json::Value& result) {
  std::vector<std::vector<std::string>> rows;
  for (const Json::Value& owner : result["owners"]) {
    rows.push_back({Shown(owner["name"].asString()), owner["uid"].asString(),
                    owner["administrator"].asBool() ? "administrator" : "owner",
                    owner["password"].asBool() ? "set" : "none"});
  }
  PrintTable({"OWNER", "UID", "ROLE", "PASSWORD"}, rows);
}

void PrintTokens(const Json::Value& result) {
  std::vector<std::vector<std::string>> rows;
  for (const Json::Value& token : result["tokens"]) {
    std::string projects;
    for (const Json::Value& project : token["projects"]) {
      projects += (projects.empty() ? "" : ", ") + project.asString();
    }
    rows.push_back({token["id"].asString(), Shown(token["name"].asString()),
                    token["scope"].asString(), projects.empty() ? "all" : Shown(projects),
                    token["last_used"].asString(), token["expire_at"].asString()});
  }
  PrintTable({"ID", "NAME", "SCOPE", "PROJECTS", "LAST USED", "EXPIRES"}, rows);
}

void PrintNotify(const Json::Value& result) {
  for (const Json::Value& message : result["messages"]) {
    const std::string error = message["error"].asString();
    std::printf("%s: %s\n", message["way"].asCString(),
                error.empty() ? "sent" : Shown(error).c_str());
  }
}

}  // namespace VELT::tools
