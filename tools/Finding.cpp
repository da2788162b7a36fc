#include "tools/Finding.h"

#include <algorithm>

namespace VELT::tools {
namespace {

const char* TextOf(State state) {
  switch (state) {
    case State::kOk:
      return "ok";
    case State::kWarning:
      return "warning";
    case State::kFailed:
      break;
  }
  return "failed";
}

}  // namespace

void Add(Json::Value& checks, const std::string& subject, const Finding& finding) {
  Json::Value check;
  check["subject"] = subject;
  check["state"] = TextOf(finding.state);
  check["text"] = finding.text;
  checks.append(check);
}

bool HasFailed(const Json::Value& checks) {
  return std::ranges::any_of(
      checks, [](const Json::Value& check) { return check["state"] == TextOf(State::kFailed); });
}

}  // namespace VELT::tools
