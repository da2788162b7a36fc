#include "host/watch/Statistics.h"

#include <algorithm>
#include <functional>
#include <string_view>

namespace VELT::host {
namespace {

static_assert(Count64::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "shared between processes");

void Add(Count64& count, std::uint64_t number = 1) {
  count.fetch_add(number, std::memory_order_relaxed);
}

// Sets an unused `place` to `key`. True if it has `key` afterwards, whichever process set it.
bool Claim(std::atomic<std::uint64_t>& place, std::uint64_t key) {
  std::uint64_t found = place.load(std::memory_order_relaxed);
  return found == key ||
         (found == 0 && (place.compare_exchange_strong(found, key) || found == key));
}

void SetName(std::array<char, 64>& place, std::string_view text) {
  constexpr std::string_view kPlain = "._-/:";
  text = text.substr(0, place.size() - 1);
  std::transform(text.begin(), text.end(), place.begin(), [kPlain](char character) {
    const bool plain = (character >= '0' && character <= '9') ||
                       (character >= 'A' && character <= 'Z') ||
                       (character >= 'a' && character <= 'z');
    return plain || kPlain.find(character) != std::string_view::npos ? character : '?';
  });
}

// If two processes name a row at the same time, both write the same.
void Name(MethodCounts& row, const std::string& api, int version, const std::string& method) {
  if (row.named) return;
  SetName(row.api, api);
  SetName(row.method, method);
  row.version = version;
  row.named = true;
}

}  // namespace

Statistics::Statistics() {
  auto& methods = shared_.items()[0].methods;
  methods[kNoMethod].key = methods[kPage].key = 1;  // RowOf looks for no such key
  Name(methods[kNoMethod], "-", 0, "-");
  Name(methods[kPage], "-", 0, "page");
}

std::size_t Statistics::RowOf(const std::string& api, int version, const std::string& method) {
  const std::string name = api + '\n' + std::to_string(version) + '\n' + method;
  // With 64 bits, a collision among the few methods of a registry is practically impossible.
  const std::uint64_t key = std::max<std::uint64_t>(std::hash<std::string>()(name), 2);
  auto& methods = shared_.items()[0].methods;
  for (std::size_t row = kPage + 1; row < methods.size(); ++row) {
    if (!Claim(methods[row].key, key)) continue;
    Name(methods[row], api, version, method);
    return row;
  }
  return kNoMethod;
}

void Statistics::Count(const RequestNote& request, std::chrono::microseconds took) {
  MethodCounts& row = method(request);
  const auto* const bound = std::ranges::lower_bound(kDurationBounds, took.count());
  Add(row.durations[static_cast<std::size_t>(bound - kDurationBounds.begin())]);
  Add(row.microseconds, static_cast<std::uint64_t>(took.count()));
  const std::uint64_t key = AnswerKey(request.status, request.code);
  for (auto& answers : row.answers) {
    if (Claim(answers.key, &answers == &row.answers.back() ? 1 : key)) return Add(answers.count);
  }
}

}  // namespace VELT::host
