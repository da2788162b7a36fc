// The output of a command, for people.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace VELT::tools {

// `text` with "?" for each control character: names come from strangers and must not control a
// terminal.
std::string Shown(const std::string& text);

// Prints rows under their headings, in columns as wide as they need.
void PrintTable(const std::vector<std::string>& headings,
                const std::vector<std::vector<std::string>>& rows);

void PrintCheck(const Json::Value& result);
// With `show_address` the whole ids or addresses, which open the links, instead of their beginning; a
// terminal also gets a link's address as a QR code.
void PrintList(const Json::Value& result, bool show_address);
void PrintLink(const Json::Value& link, bool show_address);
void PrintStats(const Json::Value& result);
void PrintMigrate(const Json::Value& result);
void PrintOwners(const Json::Value& result);
void PrintTokens(const Json::Value& result);
void PrintNotify(const Json::Value& result);

}  // namespace VELT::tools
