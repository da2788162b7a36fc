// What the listings of owners and of visitors have in common.
#include <sys/stat.h>

#include <string>

#include "apps/files/Methods.h"
#include "apps/files/Names.h"
#include "apps/files/Refusal.h"
#include "apps/files/Share.h"
#include "apps/files/Tree.h"

namespace VELT::files {

Order OrderOf(const std::string& by, const std::string& direction) {
  return {by == "size"   ? Order::By::kSize
          : by == "time" ? Order::By::kTime
          : by == "type" ? Order::By::kType
                         : Order::By::kName,
          direction == "DESC"};
}

Json::Value ToJson(const std::string& name, const struct stat& status, const std::string& path) {
  Json::Value row;
  row["name"] = ToText(name);
  row["path"] = path;
  row["time"] = static_cast<Json::Int64>(status.st_mtim.tv_sec);
  row["type"] = S_ISDIR(status.st_mode) ? "folder" : "file";
  if (S_ISREG(status.st_mode)) {
    row["size"] = static_cast<Json::Int64>(status.st_size);
    row["kind"] = MediaTypeOf(name).kind;
  }
  return row;
}

void MustShow(const Share& share) {
  if (share.upload().only) throw Refusal(kNotFound);
}

}  // namespace VELT::files
