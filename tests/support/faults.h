// SPDX-License-Identifier: Apache-2.0
// Failures of the system, injected into the code under test from outside: the linker sends the
// calls of this program through wrappers (--wrap, see CMakeLists.txt), and an object of this header
// tells the wrapper which call shall fail.
//
//     const vrxtest::FailCall fault(vrxtest::Call::kRename, 1, EIO);  // the first rename from now
//     on EXPECT_EQ(registry.CloseReg(2), genreg::status::registry_not_replaced);
//
// Calls are counted from the construction of the object. Calls of the C++ library and calls between
// functions of one source file do not come by here. Not thread-safe: arm and call on one thread.
#pragma once

#include <functional>

namespace vrxtest {

// What can be watched. A failing call does nothing but set errno and return its error, unless
// noted.
enum class Call {
  kOpen,
  kClose,      // closes all the same
  kLockFcntl,  // fcntl: record locks
  kOtherFcntl,
  kFstat,
  kStat,
  kLstat,
  kAccess,
  kLink,
  kRename,
  kUnlink,
  kMkdir,
  kReadlink,
  kRead,
  kFtruncate,
  kFchmod,
  kFchown,
  kListAttributes,
  kGetAttribute,
  kSetAttribute,
  kRemoveAttribute,
  kFsync,
  // Streams other than standard output and standard error.
  kFdopen,
  kFclose,  // closes the descriptor and gives up the stream all the same
  kFflush,  // sets the stream's error flag
  kFseeko,
  kFtello,
  kFread,   // sets the stream's error flag
  kFwrite,  // sets the stream's error flag
  kSetvbuf,
  // Functions of the platform layer: they fail with the status of the error number.
  kNew,       // new (std::nothrow), which gives null
  kMemAlloc,  // with or without clearing
  kMemFree,   // releases the block all the same
  kDirectoryName,
  kHandleOpen,
  kHandleLock,
  kHandleUnlock,
  kHandleClose,  // closes all the same
};

// Whether one call fails, or that one and every later one.
enum class Extent { kOnce, kFromThenOn };

// Counts the calls made while it lives.
class CallCount {
 public:
  explicit CallCount(Call call);
  ~CallCount();
  CallCount(const CallCount&) = delete;
  CallCount& operator=(const CallCount&) = delete;

  int calls() const { return calls_; }

 protected:
  int nth_ = 0;  // 0: no call is due
  int error_ = 0;
  Extent extent_ = Extent::kOnce;
  std::function<void()> action_;

 private:
  friend int errorFor(Call call);
  bool isDue() const;

  const Call call_;
  int calls_ = 0;
  CallCount* const outer_;
};

// Makes the nth call (from 1) fail with `error`, an errno value.
class FailCall : public CallCount {
 public:
  FailCall(Call call, int nth, int error, Extent extent = Extent::kOnce);
  // Whether the call that was to fail has been made.
  bool fired() const { return calls() >= nth_; }
};

// Runs `action` just before the nth call is made: what another process does in that moment, or a
// look at what is on disk. Calls made by the action are not watched.
class BeforeCall : public CallCount {
 public:
  BeforeCall(Call call, int nth, std::function<void()> action, Extent extent = Extent::kOnce);
  bool fired() const { return calls() >= nth_; }
};

// For the wrappers: notes a call and tells the errno value with which it fails, 0 when it does not.
int errorFor(Call call);

}  // namespace vrxtest
