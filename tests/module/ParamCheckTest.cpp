// What the pre-checks refuse; then the handler must not run.
#include <cstddef>
#include <string>
#include <vector>

#include "tests/module/Fixture.h"
#include "tests/support/Json.h"
#include "tests/support/SyslogCapture.h"

namespace VELT {
namespace {

class ParamCheckTest : public ModuleTest {
 protected:
  // `method` may be "<rest of the API's name> <method>".
  Answer Ask(const std::string& method, const char* json) {
    const std::size_t blank = method.find(' ');
    if (blank == std::string::npos) {
      const Members needed = {{"project_name", "album"}};
      const Json::Value given = Parse(json);
      const bool lacks = method == "set" && !given.isMember("project_name");
      return Sharing(method, lacks ? Object(needed, given) : given);
    }
    return Call("VELT.Core.Sharing." + method.substr(0, blank), method.substr(blank + 1), json);
  }
};

TEST_F(ParamCheckTest, FirstBadParameterIsReported) {
  const struct {
    const char* method;
    const char* json;
    const char* parameter;
    const char* reason;
  } rows[] = {
      {"get", R"({"sharing_id": 5})", "sharing_id", "type"},
      {"delete", "{}", "sharing_id", "required"},
      {"delete", R"({"sharing_id": null})", "sharing_id", "type"},
      {"trigger_gc", R"({"all_entry": "yes", "project_name": 1})", "all_entry", "type"},
      {"trigger_gc", R"({"project_name": 1})", "project_name", "type"},
      {"list", R"({"limit": "x", "share_with_me": 1})", "share_with_me", "type"},
      {"list", R"({"offset": 1.5})", "offset", "type"},
      {"list", R"({"limit": 2147483648})", "limit", "type"},
      {"list", R"({"sort_direction": "UP"})", "sort_direction", "condition"},
      {"list", R"({"sort_direction": "asc"})", "sort_direction", "condition"},
      {"Login login", "{}", "sharing_id", "required"},
      {"Login login", R"({"password": 5})", "password", "type"},
      {"Login login", R"({"sharing_id": "x", "mosk_username": []})", "mosk_username", "type"},
      {"Initdata get", R"({"action": {}})", "action", "type"},
      {"set", R"({"enabled": 1, "app": 1, "sharing_id": 1})", "sharing_id", "type"},
      {"set", R"({"redirect_type": "", "enabled": 1})", "enabled", "type"},
      {"set", R"({"app": "{}"})", "app", "type"},
      {"set", R"({"private_data": []})", "private_data", "type"},
      {"set", R"({"protect_users": {}})", "protect_users", "type"},
      {"set", R"({"protect_users": ["bob", 3]})", "protect_users", "type"},
      {"set", R"({"protect_users": [3], "protect_groups": [null]})", "protect_groups", "type"},
      {"set", R"({"redirect_type": "Always"})", "redirect_type", "condition"},
      {"set", R"({"protect_type": "password"})", "protect_password", "condition"},
      {"set", R"({"protect_type": "password", "protect_password": ""})", "protect_password",
       "condition"},
      {"set", R"({"protect_type": "PASSWORD"})", "protect_type", "condition"},
      {"set", R"({"protect_type": "login"})", "protect_type", "condition"},
      {"set", R"({"expire_times": -1})", "expire_times", "condition"},
      // Two that are bad.
      {"set", R"({"protect_users": [3], "project_name": ""})", "protect_users", "type"},
      {"set", R"({"project_name": "", "redirect_type": ""})", "project_name", "condition"},
      {"set", R"({"redirect_type": "", "protect_type": "password"})", "redirect_type", "condition"},
      {"set", R"({"redirect_type": "", "protect_type": ""})", "redirect_type", "condition"},
      {"set", R"({"protect_type": "password", "expire_times": -1})", "protect_password",
       "condition"},
      {"set", R"({"protect_type": "", "expire_times": -1})", "protect_type", "condition"},
  };
  const auto check = [this](const Answer& answer, const char* parameter, const char* reason) {
    EXPECT_EQ(answer.code, kErrorCheck);
    EXPECT_EQ(answer.body, Object({{"name", parameter}, {"reason", reason}}));
    EXPECT_FALSE(answer.handled);
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.method) + row.json);
    check(Ask(row.method, row.json), row.parameter, row.reason);
  }
  check(Sharing("set", "{}"), "project_name", "required");
  check(Sharing("set", R"({"project_name": 5})"), "project_name", "type");
  check(Sharing("set", R"({"project_name": "", "app": 5})"), "app", "type");
  check(Sharing("set", R"({"project_name": ""})"), "project_name", "condition");
  EXPECT_THAT(Log(), testing::IsEmpty());
}

TEST_F(ParamCheckTest, OfTwoBadParametersTheFirstIsReported) {
  const struct {
    const char* method;
    std::vector<const char*> parameters;  // in the order in which they are judged
  } rows[] = {
      {"set",
       {"project_name", "sharing_id", "app", "private_data", "redirect_uri", "redirect_type",
        "protect_groups", "protect_users", "protect_password", "protect_type", "protect_title",
        "enable_match_ip", "expire_times", "start_at", "expire_at", "auto_gc", "enabled"}},
      {"list",
       {"share_with_me", "all_entry", "sort_direction", "sort_by", "offset", "limit",
        "project_name"}},
      {"trigger_gc", {"all_entry", "project_name"}},
      {"Login login", {"password", "sharing_id", "mosk_password", "mosk_username"}},
  };
  for (const auto& row : rows) {
    for (std::size_t first = 0; first + 1 < row.parameters.size(); ++first) {
      Json::Value request = Object({{"sharing_id", "x"}});  // which login needs
      for (const char* name : {row.parameters[first], row.parameters[first + 1]}) {
        const bool takes_object = name == std::string("app") || name == std::string("private_data");
        request[name] = takes_object ? Json::arrayValue : Json::objectValue;
      }
      const Answer answer = Ask(row.method, request.toStyledString().c_str());
      EXPECT_EQ(answer.body, Object({{"name", row.parameters[first]}, {"reason", "type"}}));
    }
  }
}

TEST_F(ParamCheckTest, GoodParametersReachTheHandler) {
  const struct {
    const char* method;
    const char* json;
    int code;  // the handler's
  } rows[] = {
      {"get", "{}", kErrorSharingID},
      {"list", R"({"limit": 2147483647, "offset": -2147483648})", 0},
      {"list", R"({"sort_direction": "DESC"})", 0},
      {"Session get", R"({"sharing_error": {}})", kErrorParam},
      {"logout", R"({"sharing_sid": 5})", kErrorParam},
      {"set", R"({"protect_password": ""})", 0},
      {"set", R"({"expire_times": 0})", 0},
      {"set", R"({"protect_type": "user", "protect_groups": ["family"]})", 0},
  };
  for (const auto& row : rows) {
    const Answer answer = Ask(row.method, row.json);
    EXPECT_TRUE(answer.handled) << row.json;
    EXPECT_EQ(answer.code, row.code) << row.json << answer.body;
  }
}

}  // namespace
}  // namespace VELT
