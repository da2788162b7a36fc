// owner: owners without an account of the system. The system finds them through NSS's module extrausers, which can't
// give them a login; PAM's module pwdfile knows their passwords, which so open this service alone.
#include <crypt.h>
#include <fcntl.h>
#include <sodium.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "tools/Command.h"
#include "tools/Database.h"
#include "veltsys/Accounts.h"
#include "veltsys/Descriptor.h"
#include "veltsys/User.h"

namespace VELT::tools {
namespace {

constexpr const char* kAccounts = "/var/lib/extrausers/passwd";
constexpr const char* kPasswords = "/usr/velt/etc/owners";
// Ordinary numbers, which adduser(8) reaches last, and which exist in containers too.
constexpr uid_t kFirstUid = 50000;
constexpr uid_t kLastUid = 59999;
constexpr const char* kUsersGroup = "100";
constexpr std::size_t kShortestPassword = 8;
constexpr std::size_t kLongestPassword = CRYPT_MAX_PASSPHRASE_SIZE - 1;

std::string NameIn(const std::string& row) { return row.substr(0, row.find(':')); }

// A file of lines that begin with an account's name and a colon. What one writes replaces it in one step.
class AccountFile {
 public:
  // `mode`: of a new file; one that exists keeps its mode and owner.
  AccountFile(const char* path, mode_t mode) : path_(path) {
    const bool exists = stat(path, &status_) == 0;
    if (!exists) status_.st_mode = mode;
    std::ifstream file(path);
    if (exists && !file) throw Failure(path_ + " can't be read");
    for (std::string row; std::getline(file, row);) rows_.push_back(row);
    if (file.bad()) throw Failure(path_ + " can't be read");
  }

  const std::vector<std::string>& rows() const { return rows_; }

  bool Has(const std::string& name) const {
    return std::any_of(rows_.begin(), rows_.end(),
                       [&name](const std::string& row) { return NameIn(row) == name; });
  }

  void Remove(const std::string& name) {
    rows_.erase(std::remove_if(rows_.begin(), rows_.end(),
                               [&name](const std::string& row) { return NameIn(row) == name; }),
                rows_.end());
  }

  void Set(const std::string& row) {
    Remove(NameIn(row));
    rows_.push_back(row);
  }

  void Write() const {
    const std::string fresh = path_ + ".new";
    unlink(fresh.c_str());
    const Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    std::string text;
    for (const std::string& row : rows_) text += row + "\n";
    const bool written =
        file.get() >= 0 &&
        write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        fchown(file.get(), status_.st_uid, status_.st_gid) == 0 &&
        fchmod(file.get(), status_.st_mode & 07777) == 0 && fsync(file.get()) == 0 &&
        rename(fresh.c_str(), path_.c_str()) == 0;
    if (!written) throw Failure(path_ + " can't be written: " + std::strerror(errno));
  }

 private:
  std::string path_;
  struct stat status_ {};
  std::vector<std::string> rows_;
};

// Only one command at a time changes the files.
class Lock {
 public:
  Lock() : folder_(open("/var/lib/extrausers", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (geteuid() != 0) throw Failure("only root can change owners");
    if (folder_.get() < 0)
      throw Failure("/var/lib/extrausers is missing: apt install libnss-extrausers");
    if (flock(folder_.get(), LOCK_EX) != 0) throw Failure(std::strerror(errno));
  }

 private:
  Descriptor folder_;
};

}  // namespace

std::string AskPassword(const std::string& whose) {
  // getpass(3) has no limit in glibc, asks at the terminal and reads standard input without one.
  const auto ask = [](const std::string& prompt) {
    char* typed = getpass(prompt.c_str());  // NOLINT(concurrency-mt-unsafe): there is one thread
    if (typed == nullptr) throw Failure("no password was given");
    std::string text = typed;
    sodium_memzero(typed, text.size());
    return text;
  };
  const std::string password = ask("Password of " + whose + ": ");
  if (password.size() < kShortestPassword || password.size() > kLongestPassword) {
    throw Failure("a password has " + std::to_string(kShortestPassword) + " to " +
                  std::to_string(kLongestPassword) + " bytes");
  }
  if (ask("Once more: ") != password) throw Failure("the two passwords differ");
  return password;
}

namespace {

// A row for PAM's module, with the system's preferred way to hash.
std::string PasswordRow(const std::string& name, const std::string& password) {
  crypt_data data{};
  const char* setting = crypt_gensalt_rn(nullptr, 0, nullptr, 0, data.output, sizeof data.output);
  const std::string salt = setting != nullptr ? setting : "";
  const char* hash = crypt_r(password.c_str(), salt.c_str(), &data);
  if (hash == nullptr || *hash == '*') throw Failure("the password can't be hashed");
  return name + ":" + hash;
}

// As adduser(8) takes them.
bool IsAccountName(const std::string& name) {
  const auto is_small = [](char c) { return c >= 'a' && c <= 'z'; };
  return !name.empty() && name.size() <= 32 && (is_small(name[0]) || name[0] == '_') &&
         std::all_of(name.begin(), name.end(), [&](char c) {
           return is_small(c) || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
         });
}

// One that no account has and none had whose links or sessions are still there.
uid_t FreeUid(const HostOptions& options) {
  const auto sql = OpenDatabase(options.database);
  std::set<long long> used;
  long long uid = 0;
  soci::statement rows =
      (sql->prepare << "select owner_uid from link union select uid from owner_account",
       soci::into(uid));
  rows.execute();
  while (rows.fetch()) used.insert(uid);
  for (uid_t candidate = kFirstUid; candidate <= kLastUid; ++candidate) {
    if (used.count(candidate) == 0 && !accounts::FindUser(candidate)) return candidate;
  }
  throw Failure("no number is left for a further account");
}

AccountFile Accounts() { return {kAccounts, 0644}; }
AccountFile Passwords() { return {kPasswords, 0600}; }

void MustBeOurs(const std::string& name) {
  if (!Accounts().Has(name)) throw Failure(name + " is no owner that velt-sharing has added");
}

}  // namespace

Json::Value AddOwner(const HostOptions& options, const std::string& name) {
  const Lock lock;
  if (!IsAccountName(name)) {
    throw Failure(
        "a name has up to 32 small letters, digits and _ - . and begins with a letter or _");
  }
  if (accounts::FindUser(name) || Accounts().Has(name))
    throw Failure("there is an account " + name);
  const uid_t uid = FreeUid(options);
  AccountFile passwords = Passwords();
  passwords.Set(PasswordRow(name, AskPassword(name)));
  AccountFile added = Accounts();
  // Without a password of the system, and without a shell.
  added.Set(name + ":*:" + std::to_string(uid) + ":" + kUsersGroup +
            "::/nonexistent:/usr/sbin/nologin");
  passwords.Write();
  added.Write();
  if (!accounts::FindUser(name)) {
    throw Failure("the system does not find " + name +
                  " yet: add the word extrausers to the line passwd of /etc/nsswitch.conf");
  }
  Json::Value result;
  result["name"] = name;
  result["uid"] = uid;
  return result;
}

Json::Value ChangePassword(const HostOptions& /*options*/, const std::string& name) {
  const Lock lock;
  AccountFile passwords = Passwords();
  if (!accounts::FindUser(name)) throw Failure("no account is called " + name);
  passwords.Set(PasswordRow(name, AskPassword(name)));
  passwords.Write();
  return Json::Value(Json::objectValue);
}

Json::Value RemoveOwner(const HostOptions& options, const std::string& name) {
  const Lock lock;
  MustBeOurs(name);
  const auto user = accounts::FindUser(name);
  const auto sql = OpenDatabase(options.database);
  for (AccountFile file : {Passwords(), Accounts()}) {
    file.Remove(name);
    file.Write();
  }
  // Sessions and tokens, which another account of this name must not find.
  *sql << "delete from owner_account where name = :name", soci::use(name);
  Json::Value result;
  result["links"] = Json::Int64{user ? Number(*sql, "select count(*) from link where owner_uid = " +
                                                        std::to_string(user->uid))
                                     : 0};
  return result;
}

Json::Value ListOwners(const HostOptions& /*options*/) {
  Json::Value result;
  result["owners"] = Json::Value(Json::arrayValue);
  const AccountFile passwords = Passwords();
  const AccountFile added = Accounts();
  for (const std::string& row : added.rows()) {
    const auto user = accounts::FindUser(NameIn(row));
    if (!user) continue;
    Json::Value owner;
    owner["name"] = user->name;
    owner["uid"] = user->uid;
    owner["administrator"] = accounts::IsAdministrator(*user);
    owner["password"] = passwords.Has(user->name);
    result["owners"].append(owner);
  }
  return result;
}

}  // namespace VELT::tools
