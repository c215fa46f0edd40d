// SPDX-License-Identifier: Apache-2.0
// The exported object behind a face, shared by the face's views and cursors, and what every store
// asks before it uses one. Not for programs.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "genreg/registry.h"
#include "vrx/file.h"
#include "vrx/status.h"

namespace vrx {
namespace detail {

// An exported object (one of vrx/detail/exact_*.h) and the path that was chosen for it: an update
// may follow a link from there, so that the object's own path is another one afterwards.
template <class Object>
struct Opened {
  template <class... Arguments>
  explicit Opened(std::string chosen, Arguments&&... arguments)
      : path(std::move(chosen)), native(std::forward<Arguments>(arguments)..., &status) {
    // The library would see the part before the NUL, which is another file.
    if (path.find('\0') != std::string::npos) status = genreg::status::invalid_argument;
  }
  std::string path;
  unsigned int status = genreg::status::ok;
  Object native;
};

// What the stores have in common: the object, its path, its scan.
template <class Object>
class OpenedStore {
 public:
  using Native = Object;

  explicit OpenedStore(std::shared_ptr<Opened<Object>> opened) : opened_(std::move(opened)) {}
  // Moving copies: a registry that was moved from can be asked and used like any other.
  OpenedStore(const OpenedStore&) = default;
  OpenedStore& operator=(const OpenedStore&) = default;

  const std::string& path() const { return opened_->path; }
  Object& native() const { return opened_->native; }
  Status status() const { return Status(opened_->status, path()); }

  // Whether an operation can begin.
  Status ready() const {
    if (opened_->status != genreg::status::ok) return status();
    const bool scanning = (native().state & kGenRegStateScanning) != 0;
    return scanning ? Status(genreg::status::scan_is_open, path()) : Status();
  }

  // Whether there is something to read.
  Status readable() const {
    Status first = ready();
    return first ? checkFile(path()) : first;
  }

 private:
  std::shared_ptr<Opened<Object>> opened_;
};

// Opens an object's scan and ends it. The scan is this guard's alone: a guard that could not open
// one closes none.
template <class Object>
class ScanGuard {
 public:
  explicit ScanGuard(OpenedStore<Object> store) : store_(std::move(store)) {}

  Status open() {
    Status readable = store_.readable();
    if (!readable) return readable;
    const GenRegStatus code = store_.native().OpenScan();
    open_ = code == genreg::status::ok;
    return Status(code, store_.path());
  }

  Status close() {
    if (!std::exchange(open_, false)) return {};
    return Status(store_.native().CloseScan(), store_.path());
  }

 private:
  OpenedStore<Object> store_;
  bool open_ = false;
};

// Lets updates act on several records at once while it lives.
class SeveralAllowed {
 public:
  explicit SeveralAllowed(GenRegBase& object)
      : object_(object), wasSet_(object.isFeatureSet(kGenRegDuplicates)) {
    (void)object_.setFeature(kGenRegDuplicates);  // is in range
  }
  ~SeveralAllowed() {
    if (!wasSet_) (void)object_.unsetFeature(kGenRegDuplicates);  // is set
  }
  SeveralAllowed(const SeveralAllowed&) = delete;
  SeveralAllowed& operator=(const SeveralAllowed&) = delete;

 private:
  GenRegBase& object_;
  const bool wasSet_;
};

}  // namespace detail
}  // namespace vrx
