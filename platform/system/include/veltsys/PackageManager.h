// The state of installed packages. Each has a folder /usr/velt/var/packages/<id>/, in which the
// file "running" exists while the package runs.
#pragma once

#include <string>

namespace VELTPackageTool {

// Keeps no state; several threads may use it at once.
class PackageManager {
 public:
  // Whether the package runs. False for an id that is empty, ".", ".." or contains a slash or NUL
  // byte, and when the caller lacks the right to search the package's folder.
  bool isStarted(const std::string& packageId);
};

}  // namespace VELTPackageTool
