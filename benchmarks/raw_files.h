// SPDX-License-Identifier: Apache-2.0
// Files by system calls alone: what the floor, the discipline and the preparation of registries
// are made of. Every failure ends the program.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vrxbench {

enum class Durability : unsigned char { kSynced, kUnsynced };

// Makes the library's updates as durable as the raw ones. Process-wide.
void setDurability(Durability durability);

// Memory that grows to the largest file read into it and is then used again: getting and clearing
// 17 megabytes anew for each operation would hide what reading them costs.
class Buffer {
 public:
  Buffer() = default;
  ~Buffer();
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  // Opens the file, reads the whole of it and closes it. The view holds until the next reading.
  std::string_view read(const std::string& path);

 private:
  char* memory_ = nullptr;
  std::size_t capacity_ = 0;
};

// The three pieces of a file that differs from another one in a single place.
struct Pieces {
  std::string_view before;
  std::string_view changed;
  std::string_view after;
};

// Writes the pieces to a new file, in one call where the system takes them in one, and closes it,
// synced or not.
void writeNew(const std::string& path, const Pieces& pieces, Durability durability);

// Renames the file over the other one and syncs its folder, if so asked.
void replaceFile(const std::string& from, const std::string& to, Durability durability);
void syncFolderOf(const std::string& path);

// What a set-up needs, unmeasured.
void writeFile(const std::string& path, std::string_view bytes);
void appendTo(const std::string& path, std::string_view bytes, Durability durability);
void cutTo(const std::string& path, std::size_t size, Durability durability);

// Copies a file with read and write through one block of 128 KiB, unsynced.
void copyFile(const std::string& from, const std::string& to);

// An exclusive lock on a lock file, from construction to destruction.
class LockFile {
 public:
  explicit LockFile(const std::string& path);
  ~LockFile();
  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;

 private:
  int descriptor_;
};

// The names beside a registry that an update uses.
struct Companions {
  explicit Companions(const std::string& registry);
  std::string copy;
  std::string backup;
  std::string lock;
};

// Commits a copy that has been compared: the old contents keep a second name until the new name is
// on the disk.
void commitCopy(const std::string& registry, const Companions& names, Durability durability);

}  // namespace vrxbench
