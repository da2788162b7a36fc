// The appliance's settings, a file of `key="value"` lines (see KeyFile.h) at
// /usr/velt/etc/velt.conf.
#pragma once

#include <map>
#include <string>

// The settings at the time of the constructor. A file that is missing or can't be read has none. An
// object never changes, so several threads may use it at once.
class VeltConf {
 public:
  VeltConf();

  // The value of `key`, or `fallback` when there is none. Neither may be null.
  std::string Info(const char* key, const char* fallback) const;

 private:
  std::map<std::string, std::string> values_;
};
