#include "tests/store/Fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "platform/store/sql/Dialect.h"
#include "veltsharing/Session.h"
#include "veltsharing/Token.h"

namespace VELT::sharing {

std::int64_t StoreTest::now_;

namespace {
constexpr const char* kPostgresql = "VELT_TEST_POSTGRESQL";
}  // namespace

std::vector<std::string> Databases() {
  std::vector<std::string> databases = {"sqlite3"};
  if (!Environment(kPostgresql).empty()) databases.emplace_back("postgresql");
  return databases;
}

void StoreTest::SetUp() {
  folder_ = testing::TempDir() + "store-XXXXXX";
  ASSERT_NE(mkdtemp(folder_.data()), nullptr);
  connection_ = "sqlite3 " + File();
  if (!IsSqlite()) {
    connection_ = "postgresql " + Environment(kPostgresql);
    Execute("drop schema if exists velt_test cascade");
    Execute("create schema velt_test");
    connection_ += " options=-csearch_path=velt_test";
  }
  now_ = 1'800'000'000;
  Log().clear();
  secrets_ = {kPassword, "alice's own"};
  Reopen();
  ASSERT_TRUE(CreateStore());
}

void StoreTest::TearDown() {
  if (IsSqlite()) {
    for (const char* suffix : {"", "-wal"}) {
      std::ifstream file(File(suffix), std::ios::binary);
      const std::string bytes(std::istreambuf_iterator<char>(file), {});
      for (const auto& secret : secrets_) EXPECT_THAT(bytes, Not(testing::HasSubstr(secret)));
    }
  }
  for (const auto& line : Log()) {
    for (const auto& secret : secrets_) EXPECT_THAT(line, Not(testing::HasSubstr(secret)));
    for (const auto& hash : hashes_) EXPECT_THAT(line, Not(testing::HasSubstr(hash)));
  }
  ConfigureStore({});
  std::filesystem::remove_all(folder_);
}

void StoreTest::Execute(const std::string& sql) const { *db::OpenSession(connection_) << sql; }

std::string StoreTest::Select(const std::string& sql) const {
  std::string value;
  *db::OpenSession(connection_) << sql, soci::into(value);
  return value;
}

Entry StoreTest::Make(const Edit& edit) {
  Entry link;
  link.set_owner_uid(kAlice);
  link.set_project_name("album");
  edit(link);
  EXPECT_TRUE(links_.CreateWithHash(link));
  hashes_.push_back(link.get_hash());
  return link;
}

Entry StoreTest::Read(const Entry& link) {
  Entry read;
  EXPECT_TRUE(links_.GetByHash(link.get_hash(), read));
  return read;
}

bool StoreTest::Exists(const Entry& link) {
  Entry read;
  return links_.GetByHash(link.get_hash(), read);
}

bool StoreTest::Change(const Entry& link, const Edit& edit) {
  Entry changed = Read(link);
  edit(changed);
  return links_.Update(changed);
}

Json::Value StoreTest::Shown(const Entry& link) {
  Json::Value shown;
  Read(link).ToJSON(shown);
  return shown;
}

LoginResult StoreTest::LogIn(Visitor& visitor, const Entry& link, const std::string& password,
                             const std::string& account) {
  View view = VisitorView(visitor.address);
  const Viewing viewing(view);
  const std::string sid = visitor.sid;
  const _tag_sharing_login_params params{link.get_hash().c_str(), password.c_str(), account.c_str(),
                                         password.c_str(), sid.empty() ? nullptr : sid.c_str()};
  const auto result = static_cast<LoginResult>(VeltSharingLogin(visitor.sid, &params, false));
  login_wait_ = view.login_wait;
  if (result == kLoggedIn) secrets_.push_back(visitor.sid);
  return result;
}

void StoreTest::ExpectLogIn(LoginResult want, const Entry& link, const std::string& password,
                            const std::string& account) {
  Visitor visitor;
  EXPECT_EQ(LogIn(visitor, link, password, account), want) << password << " " << account;
  EXPECT_EQ(visitor.sid.empty(), want != kLoggedIn);
}

bool StoreTest::MayEnter(const Visitor& visitor, const Entry& link) {
  View view = VisitorView(visitor.address);
  const Viewing viewing(view);
  return FindVisit(link.get_hash(), visitor.sid).is_legal;
}

std::vector<int> StoreTest::InProcesses(int count, const std::function<int(int)>& work) const {
  Reopen();  // no connection may be carried over
  std::vector<pid_t> children;
  for (int index = 0; index < count; ++index) {
    const pid_t child = fork();
    if (child == 0) _exit(work(index));
    children.push_back(child);
  }
  std::vector<int> results;
  for (const pid_t child : children) {
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    results.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
  }
  return results;
}

Edit StartingAt(const std::string& text) {
  return [=](Entry& link) { link.set_start_at_str(text, kFormat); };
}

Edit EndingAt(const std::string& text) {
  return [=](Entry& link) { link.set_expire_at_str(text, kFormat); };
}

Edit WithPassword(const std::string& password, bool plain) {
  return [=](Entry& link) {
    link.set_protect_type(ProtectType::kPassword);
    link.set_protect_password(password, plain, Entry::PasswordEncryptAlgo::kArgon2id);
  };
}

Edit ForUsers(const std::vector<std::string>& users, const std::vector<std::string>& groups) {
  return [=](Entry& link) {
    link.set_protect_type(ProtectType::kUser);
    link.set_protect_users(users);
    link.set_protect_groups(groups);
  };
}

std::string TimeText(std::int64_t time) {
  std::tm parts{};
  const std::time_t seconds = time;
  localtime_r(&seconds, &parts);
  std::array<char, 64> text{};
  return {text.data(), strftime(text.data(), text.size(), kFormat, &parts)};
}

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace VELT::sharing
