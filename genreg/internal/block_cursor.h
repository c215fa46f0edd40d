// SPDX-License-Identifier: Apache-2.0
// The bytes of a stream, or of a descriptor, in large blocks, looked at where they lie: what the
// frame reader and the line reader stand on. One system call a block, no copy and no allocation per
// record.
//
// A cursor knows how long its file is and reads no further, so nothing that a file claims about
// itself makes it ask for more memory than the file has bytes.
#pragma once

#include <cstddef>
#include <cstdio>

namespace genreg {

class BlockCursor {
 public:
  // What asking for bytes has found.
  enum class Step {
    kReady,    // they lie at bytes()
    kEnd,      // the file ends before
    kUnread,   // the stream reports an error, or the file was cut since it was measured
    kNoMemory  // the block cannot be had, or not so large
  };

  BlockCursor() = default;
  ~BlockCursor();
  BlockCursor(const BlockCursor&) = delete;
  BlockCursor& operator=(const BlockCursor&) = delete;

  // Reads from `stream`, which stands at `position` of a file of `fileSize` bytes. The block is
  // kept from file to file.
  void readFrom(FILE* stream, unsigned long long position, unsigned long long fileSize);
  // The same from the start of the file of a descriptor, which belongs to the caller: a lookup's,
  // which may end with the first record, so little is read at first.
  void readFrom(int descriptor, unsigned long long fileSize);
  // The stream has been moved, to wherever it will stand when it is read next.
  void forgetBlock();

  // Whether anything but the end of the file has kept bytes back since reading began. From then on
  // no more are read.
  bool hasFailed() const { return failed_; }

  // Makes at least `count` bytes available. What bytes() gave before may have moved.
  Step want(std::size_t count) { return count <= available() ? Step::kReady : refill(count); }
  // The bytes in memory from the cursor on. They belong to the cursor and may be changed.
  unsigned char* bytes() const { return at_; }
  std::size_t available() const { return static_cast<std::size_t>(end_ - at_); }
  // Steps over `count` available bytes.
  void skip(std::size_t count) { at_ += count; }

  // The bytes of the file from the cursor on. 0 when the stream cannot tell where it stands.
  unsigned long long left();
  // The cursor's place in the file; -1 when the stream cannot tell.
  long long position();

 private:
  Step refill(std::size_t count);
  Step fail(Step reason);
  bool reserve(std::size_t count);
  bool locate();
  void start(unsigned long long position, unsigned long long fileSize, std::size_t firstRead);
  std::size_t read(void* to, std::size_t count);

  FILE* stream_ = nullptr;  // null where the descriptor is read
  int descriptor_ = -1;
  unsigned long long fileSize_ = 0;
  unsigned long long streamPosition_ = 0;
  std::size_t nextRead_ = 0;  // the most that is read at once, the next time
  bool located_ = true;       // streamPosition_ is where the stream stands
  bool failed_ = false;
  unsigned char* block_ = nullptr;
  std::size_t capacity_ = 0;
  unsigned char* at_ = nullptr;
  unsigned char* end_ = nullptr;
};

}  // namespace genreg
