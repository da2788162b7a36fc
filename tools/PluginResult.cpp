#include "tools/PluginResult.h"

#include <cxxabi.h>
#include <json/writer.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <set>

namespace VELT::tools {
namespace {

constexpr std::size_t kLargestResult = std::size_t{1024} * 1024;
constexpr std::size_t kLongestAddress = 900;

Finding JudgeAddresses(const char* member, const Json::Value& addresses) {
  if (addresses.isNull()) return {};
  if (!addresses.isArray()) {
    return {State::kWarning, std::string(member) + " is no array of addresses: it is ignored"};
  }
  for (const Json::Value& address : addresses) {
    if (!address.isString()) {
      return {State::kFailed, std::string(member) + " holds something that is no text"};
    }
    if (address.asString().size() > kLongestAddress) {
      return {State::kFailed,
              std::string(member) + " holds an address of more than 900 bytes, which would be cut"};
    }
  }
  return {};
}

Finding JudgePage(const Json::Value& result) {
  if (!result.isObject()) return {State::kWarning, "gives no object: it adds nothing to the page"};
  const std::set<std::string> known = {"JSFILE", "CSS", "SESSION", "PRIVATE"};
  for (const std::string& member : result.getMemberNames()) {
    if (!known.contains(member))
      return {State::kWarning, "gives " + member + ", which nobody uses"};
  }
  for (const char* member : {"JSFILE", "CSS"}) {
    if (Finding finding = JudgeAddresses(member, result[member]); !finding.text.empty())
      return finding;
  }
  if (!result["SESSION"].isNull() && !result["SESSION"].isObject()) {
    return {State::kWarning, "SESSION is no object: it is ignored"};
  }
  std::string text = "gives";
  for (const std::string& member : result.getMemberNames()) text += " " + member;
  return {State::kOk, result.empty() ? "gives an empty object" : text};
}

Finding JudgeTags(const Json::Value& result) {
  if (!result.isArray()) return {State::kWarning, "gives no array: it adds nothing to the page"};
  const std::set<std::string> shown = {"property", "name", "content"};
  for (const Json::Value& tag : result) {
    if (!tag.isObject())
      return {State::kWarning, "gives something that is no object, which is left out"};
    for (const std::string& attribute : tag.getMemberNames()) {
      if (!tag[attribute].isConvertibleTo(Json::stringValue)) {
        return {State::kFailed, "gives the attribute " + attribute + " a value that is no text"};
      }
      if (!shown.contains(attribute)) {
        return {State::kWarning,
                "gives a tag the attribute " + attribute +
                    ": our page leaves out tags with others than property, name and content"};
      }
    }
  }
  return {State::kOk, "gives " + std::to_string(result.size()) + " tags"};
}

}  // namespace

Finding JudgeResult(const std::string& function, bool used, const Json::Value& result) {
  if (!used) return {State::kWarning, "returns false: it adds nothing to the page"};
  if (OneLine(result).size() > kLargestResult) {
    return {State::kFailed, "gives more than 1 MiB of text: the service drops it"};
  }
  return function == "CustomPageFunc" ? JudgePage(result) : JudgeTags(result);
}

std::string OneLine(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

std::string Demangled(const std::string& symbol) {
  int failed = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &failed), std::free);
  return failed == 0 ? name.get() : symbol;
}

}  // namespace VELT::tools
