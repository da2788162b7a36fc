// The parameters of a method as its API's declaration gives them: the rows that the header made of the
// declaration holds, the pre-check that refuses what isn't as declared, and the reading of values. All on the
// public operations of APIRequest alone.
#pragma once

#include <json/value.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "veltwebapi/APIParameter.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"
#include "veltwebapi/APIValidator.h"
#include "veltwebapi/ErrorCodes.h"
#include "veltwebapi/WebAPIUtil.h"

namespace VELT::params {

// `fallback` is the value of a request that lacks the parameter; a required one has none.
struct Text {
  const char* name;
  const char* fallback = "";
  bool required = false;
  bool filled = false;            // the empty text is refused
  const char* choices = nullptr;  // the texts that are let pass, a JSON array; null: any
  // When the parameter of the name `needed_with` is the text `needed_value`, this one must be there and not empty.
  const char* needed_with = nullptr;
  const char* needed_value = nullptr;
};
struct Number {
  const char* name;
  int fallback = 0;
  bool required = false;
  int least = std::numeric_limits<int>::min();
  int most = std::numeric_limits<int>::max();
};
struct Size {
  const char* name;
  std::int64_t fallback = 0;
  bool required = false;
  std::int64_t least = 0;
  std::int64_t most = std::numeric_limits<std::int64_t>::max();
};
struct Flag {
  const char* name;
  bool fallback = false;
  bool required = false;
};
// Without the parameter these are empty, or null.
struct Object {
  const char* name;
  bool required = false;
};
struct Texts {
  const char* name;
  bool required = false;
  unsigned int most = std::numeric_limits<unsigned int>::max();  // elements
};
struct Any {
  const char* name;
};

// The value, or the fallback. Throw what JsonCpp's conversions throw when it has another type.
inline std::string Read(const APIRequest& request, const Text& row) {
  return request.GetParam(row.name, row.fallback).asString();
}
inline int Read(const APIRequest& request, const Number& row) {
  return request.GetParam(row.name, row.fallback).asInt();
}
inline std::int64_t Read(const APIRequest& request, const Size& row) {
  return request.GetParam(row.name, Json::Int64{row.fallback}).asInt64();
}
inline bool Read(const APIRequest& request, const Flag& row) {
  return request.GetParam(row.name, row.fallback).asBool();
}
inline Json::Value Read(const APIRequest& request, const Object& row) {
  return request.GetParam(row.name, Json::objectValue);
}
inline Json::Value Read(const APIRequest& request, const Texts& row) {
  return request.GetParam(row.name, Json::arrayValue);
}
inline Json::Value Read(const APIRequest& request, const Any& row) {
  return request.GetParam(row.name, Json::nullValue);
}

namespace internal {

// What the pre-check has found of one parameter.
struct Finding {
  const char* name;
  bool set;
  bool invalid;
  bool mixed = false;    // an array with an element of a wrong type
  bool refused = false;  // a value of the right type that isn't let pass
  std::string text = {};
  const Text* row = nullptr;
};

template <typename T>
Finding Note(const char* name, bool required, APIParameter<T>& parameter, const T& fallback) {
  if (!required) parameter.SetDefault(fallback);
  return {.name = name, .set = parameter.IsSet(), .invalid = parameter.IsInvalid()};
}

constexpr PARAM_NECESSITY NecessityOf(bool required) {
  return required ? PARAM_REQUIRED : PARAM_OPTIONAL;
}

inline Finding Inspect(const APIRequest& request, const Text& row) {
  auto text = request.GetAndCheckString(row.name, NecessityOf(row.required), nullptr);
  Finding found = Note(row.name, row.required, text, std::string(row.fallback));
  found.refused =
      found.set && ((row.filled && APIValidator::IsEqual(text, "")) ||
                    (row.choices != nullptr &&
                     !APIValidator::IsBelong(text, WebAPIUtil::ParseJson(row.choices))));
  found.text = text.Get();
  found.row = &row;
  return found;
}

inline Finding Inspect(const APIRequest& request, const Number& row) {
  auto number = request.GetAndCheckInt(row.name, NecessityOf(row.required), nullptr);
  Finding found = Note(row.name, row.required, number, row.fallback);
  found.refused = found.set && (number.Get() < row.least || number.Get() > row.most);
  return found;
}

inline Finding Inspect(const APIRequest& request, const Size& row) {
  const bool set = request.HasParam(row.name);
  const Json::Value size = request.GetParam(row.name, Json::Int64{row.fallback});
  const bool refused = !size.isInt64() || size.asInt64() < row.least || size.asInt64() > row.most;
  return {.name = row.name,
          .set = set,
          .invalid = set ? !size.isIntegral() : row.required,
          .refused = set && refused};
}

inline Finding Inspect(const APIRequest& request, const Flag& row) {
  auto flag = request.GetAndCheckBool(row.name, NecessityOf(row.required), nullptr);
  return Note(row.name, row.required, flag, row.fallback);
}

inline Finding Inspect(const APIRequest& request, const Object& row) {
  auto object = request.GetAndCheckObject(row.name, NecessityOf(row.required), nullptr);
  return Note(row.name, row.required, object, Json::Value(Json::objectValue));
}

inline Finding Inspect(const APIRequest& request, const Texts& row) {
  auto texts = request.GetAndCheckUnitArray(row.name, NecessityOf(row.required), nullptr);
  Finding found = Note(row.name, row.required, texts, Json::Value(Json::arrayValue));
  found.mixed = !std::all_of(texts.Get().begin(), texts.Get().end(),
                             [](const Json::Value& element) { return element.isString(); });
  found.refused = texts.Get().size() > row.most;
  return found;
}

inline Finding Inspect(const APIRequest& request, const Any& row) {
  return {.name = row.name, .set = request.HasParam(row.name), .invalid = false};
}

inline bool IsMissed(const Finding& each, const std::vector<Finding>& all) {
  if (each.row == nullptr || each.row->needed_with == nullptr || !each.text.empty()) return false;
  return std::any_of(all.begin(), all.end(), [row = each.row](const Finding& other) {
    return std::string(row->needed_with) == other.name && other.text == row->needed_value;
  });
}

// The first finding that is against the request, and why: all types come before the first value.
inline bool Judge(const std::vector<Finding>& all, APIResponse* response) {
  const auto refuse = [response](const Finding& each, const char* reason) {
    Json::Value detail;
    detail["name"] = each.name;
    detail["reason"] = reason;
    response->SetError(kErrorCheck, detail);
    return false;
  };
  for (const Finding& each : all) {
    if (each.invalid) return refuse(each, each.set ? "type" : "required");
  }
  for (const Finding& each : all) {
    if (each.mixed) return refuse(each, "type");
  }
  for (const Finding& each : all) {
    if (each.refused || IsMissed(each, all)) return refuse(each, "condition");
  }
  return true;
}

}  // namespace internal

// The pre-check of a declared method: false, with the first parameter that isn't as declared on the response, as
// error 120. All parameters are read before the first is judged.
template <typename Method>
bool Check(APIRequest* request, APIResponse* response) {
  if constexpr (!Method::kIsChecked) return true;
  return std::apply(
      [=](const auto&... row) {
        return internal::Judge({internal::Inspect(*request, row)...}, response);
      },
      Method::kAll);
}

// The row of a declared method in its module's tables.
template <typename Method>
constexpr APITableEntry Entry(APIHandler handler) {
  return {Method::kApi, Method::kVersion, Method::kMethod, handler};
}
template <typename Method>
constexpr APICheckTableEntry CheckEntry() {
  return {Method::kApi, Method::kVersion, Method::kMethod, Check<Method>, nullptr, nullptr};
}

// The check table of a module that declares these methods.
template <typename... Methods>
struct MethodList {
  static constexpr APICheckTableEntry kChecks[] = {CheckEntry<Methods>()..., {}};
};

}  // namespace VELT::params
