// Prints the parameters of all methods, from the tables that the methods themselves use, as one JSON object:
// {API: {method: [parameter, ...]}}. It is the input of openapi.py.
#include "module/Parameters.h"

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <iostream>
#include <limits>
#include <memory>
#include <string_view>
#include <tuple>

#include "apps/files/Parameters.h"
#include "apps/visits/Parameters.h"

namespace VELT {
namespace {

Json::Value Row(const char* name, const char* type, const Json::Value& fallback,
                PARAM_NECESSITY necessity = PARAM_OPTIONAL) {
  Json::Value row;
  row["name"] = name;
  row["type"] = type;
  row["required"] = necessity == PARAM_REQUIRED;
  if (necessity == PARAM_OPTIONAL) row["default"] = fallback;
  return row;
}

// A JSON array written as text.
Json::Value Parse(const char* text) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  const std::string_view view = text;
  reader->parse(view.data(), view.data() + view.size(), &value, nullptr);
  return value;
}

Json::Value Describe(const params::Text& param) {
  Json::Value row = Row(param.name, "text", param.fallback, param.necessity);
  if (param.choices != nullptr) row["choices"] = Parse(param.choices);
  if (param.form != nullptr) row["form"] = param.form;
  return row;
}
Json::Value Describe(const params::Int& param) {
  Json::Value row = Row(param.name, "number", param.fallback, param.necessity);
  row["least"] = param.least;
  row["most"] = std::numeric_limits<int>::max();
  return row;
}
Json::Value Describe(const params::Bool& param) {
  return Row(param.name, "flag", param.fallback, param.necessity);
}
Json::Value Describe(const params::Object& param) {
  return Row(param.name, "object", Json::Value(Json::objectValue));
}
Json::Value Describe(const params::Names& param) {
  return Row(param.name, "texts", Json::Value(Json::arrayValue));
}
Json::Value Describe(const params::AnyValue& param) {
  return Row(param.name, "any", Json::Value());
}

template <typename... Params>
Json::Value DescribeAll(const std::tuple<Params...>& all) {
  Json::Value rows(Json::arrayValue);
  std::apply([&rows](const Params&... each) { (rows.append(Describe(each)), ...); }, all);
  return rows;
}

Json::Value Describe(const files::Parameter& param) {
  using Kind = files::Parameter::Kind;
  Json::Value row;
  row["name"] = param.name;
  row["required"] = param.required;
  switch (param.kind) {
    case Kind::kText:
      row["type"] = "text";
      if (param.choices != nullptr) row["choices"] = Parse(param.choices);
      break;
    case Kind::kCount:
      row["type"] = "number";
      row["least"] = 0;
      row["most"] = param.most;
      break;
    case Kind::kSize:
      row["type"] = "number";
      row["least"] = 0;
      row["most"] = std::numeric_limits<Json::Int64>::max();
      break;
    case Kind::kFlag:
      row["type"] = "flag";
      break;
    case Kind::kTexts:
      row["type"] = "texts";
      break;
  }
  return row;
}

void DescribeSharing(Json::Value& apis) {
  Json::Value& sharing = apis["VELT.Core.Sharing"];
  sharing["set"] = DescribeAll(params::set::kAll);
  sharing["get"] = DescribeAll(params::get::kAll);
  sharing["delete"] = DescribeAll(params::remove::kAll);
  sharing["list"] = DescribeAll(params::list::kAll);
  sharing["trigger_gc"] = DescribeAll(params::trigger_gc::kAll);
  sharing["logout"] = DescribeAll(params::logout::kAll);
  apis["VELT.Core.Sharing.Login"]["login"] = DescribeAll(params::login::kAll);
  apis["VELT.Core.Sharing.Session"]["get"] = DescribeAll(params::session::kAll);
  apis["VELT.Core.Sharing.Initdata"]["get"] = DescribeAll(params::initdata::kAll);
}

void DescribeFiles(Json::Value& apis) {
  for (const files::MethodParameters& method : files::kMethods) {
    Json::Value& rows = apis[method.api][method.method] = Json::Value(Json::arrayValue);
    for (const files::Parameter* each = method.parameters; each->name != nullptr; ++each) {
      rows.append(Describe(*each));
    }
  }
}

void DescribeVisits(Json::Value& apis) {
  Json::Value row = Row(visits::kLinks, "texts", Json::Value(), PARAM_REQUIRED);
  row["most"] = visits::kMostLinks;
  apis["VELT.Visits"]["list"].append(row);
}

}  // namespace
}  // namespace VELT

int main() {
  Json::Value apis;
  VELT::DescribeSharing(apis);
  VELT::DescribeFiles(apis);
  VELT::DescribeVisits(apis);
  std::cout << Json::writeString(Json::StreamWriterBuilder(), apis) << std::endl;
  return std::cout.good() ? 0 : 1;
}
