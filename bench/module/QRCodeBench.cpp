// bench-qrcode: GenerateQRCode compared with a bare run of the same program, in a small process and
// in one that holds 200 MiB. The two alternate, so that a busy machine slows both equally.
#include <cstdio>
#include <string>
#include <vector>

#include "bench/module/Floors.h"
#include "module/LinkAddress.h"

namespace {

void Compare(const char* what) {
  const std::string url = "http://127.0.0.1:8080/sharing/0123456789012345678901";
  std::vector<double> ours;
  std::vector<double> bare;
  for (int round = 0; round < 600; ++round) {
    std::string image;
    ours.push_back(bench::Time(1, [&] { VELT::GenerateQRCode(url, image); })[0]);
    bare.push_back(bench::Time(1, [&] { bench::BareQRCode(url); })[0]);
  }
  const double ours_median = bench::Median(ours);
  const double bare_median = bench::Median(bare);
  std::printf("%-24s GenerateQRCode %7.0f us   bare %7.0f us   ratio %.3f (at most 1.05)\n", what,
              ours_median, bare_median, ours_median / bare_median);
}

}  // namespace

int main() {
  Compare("small process");
  const std::vector<char> ballast(200 << 20, 'x');
  Compare("process of 200 MiB");
  return ballast.back() == 'x' ? 0 : 1;
}
