// A visitor's login compared with the same statements by hand, with the same durability, and for a
// link with a password with one run of Argon2id. Aim: at most 1.1 times that.
#include "veltsharing/Login.h"

#include <sodium.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <utility>
#include <vector>

#include "bench/store/Bench.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/StoreOptions.h"
#include "veltsharing/View.h"

namespace {

using VELT::sharing::db::EntryDB;
using VELT::sharing::db::SharingDB;
using VELT::sharing::record::Entry;

constexpr const char* kPassword = "correct horse";
constexpr const char* kAddress = "192.0.2.7";
constexpr long kOwner = 0;  // must be in the user database

std::string MakeLink(bool password) {
  VELT::sharing::View view{VELT::sharing::View::Of::kOwner};
  const VELT::sharing::Viewing viewing(view);
  EntryDB links(*SharingDB::Instance());
  Entry entry;
  entry.set_owner_uid(kOwner);
  entry.set_project_name("bench");
  if (password) {
    entry.set_protect_type(Entry::ProtectType::kPassword);
    entry.set_protect_password(kPassword, true, Entry::PasswordEncryptAlgo::kArgon2id);
  }
  if (!links.CreateWithHash(entry)) throw std::runtime_error("no link");
  return entry.get_hash();
}

double LibraryLogin(const std::string& link) {
  const _tag_sharing_login_params params{link.c_str(), kPassword, "", "", nullptr};
  std::string sid;
  return bench::Microseconds([&] {
    if (VeltSharingLogin(sid, &params, false) != 1) throw std::runtime_error("no login");
  });
}

// The statements, prepared once, on a connection set up as the store's.
class ByHand {
 public:
  ByHand(const std::string& file, std::string link) : link_(std::move(link)) {
    bench::Check(sqlite3_open(file.c_str(), &database_));
    bench::Execute(
        database_,
        "pragma journal_mode = wal; pragma synchronous = full; pragma foreign_keys = on");
    for (std::size_t at = 0; at < kStatements.size(); ++at) {
      bench::Check(sqlite3_prepare_v2(database_, kStatements[at], -1, &statements_[at], nullptr));
    }
  }
  ~ByHand() {
    for (sqlite3_stmt* statement : statements_) sqlite3_finalize(statement);
    sqlite3_close(database_);
  }
  ByHand(const ByHand&) = delete;
  ByHand& operator=(const ByHand&) = delete;

  double Login(bool password) {
    return bench::Microseconds([&] {
      Step(kBegin);
      BindText(kLink, 1, link_);
      const auto [id, hash] = ReadLink();
      if (password) {
        Step(kCommit);  // so that nobody waits for the database while the hash is computed
        if (crypto_pwhash_str_verify(hash.c_str(), kPassword, std::string(kPassword).size()) != 0) {
          throw std::runtime_error("a wrong password");
        }
        Step(kBegin);
        BindFailures(kFailures, id);
        BindFailures(kForget, id);
        Step(kFailures);
        Step(kForget);
      }
      sqlite3_bind_int64(statements_[kVisit], 1, id);
      Step(kVisit);
      sqlite3_bind_int64(statements_[kDay], 1, id);
      Step(kDay);
      Step(kDead);
      sqlite3_bind_int64(statements_[kSurplus], 1, id);
      BindText(kSurplus, 2, kAddress);
      Step(kSurplus);
      BindText(kSession, 1, NewSession());
      BindText(kSession, 2, kAddress);
      const auto session = Step(kSession);
      sqlite3_bind_int64(statements_[kToken], 1, session);
      sqlite3_bind_int64(statements_[kToken], 2, id);
      BindText(kToken, 3, kAddress);
      Step(kToken);
      Step(kCommit);
    });
  }

 private:
  enum Statement {
    kBegin,
    kLink,
    kFailures,
    kForget,
    kVisit,
    kDay,
    kDead,
    kSurplus,
    kSession,
    kToken,
    kCommit
  };
  static constexpr std::array kStatements = {
      "begin immediate",
      "select id, password_hash, enabled, start_at, expire_at, expire_times, visits from link "
      "where hash = ?",
      "select count(*) from failed_login where link_id = ? and address = ? and failed_at > 1",
      "delete from failed_login where link_id = ? and address = ? and account = ''",
      "update link set visits = visits + 1 where id = ? and (expire_times = 0 or visits < "
      "expire_times)",
      "insert into visit_day (link_id, day, visits) values (?, 20000, 1) "
      "on conflict (link_id, day) do update set visits = visits + 1",
      "delete from visitor_session where id in (select id from visitor_session where last_used <= "
      "1 "
      "order by last_used limit 100)",
      "delete from visitor_session where id in (select session_id from visitor_token where link_id "
      "= ? "
      "and address = ? order by session_id desc limit 100 offset 999)",
      "insert into visitor_session (sid_hash, address, last_used) values (?, ?, 1700000000) "
      "returning id",
      "insert into visitor_token (session_id, link_id, address) values (?, ?, ?)",
      "commit",
  };

  static std::string NewSession() {
    std::array<unsigned char, 32> bits{};
    randombytes_buf(bits.data(), bits.size());
    std::array<char, 65> text{};
    return sodium_bin2hex(text.data(), text.size(), bits.data(), bits.size());
  }

  void BindText(Statement at, int place, const std::string& text) {
    sqlite3_bind_text(statements_[at], place, text.c_str(), -1, SQLITE_TRANSIENT);
  }
  void BindFailures(Statement at, sqlite3_int64 id) {
    sqlite3_bind_int64(statements_[at], 1, id);
    BindText(at, 2, kAddress);
  }
  std::pair<sqlite3_int64, std::string> ReadLink() {
    sqlite3_stmt* statement = statements_[kLink];
    bench::Check(sqlite3_step(statement));
    std::pair<sqlite3_int64, std::string> link(
        sqlite3_column_int64(statement, 0),
        reinterpret_cast<const char*>(sqlite3_column_text(statement, 1)));
    sqlite3_reset(statement);
    return link;
  }
  sqlite3_int64 Step(Statement at) {
    sqlite3_stmt* statement = statements_[at];
    const int result = sqlite3_step(statement);
    bench::Check(result);
    const sqlite3_int64 value = result == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : 0;
    bench::Check(sqlite3_reset(statement));
    return value;
  }

  std::string link_;
  sqlite3* database_ = nullptr;
  std::array<sqlite3_stmt*, kStatements.size()> statements_{};
};

double Compare(bool password, int runs, double aim) {
  const bench::Folder folder;
  bench::MakeStore(folder.File("hand.db"));
  ByHand by_hand(folder.File("hand.db"), MakeLink(password));
  bench::MakeStore(folder.File("library.db"));
  const std::string link = MakeLink(password);
  VELT::sharing::View view = VELT::sharing::VisitorView(kAddress);
  const VELT::sharing::Viewing viewing(view);

  // The two alternate, so that a busy machine slows both equally.
  std::vector<double> floor;
  std::vector<double> library;
  for (int run = 0; run < runs; ++run) {
    floor.push_back(by_hand.Login(password));
    library.push_back(LibraryLogin(link));
  }
  const double ratio = bench::Median(library) / bench::Median(floor);
  std::printf("%-12s by hand %7.0f us, login %7.0f us, ratio %.2f (aim: at most %.2f)\n",
              password ? "password" : "unprotected", bench::Median(floor), bench::Median(library),
              ratio, aim);
  return ratio / aim;
}

}  // namespace

int main() {
  try {
    if (sodium_init() < 0) throw std::runtime_error("no libsodium");
    const double open = Compare(false, 1001, 1.1);
    const double password = Compare(true, 201, 1.1);
    return std::max(open, password) <= 1 ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
