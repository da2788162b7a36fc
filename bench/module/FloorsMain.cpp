// bench-floors DATABASE COUNT: the median microseconds of a bare qrencode and of a create's two
// writes, for bench/http/bench.py, which runs it between its own measurements.
#include <cstdlib>
#include <iostream>

#include "Floors.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int count = std::atoi(argv[2]);
  const std::string url = "http://127.0.0.1:8080/sharing/0123456789012345678901";
  bench::LinkWriter writer(argv[1]);
  std::cout << bench::Median(bench::Time(count, [&] { bench::BareQRCode(url); })) << " "
            << bench::Median(bench::Time(count, [&] { writer.Write(); })) << "\n";
}
