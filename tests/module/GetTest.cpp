// Who may read and delete a link.
#include <dlfcn.h>

#include <string>

#include "tests/module/Fixture.h"
#include "tests/support/Json.h"
#include "veltsharing/SharingDB.h"

namespace VELT {
namespace {

// The link whose token the store returns instead of the one that it is asked for; null: that one.
const sharing::record::Entry* g_token_of = nullptr;

}  // namespace

// Intercepts the store's function.
bool sharing::db::TokenDB::GetBySessionEntry(const record::Session& session,
                                             const record::Entry& entry,
                                             record::Token& token) const {
  constexpr const char* kName =
      "_ZNK4VELT7sharing2db7TokenDB17GetBySessionEntryERKNS0_6record7SessionERKNS3_5EntryERNS3_"
      "5TokenE";
  using Function =
      bool (*)(const TokenDB*, const record::Session&, const record::Entry&, record::Token&);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, kName));
  return next(this, session, g_token_of != nullptr ? *g_token_of : entry, token);
}

namespace {

class GetTest : public ModuleTest {
 protected:
  Answer On(const char* method, const std::string& link) {
    return Sharing(method, Object({{"sharing_id", link}}));
  }
};

TEST_F(GetTest, OwnerAndAdministratorReadAndDelete) {
  const std::string id = Create();
  As(kBob);
  for (const char* method : {"get", "delete"}) {
    EXPECT_EQ(On(method, id).code, kErrorOwner);
    EXPECT_EQ(On(method, id).body, "Execute Error: invalid owner");
    EXPECT_EQ(On(method, "unknown").code, kErrorSharingID);
    EXPECT_EQ(On(method, "unknown").body, "Execute Error: invalid sharing id");
  }
  As(kAdmin, true);
  EXPECT_EQ(On("get", id).body["sharing_id"], id);
  const Answer answer = On("delete", id);
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.body, Json::Value(""));
  As(kAlice);
  EXPECT_EQ(On("get", id).code, kErrorSharingID);
  EXPECT_EQ(Rows("link"), 0);
}

TEST_F(GetTest, VisitorReadsByItsTokenForThatLink) {
  const std::string id = Create();
  const std::string other = Create();
  const std::string sid = Login(id);
  Answer answer = Sharing("get", "{}");
  EXPECT_EQ(answer.body["sharing_id"], id);
  EXPECT_FALSE(answer.body.isMember("private_data"));

  EXPECT_EQ(On("get", other).body, "Execute Error: no token");
  EXPECT_EQ(On("get", other).code, kErrorSharingSession);
  AsVisitor(other, sid);
  EXPECT_EQ(Sharing("get", "{}").body, "Execute Error: no token");
  AsVisitor(id, "chosen-by-the-visitor");
  EXPECT_EQ(Sharing("get", "{}").body, "Execute Error: invalid sharing session_id");
  EXPECT_EQ(On("get", "unknown").code, kErrorSharingID);

  AsVisitor(id, sid);
  sharing::record::Entry visited;
  sharing::db::EntryDB(*sharing::db::SharingDB::Instance()).GetByHash(id, visited);
  g_token_of = &visited;
  answer = On("get", other);
  g_token_of = nullptr;
  EXPECT_EQ(answer.code, kErrorSharingID);
  EXPECT_EQ(answer.body, "Execute Error: err token");
}

TEST_F(GetTest, VisitEndsWithItsSessionOrItsLink) {
  const std::string id = Create({{"expire_at", "2023-11-15 12:00:00"}});
  const auto refusal = [this] {
    const Answer answer = Sharing("get", "{}");
    EXPECT_EQ(answer.code, kErrorSharingSession);
    return answer.body.asString();
  };
  Login(id);
  EXPECT_EQ(Sharing("get", "{}").code, 0);
  EXPECT_EQ(Sharing("logout", "{}").code, 0);
  EXPECT_EQ(refusal(), "Execute Error: invalid sharing session_id");

  Login(id);
  Pass(14 * 3600);
  EXPECT_EQ(refusal(), "Execute Error: no token");  // the link has ended, the session has not
  Pass(24 * 3600);
  EXPECT_EQ(refusal(), "Execute Error: invalid sharing session_id");
}

}  // namespace
}  // namespace VELT
