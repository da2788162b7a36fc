#include "veltsys/PackageManager.h"

#include <sys/stat.h>

namespace VELTPackageTool {

bool PackageManager::isStarted(const std::string& packageId) {
  const bool plain = !packageId.empty() && packageId != "." && packageId != ".." &&
                     packageId.find_first_of(std::string("/\0", 2)) == std::string::npos;
  if (!plain) return false;
  struct stat status {};
  const std::string file = "/usr/velt/var/packages/" + packageId + "/running";
  return lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace VELTPackageTool
