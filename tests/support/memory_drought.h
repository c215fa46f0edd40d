// SPDX-License-Identifier: Apache-2.0
// A child process without memory: while the object lives, every allocation of 64 bytes or more is
// refused by the system. For use in inChildProcess only.
#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <cstdlib>

namespace vrxtest {

// Sanitizers keep memory of their own, which no limit reaches.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMemoryCanRunOut = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kMemoryCanRunOut = false;
#else
constexpr bool kMemoryCanRunOut = true;
#endif
#else
constexpr bool kMemoryCanRunOut = true;
#endif

class MemoryDrought {
 public:
  MemoryDrought() {
    getrlimit(RLIMIT_AS, &before_);
    rlimit none = before_;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_AS, &none);
    for (std::size_t size = std::size_t{1} << 26; size >= 64; size /= 2)
      takeAll(size);
  }
  ~MemoryDrought() {
    setrlimit(RLIMIT_AS, &before_);
    while (taken_ != nullptr) {
      Link* next = taken_->next;
      std::free(taken_);
      taken_ = next;
    }
  }
  MemoryDrought(const MemoryDrought&) = delete;
  MemoryDrought& operator=(const MemoryDrought&) = delete;

 private:
  struct Link {
    Link* next;
  };

  void takeAll(std::size_t size) {
    while (auto* link = static_cast<Link*>(std::malloc(size))) {
      link->next = taken_;
      taken_ = link;
    }
  }

  rlimit before_{};
  Link* taken_ = nullptr;
};

}  // namespace vrxtest
