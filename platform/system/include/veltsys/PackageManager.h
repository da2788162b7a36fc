// The state of installed packages. Each has a folder /usr/velt/var/packages/<id>/, and runs while
// the file "running" stands there.
#pragma once

#include <string>

namespace VELTPackageTool {

// Holds no state; several threads may use it at once.
class PackageManager {
 public:
  // Whether the package runs. False for an id that is empty, ".", ".." or holds a slash or NUL
  // byte, and when the state can't be read: the caller needs the right to look into the package's
  // folder.
  bool isStarted(const std::string& packageId);
};

}  // namespace VELTPackageTool
