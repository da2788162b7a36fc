#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "veltwebapi/APIParameter.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APIValidator.h"
#include "veltwebapi/RequestContext.h"
#include "veltwebapi/ResponseState.h"
#include "veltwebapi/WebAPIUtil.h"

namespace VELT {
namespace {

using std::string;

APIRequest With(RawParameter value) {
  auto context = std::make_unique<RequestContext>();
  context->parameters["p"] = std::move(value);
  return APIRequest(std::move(context));
}

// The readers that accept the parameter: s(tring), i(nteger), b(oolean), o(bject), a(rray).
string TakenBy(const APIRequest& request) {
  const auto letter = [](const auto& parameter, const char* name) {
    EXPECT_TRUE(parameter.IsSet());
    return parameter.IsInvalid() ? "" : name;
  };
  return string(letter(request.GetAndCheckString("p", PARAM_REQUIRED, nullptr), "s")) +
         letter(request.GetAndCheckInt("p", PARAM_OPTIONAL, nullptr), "i") +
         letter(request.GetAndCheckBool("p", PARAM_REQUIRED, nullptr), "b") +
         letter(request.GetAndCheckObject("p", PARAM_OPTIONAL, nullptr), "o") +
         letter(request.GetAndCheckUnitArray("p", PARAM_REQUIRED, nullptr), "a");
}

TEST(Parameters, JsonKeepsItsType) {
  const struct {
    const char* json;
    const char* readers;
  } rows[] = {{"\"5\"", "s"}, {"\"\"", "s"},      {"5", "i"},         {"-2147483648", "i"},
              {"1.0", "i"},   {"1.5", ""},        {"2147483648", ""}, {"1e400", ""},
              {"true", "b"},  {"0", "i"},         {"{}", "o"},        {"{\"a\":1}", "o"},
              {"[]", "a"},    {"[1,\"a\"]", "a"}, {"null", ""}};
  for (const auto& row : rows) {
    const Json::Value json = WebAPIUtil::ParseJson(row.json);
    const APIRequest request = With({true, json, ""});
    EXPECT_EQ(TakenBy(request), row.readers) << row.json;
    for (const Json::Value& fallback : {Json::Value(""), Json::Value(1), Json::Value()}) {
      EXPECT_EQ(request.GetParam("p", fallback), json) << row.json;
    }
  }
}

TEST(Parameters, FormTextTakesTheReadersType) {
  const struct {
    string text;
    const char* readers;
    Json::Value untyped;  // what a reader of any type but string gets
  } rows[] = {{"5", "si", 5},
              {"-1", "si", -1},
              {"1e5", "si", 1e5},
              {"1.5", "s", 1.5},
              {"true", "sb", true},
              {"{\"a\":[]}", "so", WebAPIUtil::ParseJson("{\"a\":[]}")},
              {" [1] ", "sa", WebAPIUtil::ParseJson("[1]")},
              {"null", "s", Json::Value()},
              {"", "s", ""},
              {"abc", "s", "abc"},
              {"\"5\"", "s", "5"},
              {"True", "s", "True"},
              {"5 5", "s", "5 5"},
              {R"(["\u0000"])", "s", R"(["\u0000"])"},
              {string(65, '[') + string(65, ']'), "s", string(65, '[') + string(65, ']')}};
  for (const auto& row : rows) {
    const APIRequest request = With({false, {}, row.text});
    EXPECT_EQ(TakenBy(request), row.readers) << row.text;
    EXPECT_EQ(request.GetAndCheckString("p", PARAM_REQUIRED, nullptr).Get(), row.text);
    EXPECT_EQ(request.GetParam("p", "").asString(), row.text);
    for (const Json::Value& fallback : {Json::Value(1), Json::Value(false), Json::Value()}) {
      EXPECT_EQ(request.GetParam("p", fallback), row.untyped) << row.text;
    }
  }
}

TEST(Parameters, AbsenceNecessityDefaultsAndValidators) {
  const APIRequest request = With({false, {}, "7"});
  EXPECT_FALSE(request.HasParam("q"));
  EXPECT_EQ(request.GetParam("q", 3).asInt(), 3);
  auto absent = request.GetAndCheckInt("q", PARAM_OPTIONAL, nullptr);
  EXPECT_FALSE(absent.IsSet() || absent.IsInvalid());
  absent.SetDefault(4);
  EXPECT_EQ(absent.Get(), 4);
  const auto required = request.GetAndCheckInt("q", PARAM_REQUIRED, nullptr);
  EXPECT_TRUE(!required.IsSet() && required.IsInvalid());
  auto present =
      request.GetAndCheckInt("p", PARAM_OPTIONAL, [](const int& value) { return value == 7; });
  present.SetDefault(4);
  EXPECT_TRUE(!present.IsInvalid() && present.Get() == 7);
  EXPECT_TRUE(APIValidator::IsGreater(present, 6));
  EXPECT_FALSE(APIValidator::IsGreater(present, 7));
  const auto refused =
      request.GetAndCheckInt("p", PARAM_OPTIONAL, [](const int&) { return false; });
  EXPECT_TRUE(refused.IsSet() && refused.IsInvalid());
}

TEST(Validators, CompareValues) {
  const APIParameter<string> text(true, false, "ASC");
  const Json::Value allowed = WebAPIUtil::ParseJson(R"(["ASC", "DESC", 1])");
  EXPECT_TRUE(APIValidator::IsBelong(text, allowed));
  EXPECT_FALSE(APIValidator::IsBelong({true, false, "asc"}, allowed));
  EXPECT_FALSE(APIValidator::IsBelong({true, false, "1"}, allowed));
  EXPECT_FALSE(APIValidator::IsBelong(text, "ASC"));
  EXPECT_TRUE(APIValidator::IsEqual(text, "ASC"));
  EXPECT_FALSE(APIValidator::IsEqual(text, "ASCII"));
  const APIParameter<Json::Value> list(true, false, Json::Value(Json::arrayValue));
  EXPECT_TRUE(APIValidator::IsEqual(list, Json::Value(Json::arrayValue)));
  EXPECT_FALSE(APIValidator::IsEqual(list, Json::Value()));
}

TEST(Response, LastOutcomeCountsAndCookiesCarryNoOtherHeader) {
  APIResponse response;
  response.SetSuccess("data");
  response.SetError(7, "detail");
  EXPECT_EQ(response.state().outcome, ResponseState::Outcome::kError);
  EXPECT_EQ(response.state().error_code, 7);
  EXPECT_EQ(response.state().body, "detail");
  EXPECT_TRUE(response.AddCookie("/", "sid", "a=b", 0, "", false, false));
  for (const char* bad : {"a;b", "a,b", "a\r\nb", "a\x7f", "\t"}) {
    EXPECT_FALSE(response.AddCookie("/", "sid", bad, 0, "", false, false)) << bad;
    EXPECT_FALSE(response.AddCookie("/", bad, "a", 0, "", false, false)) << bad;
    EXPECT_FALSE(response.AddCookie(bad, "sid", "a", 0, "", false, false)) << bad;
    EXPECT_FALSE(response.AddCookie("/", "sid", "a", 0, bad, false, false)) << bad;
  }
  EXPECT_FALSE(response.AddCookie("/", "", "a", 0, "", false, false));
  EXPECT_EQ(response.state().cookies.size(), 1U);
}

}  // namespace
}  // namespace VELT
