// SPDX-License-Identifier: Apache-2.0
// What every function of this face returns: a Status, or a Result that holds a value or a Status.
//
//     vrx::Result<std::string> level = profile.get("DIAG");
//     if (level) use(*level);
//     else if (level.status().notFound()) useDefault();
//     else std::fputs((level.status().message() + "\n").c_str(), stderr);
//
// The face throws nothing of its own. Its strings and vectors take memory as all do, so that
// std::bad_alloc may pass through it; nothing is leaked or half done then. Both types are plain
// values: copied freely, used by one thread at a time.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "genreg/status.h"

namespace vrx {

// A status code with what is known about it: the file, the field refused, the place in the file.
// Default-constructed it is success.
class [[nodiscard]] Status {
 public:
  Status() = default;
  explicit Status(GenRegStatus code, std::string path = {}) : code_(code), path_(std::move(path)) {}

  // A value that is refused before anything is written: 0x900001FC with the field's name, empty
  // when the record as a whole is meant, and one clause that says why.
  static Status refused(std::string field, std::string why) {
    Status status(genreg::status::invalid_record);
    status.field_ = std::move(field);
    status.detail_ = std::move(why);
    return status;
  }

  bool ok() const { return code_ == genreg::status::ok; }
  explicit operator bool() const { return ok(); }

  // The library's 32-bit code; 0 for success.
  GenRegStatus code() const { return code_; }
  // The code's stable name, "no_match"; "system_error" and "unknown" for codes without a name.
  const char* name() const;
  // What the code means, in one clause; never empty.
  std::string meaning() const;
  // One line for people: the file, the field, what is wrong, the code; "success" without any.
  std::string message() const;

  // The file concerned; empty where none is known.
  const std::string& path() const { return path_; }
  // The field refused, by the name that visitFields gives it; empty where none is meant.
  const std::string& field() const { return field_; }
  // What is known beyond the code ("line 7 holds a NUL byte"); mostly empty.
  const std::string& detail() const { return detail_; }

  // No record has this key, or the record is no longer as it was read. Never an error by itself.
  bool notFound() const { return code_ == genreg::status::no_match; }
  // There is no such file.
  bool noFile() const { return code_ == genreg::status::no_registry; }
  // A record with this key exists.
  bool exists() const { return code_ == genreg::status::duplicate_record; }
  // The lock was not to be had.
  bool busy() const;
  // A failure of what follows the commit alone: the new contents are in place all the same.
  bool updateStands() const;

  // The same status with a file, or a detail, where it has none yet.
  Status at(const std::string& path) &&;
  Status because(std::string detail) &&;

 private:
  GenRegStatus code_ = genreg::status::ok;
  std::string path_;
  std::string field_;
  std::string detail_;
};

// A value, or the Status that tells why there is none.
//
// Looking at the value of a failure is a defect of the program and ends it (abort, with the status
// on standard error). A Result that was about to be destroyed gives its value away, so that
// `for (const auto& entry : *profile.all())` is safe.
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : value_(std::move(value)) {}  // NOLINT: a value is a result
  // `status` is a failure.
  Result(Status status) : status_(std::move(status)) {  // NOLINT: so is a failure
    if (status_.ok()) end("a Result made of success, without a value");
  }

  bool has_value() const { return value_.has_value(); }
  explicit operator bool() const { return has_value(); }

  const T& operator*() const& { return value(); }
  T& operator*() & {
    require();
    return *value_;
  }
  T operator*() && {
    require();
    return std::move(*value_);
  }
  const T* operator->() const { return &value(); }
  T* operator->() { return &**this; }
  const T& value() const& {
    require();
    return *value_;
  }
  T value() && { return *std::move(*this); }
  // The value, or `other` on every failure.
  T value_or(T other) const& { return has_value() ? *value_ : std::move(other); }
  T value_or(T other) && { return has_value() ? std::move(*value_) : std::move(other); }

  // Success while there is a value. The reference lives as long as the Result; one that is about to
  // be destroyed gives its status away.
  const Status& status() const& { return status_; }
  Status status() && { return std::move(status_); }

 private:
  void require() const {
    if (!has_value()) end(status_.message().c_str());
  }
  [[noreturn]] static void end(const char* why) {
    (void)std::fprintf(stderr, "vrx::Result: no value: %s\n", why);  // the program ends anyway
    std::abort();
  }

  Status status_;
  std::optional<T> value_;
};

namespace detail {

// System errors travel as this base plus errno.
constexpr GenRegStatus kSystemErrors = 0x90000080u;
constexpr GenRegStatus kLastSystemError = kSystemErrors + 133;

inline bool isSystemError(GenRegStatus code) {
  return code > kSystemErrors && code <= kLastSystemError;
}

}  // namespace detail

inline const char* Status::name() const {
  const GenRegStatusInfo* info = genregStatusInfo(code_);
  if (info != nullptr) return info->name;
  return detail::isSystemError(code_) ? "system_error" : "unknown";
}

inline std::string Status::meaning() const {
  const GenRegStatusInfo* info = genregStatusInfo(code_);
  if (info != nullptr) return info->meaning;
  if (!detail::isSystemError(code_)) return "a code without a meaning";
  const auto number = static_cast<int>(code_ - detail::kSystemErrors);
  return "system error " + std::to_string(number) + ": " + std::strerror(number);
}

inline std::string Status::message() const {
  char code[16] = "";
  if (!ok()) (void)std::snprintf(code, sizeof code, " (0x%08X)", code_);  // always fits
  const std::string file = path_.empty() ? "" : path_ + ": ";
  const std::string field = field_.empty() ? "" : field_ + ": ";
  return file + field + (detail_.empty() ? meaning() : detail_) + code;
}

inline bool Status::busy() const {
  return code_ == genreg::status::lock_not_taken || code_ == genreg::status::locked_elsewhere ||
         code_ == genreg::status::lock_held || code_ == genreg::status::registry_not_locked;
}

inline bool Status::updateStands() const {
  return code_ == genreg::status::lock_not_released ||
         code_ == genreg::status::scratch_not_released || code_ == genreg::status::no_notify_slot ||
         code_ == genreg::status::backup_not_deleted;
}

inline Status Status::at(const std::string& path) && {
  if (!ok() && path_.empty()) path_ = path;
  return std::move(*this);
}

inline Status Status::because(std::string detail) && {
  if (!ok() && detail_.empty()) detail_ = std::move(detail);
  return std::move(*this);
}

}  // namespace vrx
