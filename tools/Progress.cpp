#include "tools/Progress.h"

#include <cstdio>
#include <utility>

namespace VELT::tools {
namespace {

constexpr long long kWidth = 40;

}  // namespace

Progress::Progress(std::string name, long long total, bool show)
    : name_(std::move(name)), total_(total), show_(show) {
  Draw();
}

Progress::~Progress() {
  if (show_) std::fputc('\n', stderr);
}

void Progress::Step() {
  ++done_;
  const long long percent = done_ * 100 / total_;
  if (percent == percent_) return;
  percent_ = percent;
  Draw();
}

void Progress::Draw() const {
  if (!show_) return;
  const long long filled = total_ == 0 ? kWidth : done_ * kWidth / total_;
  std::fprintf(stderr, "\r%-16s [%s%s] %lld of %lld", name_.c_str(),
               std::string(static_cast<std::size_t>(filled), '#').c_str(),
               std::string(static_cast<std::size_t>(kWidth - filled), ' ').c_str(), done_, total_);
  std::fflush(stderr);
}

}  // namespace VELT::tools
