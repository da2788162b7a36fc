#include "veltsys/PackageManager.h"

#include <sys/stat.h>

#include "veltsys/Text.h"

namespace VELTPackageTool {

bool PackageManager::isStarted(const std::string& packageId) {
  if (!VELT::IsFileName(packageId)) return false;
  struct stat status {};
  const std::string file = "/usr/velt/var/packages/" + packageId + "/running";
  return lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace VELTPackageTool
