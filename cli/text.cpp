// SPDX-License-Identifier: Apache-2.0
// Escaping for terminals, JSON, CSV, TSV and shells; splitting, joining, suggesting.
#include "cli/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <numeric>

namespace cli {

namespace {

struct Utf8Lead {
  unsigned char mask;
  unsigned char bits;
  std::size_t length;
  char32_t smallest;
};

constexpr Utf8Lead kLeads[] = {
    {0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};

bool isSurrogate(char32_t c) {
  return c >= 0xD800 && c <= 0xDFFF;
}

// The length of the character at the front, 0 when the bytes there are no UTF-8.
std::size_t decodeUtf8(std::string_view bytes, char32_t* character) {
  const auto first = static_cast<unsigned char>(bytes.front());
  for (const Utf8Lead& lead : kLeads) {
    if ((first & lead.mask) != lead.bits) continue;
    if (bytes.size() < lead.length) return 0;
    char32_t c = first & static_cast<unsigned char>(~lead.mask);
    for (std::size_t i = 1; i < lead.length; ++i) {
      const auto next = static_cast<unsigned char>(bytes[i]);
      if ((next & 0xC0) != 0x80) return 0;
      c = c << 6 | (next & 0x3Fu);
    }
    if (c < lead.smallest || c > 0x10FFFF || isSurrogate(c)) return 0;
    *character = c;
    return lead.length;
  }
  return 0;
}

bool isControl(char32_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0);
}

// Line and paragraph separators and the overrides that make text read in another order.
bool reordersText(char32_t c) {
  return (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || c == 0x2028 ||
         c == 0x2029 || c == 0x200E || c == 0x200F || c == 0x061C;
}

std::string escapeControl(char32_t c) {
  if (c == '\n') return "\\n";
  if (c == '\t') return "\\t";
  if (c == '\r') return "\\r";
  return fmt::format(c < 0x100 ? "\\x{:02x}" : "\\u{:04x}", static_cast<std::uint32_t>(c));
}

std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
    }
  }
  return row[b.size()];
}

}  // namespace

bool isUtf8(std::string_view bytes) {
  char32_t character = 0;
  while (!bytes.empty()) {
    const std::size_t length = decodeUtf8(bytes, &character);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

std::string displayText(std::string_view bytes) {
  std::string shown;
  while (!bytes.empty()) {
    char32_t character = 0;
    const std::size_t length = decodeUtf8(bytes, &character);
    if (length == 0) {
      shown += fmt::format("\\x{:02x}", static_cast<unsigned char>(bytes.front()));
    } else if (isControl(character) || reordersText(character)) {
      shown += escapeControl(character);
    } else {
      shown += bytes.substr(0, length);
    }
    bytes.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return shown;
}

std::string tsvCell(std::string_view bytes) {
  std::string cell;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\') {
      cell += "\\\\";
    } else if (byte < 0x20 || byte == 0x7F) {
      cell += escapeControl(byte);
    } else {
      cell += c;
    }
  }
  return cell;
}

std::string csvCell(std::string_view bytes) {
  if (bytes.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(bytes);
  std::string cell = "\"";
  for (const char c : bytes)
    cell += c == '"' ? "\"\"" : std::string(1, c);
  return cell + '"';
}

std::string shellWord(std::string_view bytes) {
  std::string word = "'";
  for (const char c : bytes)
    word += c == '\'' ? "'\\''" : std::string(1, c);
  return word + '\'';
}

std::string base64(std::string_view bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      group = group << 8 | (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0u);
    }
    const std::size_t digits = std::min<std::size_t>(bytes.size() - i, 3) + 1;
    for (std::size_t j = 0; j < 4; ++j) {
      text += j < digits ? kDigits[group >> (18 - 6 * j) & 0x3F] : '=';
    }
  }
  return text;
}

std::string hexText(std::string_view bytes) {
  std::string text;
  for (const char c : bytes)
    text += fmt::format("{:02x}", static_cast<unsigned char>(c));
  return text;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(separator, start), text.size());
    parts.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

std::string join(const std::vector<std::string>& texts, std::string_view separator) {
  std::string joined;
  for (const std::string& text : texts) {
    if (&text != texts.data()) joined += separator;
    joined += text;
  }
  return joined;
}

std::string suggestion(std::string_view word, const std::vector<std::string>& candidates) {
  constexpr std::size_t kFarthest = 2;
  std::size_t best = std::min(kFarthest, word.size() / 2) + 1;
  const std::string* closest = nullptr;
  for (const std::string& candidate : candidates) {
    const std::size_t distance = editDistance(word, candidate);
    if (distance >= best) continue;
    best = distance;
    closest = &candidate;
  }
  return closest == nullptr ? "" : fmt::format(" (did you mean \"{}\"?)", *closest);
}

}  // namespace cli
