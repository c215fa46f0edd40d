// SPDX-License-Identifier: Apache-2.0
// One call of one library function: traces entry and exit, logs failures, keeps the first of them.
//
// A public function builds an Operation first thing and returns what it holds:
//
//     Operation op(kGenRegFileUnLock, lockPath);
//     const GenRegStatus rc = lockFile.unlock();
//     if (rc != 0) return op.fail(1, status::unlock_failed, rc);
//     return op.status();
//
// Reporting and returning are one call, so nothing fails unlogged and nothing is logged twice. The
// first failure is the result; later ones, from clean-up, are logged only. Probes are literals,
// unique within a function. No file work here.
#pragma once

#include "genreg/internal/function_ids.h"
#include "genreg/status.h"
#include "platform/osse/trace.h"

namespace genreg {

class Operation {
 public:
  // `path` names the file concerned in log entries; null for none. It must outlive the object.
  explicit Operation(FunctionId function, const char* path = nullptr)
      : function_(function), path_(path) {
    if (gtraceIsEnabled()) gtraceEntry(function_);
  }
  ~Operation() {
    if (gtraceIsEnabled()) gtraceExit(function_, status_);
  }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  // Logs `code` and makes it the result unless something failed before. Returns the result.
  GenRegStatus fail(unsigned probe, GenRegStatus code);
  // The same, with the inner code that explains it.
  GenRegStatus fail(unsigned probe, GenRegStatus code, GenRegStatus inner);
  // The same, with the system error that explains it.
  GenRegStatus failErrno(unsigned probe, GenRegStatus code, int error);
  // Makes an expected outcome (end of file, no match) the result, unlogged.
  GenRegStatus conclude(GenRegStatus code) { return keep(code); }
  // Logs a finding that is not this function's result.
  void note(unsigned probe, GenRegStatus code, GenRegStatus inner);
  // Logs a value that explains the failure about to be reported, as label=value.
  void explain(unsigned probe, GenRegStatus code, const char* label, unsigned long long value);

  bool failed() const { return status_ != status::ok; }
  GenRegStatus status() const { return status_; }
  int result() const { return statusInt(status_); }

 private:
  GenRegStatus keep(GenRegStatus code) {
    if (status_ == status::ok) status_ = code;
    return status_;
  }
  void write(unsigned probe, GenRegStatus code, GenRegStatus inner) const;

  const FunctionId function_;
  const char* const path_;
  GenRegStatus status_ = status::ok;
};

}  // namespace genreg
