// The folder in which files wait for the web server, and uploads until they are whole. It is root's,
// and nobody else can list it or change a name in it.
#pragma once

#include <string>

#include "Configuration.h"
#include "veltsys/Descriptor.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {

class Spool {
 public:
  // Throws Refusal(kUnavailable), with a log line, when there is no such folder, or somebody else
  // could change it. The configuration must outlive the object.
  explicit Spool(const Configuration& configuration);

  // Hands an opened file to the web server: returns the header line. The web server is given a name
  // of the file's own inode, so that what is sent is what was checked, whatever became of its path
  // meanwhile. The name goes when the answer has been taken. The web server reads the file with its
  // own account: throws Refusal(kUnavailable), with a log line, where that may not read it.
  std::string HandOver(const Descriptor& file, APIResponse& response) const;
  // The same for a program with the service's account: returns the file's path.
  std::string Offer(const Descriptor& file, APIResponse& response) const;
  // The header line for a file that stands in the spool already, under a name that stays.
  std::string HeaderFor(const std::string& name) const;

  // Makes a folder in it unless it is there: root's own, or the service's. Throws
  // Refusal(kUnavailable).
  enum class For { kRoot, kService };
  void MakeFolder(const std::string& name, For whom) const;

  int folder() const { return folder_.get(); }
  std::string PathOf(const std::string& name) const { return configuration_.spool() + "/" + name; }

 private:
  const Configuration& configuration_;
  const Descriptor folder_;
};

// 32 digits that nobody can guess.
std::string RandomName();

}  // namespace VELT::files
