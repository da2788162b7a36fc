// A progress bar on standard error.
#pragma once

#include <string>

namespace VELT::tools {

class Progress {
 public:
  // Draws nothing unless `show`.
  Progress(std::string name, long long total, bool show);
  // Ends the line.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Step();

 private:
  void Draw() const;

  const std::string name_;
  const long long total_;
  const bool show_;
  long long done_ = 0;
  long long percent_ = -1;
};

}  // namespace VELT::tools
