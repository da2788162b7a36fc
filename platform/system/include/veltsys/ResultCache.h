// Results of slow look-ups, kept for a second, for the platform, the host and applications.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>

namespace VELT {

// Not thread-safe.
template <typename Key, typename Value>
class ResultCache {
 public:
  // Keeps at most `most` results.
  explicit ResultCache(std::size_t most) : most_(most) {}

  // The result that `find` has returned for the key within the last second, or else the one that it
  // returns now, a std::optional<Value>. Nothing is kept when that is empty. Throws what `find` throws.
  template <typename Find>
  std::optional<Value> Get(const Key& key, Find find) {
    const auto now = Clock::now();
    const auto found = results_.find(key);
    if (found != results_.end() && now < found->second.until) return found->second.value;
    if (found != results_.end()) results_.erase(found);
    std::optional<Value> value = find();
    if (!value) return std::nullopt;
    if (results_.size() >= most_) results_.clear();
    results_.emplace(key, Result{*value, now + std::chrono::seconds(1)});
    return value;
  }

  void Clear() { results_.clear(); }

 private:
  using Clock = std::chrono::steady_clock;
  struct Result {
    Value value;
    Clock::time_point until;
  };
  std::map<Key, Result> results_;
  std::size_t most_;
};

}  // namespace VELT
