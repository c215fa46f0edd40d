// SPDX-License-Identifier: Apache-2.0
// The search: many places at a time where every processor of the kind can, else the C library's.
#include "genreg/text/internal/find_text.h"

#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace genreg {

#ifdef __SSE2__
namespace {

// Bytes that are looked at together.
constexpr unsigned long kWide = sizeof(__m128i);
__m128i load(const unsigned char* from) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

// Of a longer text, every place that looks right costs more than the C library's search does.
constexpr unsigned long kLongText = 64;

struct Text {
  const char* bytes;
  unsigned long length;
  unsigned char first() const { return static_cast<unsigned char>(bytes[0]); }
  unsigned char last() const { return static_cast<unsigned char>(bytes[length - 1]); }
  bool standsAt(const unsigned char* place) const { return std::memcmp(place, bytes, length) == 0; }
};

// Among the places from `at` on before `stop`.
const unsigned char* findByFirst(const unsigned char* at, const unsigned char* stop,
                                 const Text& text) {
  while (at != stop) {
    const void* next = std::memchr(at, text.first(), static_cast<unsigned long>(stop - at));
    if (next == nullptr) break;
    at = static_cast<const unsigned char*>(next);
    if (text.standsAt(at)) return at;
    ++at;
  }
  return nullptr;
}

// Looks at sixteen places at a time: only where both ends of the text stand is the whole compared.
class WideSearch {
 public:
  explicit WideSearch(const Text& text)
      : text_(text),
        first_(_mm_set1_epi8(static_cast<char>(text.first()))),
        last_(_mm_set1_epi8(static_cast<char>(text.last()))) {}

  // Moves `at` on to the text, or to the last places before `stop`, too few for another look.
  bool find(const unsigned char*& at, const unsigned char* stop) const {
    for (; static_cast<unsigned long>(stop - at) >= kWide; at += kWide) {
      for (unsigned likely = likelyPlaces(at); likely != 0; likely &= likely - 1) {
        const unsigned char* place = at + __builtin_ctz(likely);
        if (!text_.standsAt(place)) continue;
        at = place;
        return true;
      }
    }
    return false;
  }

 private:
  // A bit for each place where the text's first and last byte stand.
  unsigned likelyPlaces(const unsigned char* at) const {
    const __m128i begins = _mm_cmpeq_epi8(load(at), first_);
    const __m128i ends = _mm_cmpeq_epi8(load(at + text_.length - 1), last_);
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(begins, ends)));
  }

  const Text text_;
  const __m128i first_;
  const __m128i last_;
};

// With room for the text.
const unsigned char* findShort(const unsigned char* bytes, unsigned long size, const Text& text) {
  const unsigned char* at = bytes;
  const unsigned char* const stop = bytes + (size - text.length) + 1;  // of where it can begin
  return WideSearch(text).find(at, stop) ? at : findByFirst(at, stop, text);
}

// A bit for each of the bytes that ends a line.
unsigned lineEnds(const unsigned char* at) {
  const __m128i bytes = load(at);
  const __m128i newlines = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n'));
  const __m128i nuls = _mm_cmpeq_epi8(bytes, _mm_setzero_si128());
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(newlines, nuls)));
}

}  // namespace
#endif

const unsigned char* findText(const unsigned char* bytes, unsigned long size, const char* text,
                              unsigned long length) {
  if (length > size) return nullptr;
#ifdef __SSE2__
  if (length <= kLongText) return findShort(bytes, size, {text, length});
#endif
  return static_cast<const unsigned char*>(memmem(bytes, size, text, length));
}

const unsigned char* findLineEnd(const unsigned char* bytes, unsigned long size) {
#ifdef __SSE2__
  for (; size >= kWide; bytes += kWide, size -= kWide) {
    if (const unsigned ends = lineEnds(bytes); ends != 0) return bytes + __builtin_ctz(ends);
  }
#endif
  const auto* newline = static_cast<const unsigned char*>(std::memchr(bytes, '\n', size));
  const auto before = newline != nullptr ? static_cast<unsigned long>(newline - bytes) : size;
  const auto* nul = static_cast<const unsigned char*>(std::memchr(bytes, '\0', before));
  return nul != nullptr ? nul : newline;
}

}  // namespace genreg
