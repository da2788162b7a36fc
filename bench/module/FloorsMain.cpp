// bench-floors DATABASE: reads lines "qrcode COUNT" and "create COUNT" and answers each with the
// microseconds that so many bare runs of qrencode took, or the writes of so many creates by hand.
// bench/http/bench.py asks between its own requests, so that neither side meets a warmer cache than
// the other.
#include <iostream>
#include <numeric>
#include <string>
#include <vector>

#include "Floors.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::string url = "http://127.0.0.1:8080/sharing/0123456789012345678901";
  bench::LinkWriter writer(argv[1]);
  std::string what;
  int count = 0;
  while (std::cin >> what >> count) {
    const std::vector<double> times = what == "qrcode"
                                          ? bench::Time(count, [&] { bench::BareQRCode(url); })
                                          : bench::Time(count, [&] { writer.Write(); });
    std::cout << std::accumulate(times.begin(), times.end(), 0.0) << std::endl;
  }
}
