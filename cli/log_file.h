// SPDX-License-Identifier: Apache-2.0
// The change log as a file that others append to and replace: reading on from where it was left.
// Not here: where entries begin and end in it (log_cutter.h).
//
// The log stands in a folder where everybody may write, so what stands at its name is opened like
// anything else that may have been put there: no link followed, nothing waited for.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "platform/osse/file_handle.h"

namespace cli {

enum class LinkPolicy { followed, refused };

class LogFile {
 public:
  LogFile(std::string path, LinkPolicy links) : path_(std::move(path)), links_(links) {}

  // Opens the file at its name from its beginning. False when nothing stands there; throws Failure
  // (io) when it cannot be read or is no regular file.
  bool open();
  void close() { (void)file_.close(); }  // nothing was written
  bool isOpen() const { return file_.getFileHandle() >= 0; }

  // Whether the name stands for another file by now, or the file has become shorter than what was
  // read of it. Nothing at the name is no other file: the log is being replaced.
  bool isReplaced() const;

  // Reads on, one block: empty at the end. Throws Failure (io).
  std::string_view read();

 private:
  [[noreturn]] void fail(OSSStatus code) const;

  static constexpr std::size_t kBlock = 64 * 1024;

  const std::string path_;
  const LinkPolicy links_;
  OSSHFile file_;
  long long offset_ = 0;
  std::string block_ = std::string(kBlock, '\0');
};

}  // namespace cli
