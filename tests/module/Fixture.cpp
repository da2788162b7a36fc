#include "tests/module/Fixture.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "platform/store/sql/Dialect.h"
#include "veltsharing/StoreOptions.h"
#include "veltsharing/View.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"
#include "veltwebapi/ResponseState.h"

extern "C" {

const VELT::APITableEntry* GetAPITable();
const VELT::APICheckTableEntry* GetAPICheckTable();

}  // extern "C"

namespace VELT {
namespace {

template <typename Row>
const Row* Find(const Row* row, const std::string& api, const std::string& method) {
  while (row->api != nullptr && (api != row->api || method != row->method)) ++row;
  return row;
}

// Runs `action` with standard output going to a file, and returns what it wrote.
template <typename Action>
std::string Capture(Action action) {
  std::fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  FILE* file = std::tmpfile();
  dup2(fileno(file), STDOUT_FILENO);
  action();
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  std::rewind(file);
  std::string text(1 << 20, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file));
  std::fclose(file);
  return text;
}

}  // namespace

ModuleTest::ModuleTest() {
  std::string pattern = (std::filesystem::temp_directory_path() / "velt-module-XXXXXX").string();
  folder_ = mkdtemp(pattern.data());
  connection_ = "sqlite3 " + (folder_ / "sharing.db").string();
  if (const char* server = std::getenv("VELT_TEST_POSTGRESQL"); server != nullptr) {
    connection_ = std::string("postgresql ") + server + " options=-csearch_path=velt_test";
    ExecuteSql("set client_min_messages = warning; drop schema if exists velt_test cascade");
    ExecuteSql("create schema velt_test");
  }
  OpenStore();
  EXPECT_TRUE(sharing::CreateStore());
  Log().clear();
  As(kAlice);
}

ModuleTest::~ModuleTest() {
  sharing::ConfigureStore({});
  std::filesystem::remove_all(folder_);
}

void ModuleTest::As(unsigned int uid, bool admin) {
  caller_ = {};
  caller_.login_uid = uid;
  caller_.is_admin = admin;
  caller_.base_url = "https://nas.example";
  caller_.language = "ger";
  caller_.view = {sharing::View::Of::kOwner};
}

void ModuleTest::AsVisitor(const std::string& link, const std::string& sid,
                           const std::string& address) {
  caller_ = {};
  caller_.is_sharing = true;
  caller_.sharing_id = link;
  caller_.sharing_sid = sid;
  caller_.base_url = "https://nas.example";
  if (!sid.empty()) caller_.cookies["sharing_sid"] = sid;
  caller_.view = sharing::VisitorView(address);
}

Answer ModuleTest::Call(const std::string& api, const std::string& method,
                        const Json::Value& parameters, bool checked) {
  auto context = std::make_unique<RequestContext>(caller_);
  const Json::Value all = parameters.isString() ? Parse(parameters.asString()) : parameters;
  for (const std::string& name : all.getMemberNames()) {
    context->parameters[name] = {true, all[name], ""};
  }
  if (context->is_sharing) {
    context->visit = sharing::FindVisit(context->sharing_id, context->sharing_sid);
  }
  APIRequest request(std::move(context));
  APIResponse response;
  Answer answer;
  answer.handled = !checked || Find(GetAPICheckTable(), api, method)->check(&request, &response);
  if (answer.handled) {
    answer.printed =
        Capture([&] { Find(GetAPITable(), api, method)->handler(&request, &response); });
  }
  const ResponseState& state = response.state();
  answer.raw = !state.output_enabled;
  answer.code = state.outcome == ResponseState::Outcome::kError ? state.error_code : 0;
  answer.body = state.body;
  for (const Cookie& cookie : state.cookies) {
    answer.cookie += cookie.name + "=" + cookie.value + "; " + cookie.path + "; " +
                     std::to_string(cookie.lifetime) + "; " + cookie.domain + "; " +
                     (cookie.secure ? "secure" : "");
  }
  EXPECT_TRUE(answer.raw || answer.handled || answer.code == kErrorCheck);
  return answer;
}

std::string ModuleTest::Create(const Members& members) {
  const Answer answer = Sharing("set", Object(members, Object({{"project_name", "album"}})));
  EXPECT_EQ(answer.code, 0) << answer.body;
  return answer.body["sharing_id"].asString();
}

Answer ModuleTest::TryLogin(const std::string& link, const Members& credentials) {
  AsVisitor(link, "");
  return Call("VELT.Core.Sharing.Login", "login",
              Object(credentials, Object({{"sharing_id", link}})));
}

std::string ModuleTest::Login(const std::string& link, const Members& credentials) {
  const Answer answer = TryLogin(link, credentials);
  EXPECT_EQ(answer.code, 0) << answer.body;
  const std::string sid = answer.body["sharing_sid"].asString();
  AsVisitor(link, sid);
  return sid;
}

void ModuleTest::OpenStore() {
  sharing::ConfigureStore({connection_, [this] { return now_; }});
}

void ModuleTest::BreakStore() {
  sharing::ConfigureStore({});
  if (IsSqlite()) {
    std::ofstream(folder_ / "sharing.db") << std::string(10000, 'x');
  } else {
    ExecuteSql("drop table schema_version");
  }
  OpenStore();
}

void ModuleTest::Refuse(const std::string& event) const {
  const std::string trigger = "create trigger refusal before " + event + " on link ";
  if (IsSqlite()) {
    ExecuteSql(trigger + "begin select raise(abort, 'refused'); end");
    return;
  }
  ExecuteSql(
      "create function refuse() returns trigger language plpgsql as "
      "'begin raise exception ''refused''; end'");
  ExecuteSql(trigger + "for each row execute function refuse()");
}

void ModuleTest::RefuseNoMore() const {
  ExecuteSql(IsSqlite() ? "drop trigger refusal" : "drop function refuse cascade");
}

void ModuleTest::ExecuteSql(const std::string& sql) const {
  *sharing::db::OpenSession(connection_) << sql;
}

int ModuleTest::Rows(const std::string& table, const std::string& where) const {
  int count = 0;
  *sharing::db::OpenSession(connection_) << "select count(*) from " << table << " where " << where,
      soci::into(count);
  return count;
}

}  // namespace VELT
