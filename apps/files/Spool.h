// The folder in which files wait for the web server, and uploads until they are complete. It
// belongs to root, and nobody else can change a name in it.
#pragma once

#include <sys/stat.h>

#include <string>

#include "apps/files/Configuration.h"
#include "veltsys/Descriptor.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {

class Spool {
 public:
  // Throws Refusal(kUnavailable), with a log line, when there is no such folder, or somebody else
  // could change it. The configuration must outlive the object.
  explicit Spool(const Configuration& configuration);

  // Hands an opened file to the web server and returns the header line. The web server gets a hard
  // link to the file's inode, so it sends the file that was checked, whatever has happened to the
  // path since. Answers of one second share a link, which is removed some seconds after the first.
  // The web server reads the file with its own account: throws Refusal(kUnavailable), with a log
  // line, when that account may not read it.
  // `part` is "FIRST-LAST", or empty for the whole file.
  std::string HandOver(const Descriptor& file, const std::string& part,
                       APIResponse& response) const;
  // The same for a program that runs with the service's account: returns the link's path.
  std::string Offer(const Descriptor& file, APIResponse& response) const;
  // The header line for a file that stays in the spool.
  std::string HeaderFor(const std::string& name, const std::string& part = "") const;
  // The file's ETag. nginx, which makes its own, finds the same.
  std::string TagOf(const struct stat& status) const;

  // Makes a folder in the spool, for root or for the service, unless it exists. Throws
  // Refusal(kUnavailable).
  enum class For { kRoot, kService };
  void MakeFolder(const std::string& name, For whom) const;

  int folder() const { return folder_.get(); }
  std::string PathOf(const std::string& name) const { return configuration_.spool() + "/" + name; }

 private:
  std::string Link(const Descriptor& file, APIResponse& response) const;

  const Configuration& configuration_;
  const Descriptor folder_;
};

// 32 hexadecimal digits that nobody can guess.
std::string RandomName();

}  // namespace VELT::files
