// The appliance's settings, a file of `key="value"` lines (see KeyFile.h) at
// /usr/velt/etc/velt.conf.
#pragma once

#include <map>
#include <string>

// A snapshot of the settings, read by the constructor; a file that is missing or can't be read is
// one without settings. An object may be shared by threads, for it never changes.
class VeltConf {
 public:
  VeltConf();

  // The value of `key`, or `fallback` when the settings lack it.
  std::string Info(const char* key, const char* fallback) const;

 private:
  std::map<std::string, std::string> values_;
};
