// bench-floors DATABASE: reads lines "qrcode COUNT" and "create COUNT". Answers each with the
// microseconds that COUNT bare runs of qrencode took, or the writes of COUNT creates by hand.
// bench/http/bench.py sends these lines between its own requests, so that both sides find the same
// caches.
#include <iostream>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "bench/module/Floors.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::string url = "http://127.0.0.1:8080/sharing/0123456789012345678901";
  std::optional<bench::LinkWriter> writer;  // opened when it is asked for
  std::string what;
  int count = 0;
  while (std::cin >> what >> count) {
    if (what != "qrcode" && !writer) writer.emplace(argv[1]);
    const std::vector<double> times = what == "qrcode"
                                          ? bench::Time(count, [&] { bench::BareQRCode(url); })
                                          : bench::Time(count, [&] { writer->Write(); });
    std::cout << std::accumulate(times.begin(), times.end(), 0.0) << std::endl;
  }
}
