// SPDX-License-Identifier: Apache-2.0
// A library to be loaded before all others (LD_PRELOAD): counts the allocations that a program
// makes between its marks, and lets the one that FAILING_ALLOCATION numbers fail, or that one and
// all later ones when a "+" follows the number.
//
// The marks are those that the injector knows, looks for /regdriver/begin and /regdriver/end. At
// the second one it prints "allocations COUNT failed COUNT kept COUNT"; kept are blocks that have
// not been given back. The C library's own allocations come by here like everybody else's, and
// operator new comes by as malloc. Requests for more than malloc's alignment do not: nothing here
// makes any. One thread is watched. Which allocations to fail, and what must hold then, is not
// decided here.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The C library's own, under the names that it keeps for those who take the usual ones.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
}

namespace {

struct Watch {
  bool on = false;
  bool lasting = false;
  unsigned long point = 0;
  unsigned long count = 0;
  unsigned long failed = 0;
  long kept = 0;
};
Watch watch;

void begin() {
  const char* wish = std::getenv("FAILING_ALLOCATION");
  char* rest = nullptr;
  watch = {};
  if (wish != nullptr) watch.point = std::strtoul(wish, &rest, 10);
  watch.lasting = rest != nullptr && *rest == '+';
  watch.on = true;
}

void end() {
  if (!watch.on) return;
  watch.on = false;
  char line[100];
  const int length = std::snprintf(line, sizeof line, "allocations %lu failed %lu kept %ld\n",
                                   watch.count, watch.failed, watch.kept);
  if (write(STDOUT_FILENO, line, static_cast<std::size_t>(length)) != length) std::abort();
}

// Counts an allocation and tells whether it is to fail.
bool fails() {
  if (!watch.on) return false;
  const unsigned long number = ++watch.count;
  const bool due =
      watch.lasting ? watch.point != 0 && number >= watch.point : number == watch.point;
  if (!due) return false;
  ++watch.failed;
  errno = ENOMEM;
  return true;
}

void* kept(void* block) {
  if (watch.on && block != nullptr) ++watch.kept;
  return block;
}

}  // namespace

extern "C" {
void* malloc(std::size_t size) noexcept {
  return fails() ? nullptr : kept(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) noexcept {
  return fails() ? nullptr : kept(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) noexcept {
  if (fails()) return nullptr;
  void* moved = __libc_realloc(block, size);
  return block == nullptr ? kept(moved) : moved;
}

void free(void* block) noexcept {
  if (watch.on && block != nullptr) --watch.kept;
  __libc_free(block);
}

int access(const char* path, int mode) noexcept {
  if (std::strcmp(path, "/regdriver/begin") == 0) begin();
  if (std::strcmp(path, "/regdriver/end") == 0) end();
  return faccessat(AT_FDCWD, path, mode, 0);
}
}
