// What the administrator lets people share: /usr/velt/etc/files.json, read for each request.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/files/Ids.h"

namespace VELT::files {

struct Root {
  std::string name;   // in links; never changed
  std::string title;  // for people
  std::string path;   // absolute, with the account's name in place of "{user}"
};

class Configuration {
 public:
  //   {"roots": [{"name": TEXT, "title": TEXT, "path": PATH, "{user}" in it the account's name,
  //               "users": [NAMES], "groups": [NAMES]; both absent: for everybody}],
  //    "spool": PATH of root's own folder on the same file system as the roots,
  //    "accel_prefix": what X-Accel-Redirect begins with; absent: X-Sendfile is used,
  //    "reserve": BYTES, see ReserveOf}
  //
  // A missing or malformed file gives no roots; what is wrong is logged, and told by `fault`.
  Configuration();

  // The roots that the account may use.
  std::vector<Root> RootsOf(const Account& account) const;
  // Throws Refusal(kNoRoot).
  Root RootOf(const Account& account, const std::string& name) const;

  bool has_roots() const { return !rules_.empty(); }
  // What is wrong with the file; empty: nothing.
  const std::string& fault() const { return fault_; }
  const std::string& spool() const { return spool_; }
  const std::string& accel_prefix() const { return accel_prefix_; }
  // The bytes that uploads leave free on a file system of `total` bytes. Without a configured number
  // a twentieth and at least 1 GiB, but no more than a fifth.
  std::int64_t ReserveOf(std::int64_t total) const;

 private:
  struct Rule {
    Root root;
    bool for_everybody;
    std::vector<std::string> users;
    std::vector<std::string> groups;
  };

  void NoteFault(const char* text);

  std::vector<Rule> rules_;
  std::string fault_;
  std::string spool_;
  std::string accel_prefix_;
  std::optional<std::int64_t> reserve_;
};

}  // namespace VELT::files
