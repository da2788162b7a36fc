// The parameters in docs/api.md are those that the methods read.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "module/Parameters.h"
#include "veltwebapi/APIParameter.h"

namespace VELT {
namespace {

using Rows = std::map<std::string, std::string>;  // name: type and default

std::string Row(const params::Text& param) {
  const std::string text = *param.fallback == '\0' ? "\"\"" : param.fallback;
  return param.necessity == PARAM_REQUIRED ? "text, needed" : "text, `" + text + "`";
}
std::string Row(const params::Int& param) {
  return "number, `" + std::to_string(param.fallback) + "`";
}
std::string Row(const params::Bool& param) {
  return std::string("boolean, `") + (param.fallback ? "true" : "false") + "`";
}
std::string Row(const params::Object& /*param*/) { return "object, `{}`"; }
std::string Row(const params::Names& /*param*/) { return "array of names, `[]`"; }
std::string Row(const params::AnyValue& /*param*/) { return "any value, `null`"; }

template <typename... Params>
Rows RowsOf(const std::tuple<Params...>& all) {
  return std::apply([](const auto&... each) { return Rows{{each.name, Row(each)}...}; }, all);
}

std::vector<std::string> Cells(const std::string& line) {
  std::vector<std::string> cells;
  std::istringstream stream(line);
  for (std::string cell; std::getline(stream, cell, '|');) {
    const std::size_t first = cell.find_first_not_of(' ');
    const std::size_t last = cell.find_last_not_of(' ');
    cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
  }
  return cells;
}

// The parameter tables of the document by the heading above them.
std::map<std::string, Rows> Documented() {
  std::map<std::string, Rows> tables;
  std::ifstream file(VELT_API_DOCS);
  std::string heading;
  bool in_table = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("#")) heading = line.substr(line.find_first_not_of("# "));
    if (!line.starts_with("|")) in_table = false;
    if (line.starts_with("|---")) continue;
    if (in_table) {
      const std::vector<std::string> cells = Cells(line);
      // A type in quotes is a choice, or a form, of text.
      const std::string type = cells.at(2).starts_with("`") ? "text" : cells.at(2);
      std::istringstream names(cells.at(1));
      for (std::string name; std::getline(names >> std::ws, name, ',');) {
        tables[heading][name.substr(1, name.size() - 2)] = type + ", " + cells.at(3);
      }
    }
    if (line.starts_with("| parameter |")) in_table = true;
  }
  return tables;
}

TEST(ApiDocsTest, ListTheParametersThatMethodsRead) {
  const std::map<std::string, Rows> read = {
      {"set", RowsOf(params::set::kAll)},
      {"get", RowsOf(params::get::kAll)},
      {"delete", RowsOf(params::remove::kAll)},
      {"list", RowsOf(params::list::kAll)},
      {"trigger_gc", RowsOf(params::trigger_gc::kAll)},
      {"logout", RowsOf(params::logout::kAll)},
      {"VELT.Core.Sharing.Login, login", RowsOf(params::login::kAll)},
      {"VELT.Core.Sharing.Session, get", RowsOf(params::session::kAll)},
      {"VELT.Core.Sharing.Initdata, get", RowsOf(params::initdata::kAll)},
  };
  EXPECT_EQ(Documented(), read);
}

}  // namespace
}  // namespace VELT
