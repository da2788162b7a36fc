// What the pre-checks refuse, and that the handler does not run then.
#include "Fixture.h"

namespace VELT {
namespace {

struct CheckCase {
  const char* name;
  const char* api;
  const char* method;
  const char* json;
  const char* parameter;  // refused; null: accepted
  const char* reason;
};

class ParamCheckTest : public ModuleTest, public testing::WithParamInterface<CheckCase> {};

TEST_P(ParamCheckTest, JudgesParameters) {
  const CheckCase& row = GetParam();
  const Answer answer = Call(std::string("VELT.Core.Sharing") + row.api, row.method, row.json);
  if (row.parameter == nullptr) {
    EXPECT_NE(answer.code, 120) << answer.body;
    return;
  }
  EXPECT_EQ(answer.code, 120);
  EXPECT_EQ(answer.body, Refusal(row.parameter, row.reason));
  EXPECT_FALSE(answer.handled);
  EXPECT_EQ(Rows("link"), 0);
  EXPECT_THAT(Log(), testing::IsEmpty());
}

#define SET(rest) R"({"project_name": "album")" rest "}"
constexpr CheckCase kCases[] = {
    {"get_without_id", "", "get", "{}", nullptr, nullptr},
    {"get_number", "", "get", R"({"sharing_id": 5})", "sharing_id", "type"},
    {"delete_without_id", "", "delete", "{}", "sharing_id", "required"},
    {"delete_null", "", "delete", R"({"sharing_id": null})", "sharing_id", "type"},
    {"gc_text_for_bool", "", "trigger_gc", R"({"all_entry": "yes", "project_name": 1})",
     "all_entry", "type"},
    {"gc_project", "", "trigger_gc", R"({"project_name": 1})", "project_name", "type"},
    {"list_first_only", "", "list", R"({"limit": "x", "share_with_me": 1})", "share_with_me",
     "type"},
    {"list_fraction", "", "list", R"({"offset": 1.5})", "offset", "type"},
    {"list_beyond_32_bits", "", "list", R"({"limit": 2147483648})", "limit", "type"},
    {"list_edge_of_32_bits", "", "list", R"({"limit": 2147483647, "offset": -2147483648})", nullptr,
     nullptr},
    {"list_up", "", "list", R"({"sort_direction": "UP"})", "sort_direction", "condition"},
    {"list_lower_case", "", "list", R"({"sort_direction": "asc"})", "sort_direction", "condition"},
    {"list_desc", "", "list", R"({"sort_direction": "DESC"})", nullptr, nullptr},
    {"login_without_id", ".Login", "login", "{}", "sharing_id", "required"},
    {"login_password_first", ".Login", "login", R"({"password": 5})", "password", "type"},
    {"login_user", ".Login", "login", R"({"sharing_id": "x", "mosk_username": []})",
     "mosk_username", "type"},
    {"initdata_action", ".Initdata", "get", R"({"action": {}})", "action", "type"},
    {"session_anything", ".Session", "get", R"({"sharing_error": {}})", nullptr, nullptr},
    {"logout_anything", "", "logout", R"({"sharing_sid": 5})", nullptr, nullptr},
    {"set_nothing", "", "set", "{}", "project_name", "required"},
    {"set_project_number", "", "set", R"({"project_name": 5})", "project_name", "type"},
    {"set_project_empty", "", "set", R"({"project_name": ""})", "project_name", "condition"},
    {"set_order_of_types", "", "set", SET(R"(, "enabled": 1, "app": 1, "sharing_id": 1)"),
     "sharing_id", "type"},
    {"set_type_before_rules", "", "set", R"({"project_name": "", "enabled": 1})", "enabled",
     "type"},
    {"set_app_text", "", "set", SET(R"(, "app": "{}")"), "app", "type"},
    {"set_private_array", "", "set", SET(R"(, "private_data": [])"), "private_data", "type"},
    {"set_users_object", "", "set", SET(R"(, "protect_users": {})"), "protect_users", "type"},
    {"set_users_mixed", "", "set", SET(R"(, "protect_users": ["bob", 3])"), "protect_users",
     "type"},
    {"set_groups_first", "", "set", SET(R"(, "protect_users": [3], "protect_groups": [null])"),
     "protect_groups", "type"},
    {"set_redirect", "", "set", SET(R"(, "redirect_type": "Always")"), "redirect_type",
     "condition"},
    {"set_password_missing", "", "set", SET(R"(, "protect_type": "password")"), "protect_password",
     "condition"},
    {"set_password_empty", "", "set",
     SET(R"(, "protect_type": "password", "protect_password": "")"), "protect_password",
     "condition"},
    {"set_password_empty_unused", "", "set", SET(R"(, "protect_password": "")"), nullptr, nullptr},
    {"set_protect_upper_case", "", "set", SET(R"(, "protect_type": "PASSWORD")"), "protect_type",
     "condition"},
    {"set_negative_times", "", "set", SET(R"(, "expire_times": -1)"), "expire_times", "condition"},
    {"set_zero_times", "", "set", SET(R"(, "expire_times": 0)"), nullptr, nullptr},
};
#undef SET

INSTANTIATE_TEST_SUITE_P(Methods, ParamCheckTest, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace VELT
