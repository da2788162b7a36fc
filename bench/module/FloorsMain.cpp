// bench-floors qrcode COUNT, or bench-floors writes COUNT DATABASE: the median and the mean microseconds of a bare
// qrencode, or of a create's two writes, for bench/http/bench.py, which runs it between its own measurements.
#include <cstdlib>
#include <iostream>
#include <numeric>
#include <string_view>
#include <vector>

#include "Floors.h"

int main(int argc, char** argv) {
  const std::string_view what = argc > 2 ? argv[1] : "";
  std::vector<double> times;
  if (what == "qrcode") {
    const std::string url = "http://127.0.0.1:8080/sharing/0123456789012345678901";
    times = bench::Time(std::atoi(argv[2]), [&] { bench::BareQRCode(url); });
  } else if (what == "writes" && argc > 3) {
    bench::LinkWriter writer(argv[3]);
    times = bench::Time(std::atoi(argv[2]), [&] { writer.Write(); });
  } else {
    return 2;
  }
  const double sum = std::accumulate(times.begin(), times.end(), 0.0);
  std::cout << bench::Median(times) << " " << sum / static_cast<double>(times.size()) << "\n";
}
