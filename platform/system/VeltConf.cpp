#include "veltsys/VeltConf.h"

#include <utility>

#include "platform/system/KeyValues.h"

VeltConf::VeltConf() : values_(VELT::ReadKeyValues("/usr/velt/etc/velt.conf")) {}

std::string VeltConf::Info(const char* key, const char* fallback) const {
  const auto found = values_.find(key);
  return found != values_.end() ? found->second : fallback;
}
