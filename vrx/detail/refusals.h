// SPDX-License-Identifier: Apache-2.0
// Values that a file could not hold or would not give back, refused before anything is written.
// Not for programs.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "vrx/status.h"

namespace vrx {
namespace detail {

constexpr const char* kBeginsComment = "\"#\" begins a comment";

inline std::string quoted(const std::string& text) {
  return "\"" + text + "\"";
}

// A field's value as one text: decimal, with commas, or the bytes; empty when absent.
inline std::string textOf(const std::string& text) {
  return text;
}
inline std::string textOf(const std::optional<std::string>& text) {
  return text.value_or("");
}
template <class Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
std::string textOf(Number number) {
  return std::to_string(number);
}
inline std::string textOf(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) {
    if (&text != &texts.front()) all += ",";
    all += text;
  }
  return all;
}

template <class Value>
bool isPresent(const Value&) {
  return true;
}
inline bool isPresent(const std::optional<std::string>& text) {
  return text.has_value();
}

inline Status wouldChange(const char* field, const std::string& text, const std::string& why) {
  return Status::refused(field, quoted(text) + " would not read back the same" + why);
}

// Refuses a text that holds one of these bytes; `why` says what they would do.
inline Status refuseBytes(const char* field, const std::string& text, const std::string& bytes,
                          const char* why) {
  if (text.find_first_of(bytes) == std::string::npos) return {};
  return wouldChange(field, text, std::string(": ") + why);
}

inline Status refuseBytes(const char* field, const std::optional<std::string>& text,
                          const std::string& bytes, const char* why) {
  return refuseBytes(field, text.value_or(""), bytes, why);
}

inline Status refuseBytes(const char* field, const std::vector<std::string>& texts,
                          const std::string& bytes, const char* why) {
  Status status;
  for (const std::string& text : texts) {
    status = refuseBytes(field, text, bytes, why);
    if (!status) break;
  }
  return status;
}

// Numbers hold no bytes.
template <class Number>
Status refuseBytes(const char*, const Number&, const std::string&, const char*) {
  return {};
}

// Refuses a text with a NUL byte, which would end it.
template <class Field>
Status refuseNul(const char* field, const Field& value) {
  if (refuseBytes(field, value, std::string(1, '\0'), "")) return {};
  return Status::refused(field, "holds a NUL byte, which would end it");
}

// Refuses a comment that holds what a parser would replace.
inline Status refuseUnprintable(const char* field, const std::optional<std::string>& comment) {
  const auto isLost = [](unsigned char c) { return c != '\t' && (c < 0x20 || c > 0x7E); };
  const std::string text = comment.value_or("");
  if (std::none_of(text.begin(), text.end(), isLost)) return {};
  return wouldChange(field, text, ": comments are printable ASCII");
}

// Refuses a text that is longer than its field.
inline Status refuseLonger(const char* field, const std::string& text, std::size_t limit) {
  if (text.size() <= limit) return {};
  return Status::refused(field, std::to_string(text.size()) + " bytes are too long, the limit is " +
                                    std::to_string(limit));
}

// Runs checks one after the other; the first refusal is the outcome.
class Refusals {
 public:
  Refusals& operator<<(Status next) {
    if (status_.ok()) status_ = std::move(next);
    return *this;
  }
  Status status() const { return status_; }

 private:
  Status status_;
};

}  // namespace detail
}  // namespace vrx
