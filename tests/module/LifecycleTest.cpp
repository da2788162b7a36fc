// The exported tables, the steps of a method, and the answer when a step fails.
#include <dlfcn.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "module/SharingAPI.h"
#include "tests/module/Fixture.h"
#include "tests/support/Json.h"
#include "tests/support/SyslogCapture.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"
#include "veltwebapi/ResponseState.h"

extern "C" const VELT::APITableEntry* GetAPITable();
extern "C" const VELT::APICheckTableEntry* GetAPICheckTable();

namespace VELT {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <typename Row>
std::vector<std::string> Names(const Row* row) {
  std::vector<std::string> names;
  for (; row->api != nullptr; ++row) {
    names.push_back(std::string(row->api) + " " + std::to_string(row->version) + " " + row->method);
  }
  EXPECT_TRUE(row->method == nullptr && row->version == 0);
  return names;
}

TEST(TablesTest, RowsStandInTheirOrder) {
  EXPECT_THAT(Names(GetAPITable()),
              ElementsAre("VELT.Core.Sharing.Login 1 login", "VELT.Core.Sharing.Initdata 1 get",
                          "VELT.Core.Sharing.Session 1 get", "VELT.Core.Sharing 1 logout",
                          "VELT.Core.Sharing 1 get", "VELT.Core.Sharing 1 set",
                          "VELT.Core.Sharing 1 delete", "VELT.Core.Sharing 1 list",
                          "VELT.Core.Sharing 1 trigger_gc"));
  EXPECT_THAT(Names(GetAPICheckTable()),
              ElementsAre("VELT.Core.Sharing.Session 1 get", "VELT.Core.Sharing.Initdata 1 get",
                          "VELT.Core.Sharing.Login 1 login", "VELT.Core.Sharing 1 set",
                          "VELT.Core.Sharing 1 get", "VELT.Core.Sharing 1 list",
                          "VELT.Core.Sharing 1 trigger_gc", "VELT.Core.Sharing 1 logout",
                          "VELT.Core.Sharing 1 delete"));
  for (const APICheckTableEntry* row = GetAPICheckTable();; ++row) {
    EXPECT_TRUE(row->unused_first == nullptr && row->unused_second == nullptr);
    EXPECT_EQ(row->check == nullptr, row->api == nullptr);
    if (row->api == nullptr) break;
  }
  EXPECT_EQ(GetAPITable()[9].handler, nullptr);
  // The framework reads rows by this layout.
  EXPECT_EQ(sizeof(APITableEntry), 4 * sizeof(void*));
  EXPECT_EQ(sizeof(APICheckTableEntry), 6 * sizeof(void*));
}

std::vector<std::string> g_steps;

class Method : public SharingAPIBase {
 public:
  using SharingAPIBase::SharingAPIBase;
  ~Method() override { g_steps.push_back("end, lines logged: " + std::to_string(Log().size())); }
  int ParseParams() override { return Step("parse"); }
  int Execute() override { return Step("execute"); }
  int FormOutput() override {
    result_["done"] = true;
    return Step("form");
  }

  inline static std::string failing_step;

 private:
  int Step(const char* name) {
    g_steps.emplace_back(name);
    if (failing_step == std::string(name) + " throws") throw std::runtime_error("x");
    if (failing_step == std::string(name) + " throws a number") throw 1;
    return failing_step == name ? Fail(kErrorStore, "x") : 0;
  }
};

class FailsToStart : public SharingAPIBase {
 public:
  FailsToStart(APIRequest* request, APIResponse* response) : SharingAPIBase(request, response) {
    throw std::runtime_error("x");
  }
  ~FailsToStart() override { g_steps.emplace_back("end"); }
};

template <typename T>
ResponseState Handle(const std::string& failing_step) {
  Log().clear();
  g_steps.clear();
  Method::failing_step = failing_step;
  APIResponse response;
  SharingAPIHandler<T>(nullptr, &response);
  return response.state();
}

TEST(HandlerTest, AnswersWithTheResultOrTheFirstFailure) {
  const ResponseState success = Handle<Method>("");
  EXPECT_EQ(success.outcome, ResponseState::Outcome::kSuccess);
  EXPECT_EQ(success.body, Parse(R"({"done": true})"));
  EXPECT_THAT(g_steps, ElementsAre("parse", "execute", "form", "end, lines logged: 0"));

  EXPECT_EQ(Handle<Method>("parse").body, "Parse Param Error: x");
  EXPECT_THAT(g_steps, ElementsAre("parse", "end, lines logged: 0"));
  EXPECT_EQ(Handle<Method>("execute").body, "Execute Error: x");
  EXPECT_EQ(Handle<Method>("form").body, "Format Output Error: x");
  EXPECT_EQ(Handle<Method>("form").error_code, kErrorStore);
  EXPECT_EQ(Handle<SharingAPIBase>("").body, Json::Value());
}

TEST(HandlerTest, LogsAnExceptionBeforeTheObjectEnds) {
  EXPECT_EQ(Handle<Method>("execute throws").outcome, ResponseState::Outcome::kNone);
  EXPECT_THAT(Log(), ElementsAre("3 SharingAPI:157 Fatal Error: x"));
  EXPECT_THAT(g_steps, ElementsAre("parse", "execute", "end, lines logged: 1"));

  for (const char* step : {"parse", "execute"}) {
    EXPECT_THROW(Handle<Method>(std::string(step) + " throws a number"), int);
    EXPECT_THAT(Log(), IsEmpty());
  }

  EXPECT_EQ(Handle<FailsToStart>("").outcome, ResponseState::Outcome::kNone);
  EXPECT_THAT(Log(), ElementsAre("3 SharingAPI:157 Fatal Error: x"));
  EXPECT_THAT(g_steps, IsEmpty());
}

TEST(LibraryTest, LoadsByItself) {
  void* library = dlopen(VELT_MODULE, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  using Table = const APITableEntry* (*)();
  const auto get_table = reinterpret_cast<Table>(dlsym(library, "GetAPITable"));
  ASSERT_NE(get_table, nullptr);
  EXPECT_EQ(get_table(), dlsym(library, "gTable"));
  EXPECT_EQ(dlclose(library), 0);
}

}  // namespace
}  // namespace VELT
