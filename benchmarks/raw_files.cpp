// SPDX-License-Identifier: Apache-2.0
// System calls with their outcome looked at.
#include "benchmarks/raw_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "benchmarks/measure.h"
#include "platform/osse/files.h"

namespace vrxbench {
namespace {

constexpr mode_t kFileMode = 0644;
constexpr std::size_t kCopyBlock = 128 * 1024;

void requireCall(bool success, const char* call, const std::string& path) {
  if (!success) require(false, std::string(call) + " " + path + ": " + std::strerror(errno));
}

int openFile(const std::string& path, int flags) {
  const int descriptor = open(path.c_str(), flags | O_CLOEXEC, kFileMode);
  requireCall(descriptor >= 0, "open", path);
  return descriptor;
}

void closeFile(int descriptor, const std::string& path, Durability durability) {
  if (durability == Durability::kSynced) requireCall(fsync(descriptor) == 0, "fsync", path);
  requireCall(close(descriptor) == 0, "close", path);
}

void writeAll(int descriptor, const char* bytes, std::size_t size, const std::string& path) {
  while (size > 0) {
    const ssize_t count = write(descriptor, bytes, size);
    requireCall(count >= 0, "write", path);
    bytes += count;
    size -= static_cast<std::size_t>(count);
  }
}

iovec partOf(std::string_view piece) {
  return {const_cast<char*>(piece.data()), piece.size()};
}

std::string folderOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

}  // namespace

void setDurability(Durability durability) {
  ossSetSyncPolicy(durability == Durability::kSynced ? OSSSyncPolicy::standard
                                                     : OSSSyncPolicy::none);
}

Buffer::~Buffer() {
  std::free(memory_);
}

std::string_view Buffer::read(const std::string& path) {
  const int descriptor = openFile(path, O_RDONLY);
  struct stat info {};
  requireCall(fstat(descriptor, &info) == 0, "fstat", path);
  const auto size = static_cast<std::size_t>(info.st_size);
  if (size > capacity_) {
    std::free(memory_);
    memory_ = static_cast<char*>(std::malloc(size));
    require(memory_ != nullptr, "no memory");
    capacity_ = size;
  }
  std::size_t got = 0;
  while (got < size) {
    const ssize_t count = ::read(descriptor, memory_ + got, size - got);
    requireCall(count > 0, "read", path);
    got += static_cast<std::size_t>(count);
  }
  requireCall(close(descriptor) == 0, "close", path);
  return {memory_, size};
}

void writeNew(const std::string& path, const Pieces& pieces, Durability durability) {
  const int descriptor = openFile(path, O_WRONLY | O_CREAT | O_TRUNC);
  const iovec parts[] = {partOf(pieces.before), partOf(pieces.changed), partOf(pieces.after)};
  const std::size_t size = pieces.before.size() + pieces.changed.size() + pieces.after.size();
  const ssize_t count = writev(descriptor, parts, 3);
  requireCall(count >= 0, "writev", path);
  require(static_cast<std::size_t>(count) == size, path + ": not written whole");
  closeFile(descriptor, path, durability);
}

void replaceFile(const std::string& from, const std::string& to, Durability durability) {
  requireCall(rename(from.c_str(), to.c_str()) == 0, "rename", from);
  if (durability == Durability::kSynced) syncFolderOf(to);
}

void syncFolderOf(const std::string& path) {
  const std::string folder = folderOf(path);
  closeFile(openFile(folder, O_RDONLY | O_DIRECTORY), folder, Durability::kSynced);
}

void writeFile(const std::string& path, std::string_view bytes) {
  const int descriptor = openFile(path, O_WRONLY | O_CREAT | O_TRUNC);
  writeAll(descriptor, bytes.data(), bytes.size(), path);
  closeFile(descriptor, path, Durability::kUnsynced);
}

void appendTo(const std::string& path, std::string_view bytes, Durability durability) {
  const int descriptor = openFile(path, O_WRONLY | O_APPEND);
  writeAll(descriptor, bytes.data(), bytes.size(), path);
  closeFile(descriptor, path, durability);
}

void cutTo(const std::string& path, std::size_t size, Durability durability) {
  const int descriptor = openFile(path, O_WRONLY);
  requireCall(ftruncate(descriptor, static_cast<off_t>(size)) == 0, "ftruncate", path);
  closeFile(descriptor, path, durability);
}

void copyFile(const std::string& from, const std::string& to) {
  static char block[kCopyBlock];
  const int source = openFile(from, O_RDONLY);
  const int target = openFile(to, O_WRONLY | O_CREAT | O_TRUNC);
  for (;;) {
    const ssize_t count = ::read(source, block, sizeof block);
    requireCall(count >= 0, "read", from);
    if (count == 0) break;
    writeAll(target, block, static_cast<std::size_t>(count), to);
  }
  closeFile(target, to, Durability::kUnsynced);
  closeFile(source, from, Durability::kUnsynced);
}

LockFile::LockFile(const std::string& path) : descriptor_(openFile(path, O_RDWR | O_CREAT)) {
  struct flock whole {};
  whole.l_type = F_WRLCK;
  requireCall(fcntl(descriptor_, F_OFD_SETLKW, &whole) == 0, "lock", path);
}

LockFile::~LockFile() {
  (void)close(descriptor_);  // nothing was written to it; the lock goes with it
}

Companions::Companions(const std::string& registry) {
  const std::size_t slash = registry.rfind('/') + 1;
  const std::string hidden = registry.substr(0, slash) + "." + registry.substr(slash);
  copy = registry + ".tmp";
  backup = hidden + ".bkp";
  lock = hidden + ".lock";
}

void commitCopy(const std::string& registry, const Companions& names, Durability durability) {
  (void)unlink(names.backup.c_str());  // one that a death left; mostly there is none
  const bool linked = link(registry.c_str(), names.backup.c_str()) == 0;
  requireCall(linked, "link", names.backup);
  replaceFile(names.copy, registry, durability);
  requireCall(unlink(names.backup.c_str()) == 0, "unlink", names.backup);
}

}  // namespace vrxbench
