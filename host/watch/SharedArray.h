// An array that a process shares with its forked children.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <memory>
#include <new>
#include <span>

namespace VELT::host {

// To be constructed before the fork: the copies of the object in the children refer to the same
// items. The items' destructors are never called.
template <typename Item>
class SharedArray {
 public:
  explicit SharedArray(std::size_t count)  // throws std::bad_alloc
      : items_(Map(count), Unmap{count * sizeof(Item)}), count_(count) {
    std::uninitialized_value_construct_n(items_.get(), count);
  }

  std::span<Item> items() const { return {items_.get(), count_}; }

 private:
  struct Unmap {
    std::size_t size;
    void operator()(Item* items) const { munmap(items, size); }
  };

  static Item* Map(std::size_t count) {
    void* memory = mmap(nullptr, count * sizeof(Item), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    return static_cast<Item*>(memory);
  }

  std::unique_ptr<Item[], Unmap> items_;
  std::size_t count_;
};

}  // namespace VELT::host
