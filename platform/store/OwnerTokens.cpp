#include <string_view>

#include "platform/store/OwnerAccounts.h"
#include "platform/store/Secrets.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Transaction.h"
#include "veltsharing/Owners.h"

namespace VELT::sharing::owners {
namespace {

constexpr std::string_view kPrefix = "velt_";
constexpr std::size_t kChecksumLength = 6;

std::string WithChecksum(const std::string& text) {
  return text + Digest(text).substr(0, kChecksumLength);
}

bool IsWellFormed(const std::string& token) {
  return token.starts_with(kPrefix) && token.size() > kPrefix.size() + kChecksumLength &&
         token.size() < 100 &&
         token == WithChecksum(token.substr(0, token.size() - kChecksumLength));
}

// Names of projects have no line breaks; an empty text means all projects.
std::string Joined(const std::vector<std::string>& projects) {
  std::string text;
  for (const std::string& project : projects) text += project + "\n";
  return text;
}

std::vector<std::string> Split(std::string_view text) {
  std::vector<std::string> projects;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    projects.emplace_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  return projects;
}

}  // namespace

bool FindToken(const std::string& token, std::optional<Owner>& owner) {
  owner.reset();
  if (!IsWellFormed(token)) return true;
  return Run("find an owner's token", [&](db::StoreSession& store) {
    const db::OwnerTokenRow* row = store.statements().FindOwnerToken(Digest(token));
    const long long now = Now();
    if (row == nullptr || (row->expire_at != 0 && row->expire_at <= now)) return true;
    Owner found;
    found.how = Owner::How::kToken;
    found.id = row->id;
    found.account = row->account;
    found.uid = static_cast<unsigned int>(row->uid);
    found.expire_at = row->expire_at;
    found.may_change = row->may_change != 0;
    found.projects = Split(row->projects);
    found.check_due = IsCheckDue(row->checked_at, now);
    // The latest check refused the account.
    if (!found.check_due && row->credential.empty()) return true;
    found.use_due = row->last_used + kNoteEvery <= now;
    owner = found;
    return true;
  });
}

bool ListTokens(const std::string& account, std::vector<TokenRow>& tokens) {
  return Run("list an owner's tokens", [&](db::StoreSession& store) {
    TokenRow row;
    long long may_change = 0;
    std::string projects;
    soci::statement statement =
        (store.sql().prepare
             << "select t.id, t.name, t.may_change, t.projects, t.created_at, t.last_used, "
                "t.expire_at from owner_token t join owner_account a on a.id = t.account_id "
                "where a.name = :name order by t.id",
         soci::into(row.id), soci::into(row.name), soci::into(may_change), soci::into(projects),
         soci::into(row.created_at), soci::into(row.last_used), soci::into(row.expire_at),
         soci::use(account));
    statement.execute();
    while (statement.fetch()) {
      row.may_change = may_change != 0;
      row.projects = Split(projects);
      tokens.push_back(row);
    }
    return true;
  });
}

bool CreateToken(const std::string& account, unsigned int uid, TokenRow& row, std::string& token) {
  // Two link ids hold 262 random bits, of which 43 characters keep 256.
  const std::string fresh =
      WithChecksum(std::string(kPrefix) + (NewLinkId() + NewLinkId()).substr(0, 43));
  const bool created = Run("make an owner's token", [&](db::StoreSession& store) {
    db::Transaction transaction(store);
    const long long owner = EnsureAccount(store, account, uid);
    long long count = 0;
    store.sql() << "select count(*) from owner_token where account_id = :account",
        soci::into(count), soci::use(owner);
    if (count >= static_cast<long long>(kMostTokens)) return false;
    const std::string hash = Digest(fresh);
    const std::string projects = Joined(row.projects);
    const long long may_change = row.may_change ? 1 : 0;
    row.created_at = Now();
    store.sql() << "insert into owner_token (account_id, token_hash, name, may_change, projects, "
                   "created_at, last_used, expire_at) values (:account, :hash, :name, :change, "
                   ":projects, :now, 0, :expire) returning id",
        soci::use(owner), soci::use(hash), soci::use(row.name), soci::use(may_change),
        soci::use(projects), soci::use(row.created_at), soci::use(row.expire_at),
        soci::into(row.id);
    transaction.Commit();
    return true;
  });
  if (created) token = fresh;
  return created;
}

bool DeleteToken(const std::string& account, long long id) {
  return Run("delete an owner's token", [&](db::StoreSession& store) {
    soci::statement statement =
        (store.sql().prepare << "delete from owner_token where id = :id and account_id in "
                                "(select id from owner_account where name = :name)",
         soci::use(id), soci::use(account));
    statement.execute(true);
    return statement.get_affected_rows() == 1;
  });
}

}  // namespace VELT::sharing::owners
