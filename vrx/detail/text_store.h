// SPDX-License-Identifier: Apache-2.0
// The store of records that are lines of a text, written once over the format. Not for programs.
//
// A Format tells what it knows about its lines:
//
//     using Record, Key, Registry, Native   the value, its key, the exact object, its record
//     kJoining, kKeyMask, kMakesFile        how lines are read; the key's bits; whether an Add may
//                                           make a missing file
//     keyOf(record)                         a value's key
//     kindOf(native)                        what a parsed line is
//     read(native, &record), understood()   the value of an entry, and whether it may be changed
//     layOut(record, line)                  writes the entry over the old line, as the library
//     refuse(record)                        refuses values that no line of the format can hold
//     lost(old, record)                     text of the old line that no field holds and would go
//
// Records are given to the library as it will read them: laid out as a line first, and parsed.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vrx/detail/exact_formats.h"
#include "vrx/detail/line_reader.h"
#include "vrx/detail/opened.h"
#include "vrx/detail/refusals.h"

namespace vrx {
namespace detail {

// Texts as the library's records point to them, while this object lives. The records' pointers are
// not const, though nothing is written through them, so they are given copies.
class LineTexts {
 public:
  char* keep(const std::string& text) { return texts_.emplace_back(text).data(); }
  char* keep(const std::optional<std::string>& text) { return text ? keep(*text) : nullptr; }
  // Ends with a null pointer; null for no texts.
  char** keep(const std::vector<std::string>& texts) {
    if (texts.empty()) return nullptr;
    for (const std::string& text : texts)
      list_.push_back(keep(text));
    list_.push_back(nullptr);
    return list_.data();
  }

 private:
  std::deque<std::string> texts_;
  std::vector<char*> list_;
};

inline std::string textOrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

// A parsed comment as it is shown: without the one blank that formatters put behind the "#".
inline std::optional<std::string> shownComment(const char* comment) {
  if (comment == nullptr) return {};
  return std::string(*comment == ' ' ? comment + 1 : comment);
}

// Parses a logical line; what `native` holds afterwards points into itself. All zero on a failure.
template <class Format>
GenRegStatus parseLine(std::string line, typename Format::Native* native) {
  const GenRegStatus code = genreg::statusOf(Format::Registry::ParseLine(native, line.data()));
  if (code != genreg::status::ok) std::memset(native, 0, sizeof *native);
  return code;
}

// Reads the lines of an object's open scan. The stream is a second one on the same open file, with
// a buffer of its own.
template <class Format>
class LineScan {
 public:
  using Store = OpenedStore<typename Format::Registry>;

  explicit LineScan(const Store& store) : store_(store), guard_(store) {}

  Status open() {
    Status opened = guard_.open();
    if (!opened) return opened;
    const int copy = fcntl(fileno(store_.native().registryStream), F_DUPFD_CLOEXEC, 0);
    stream_.reset(copy < 0 ? nullptr : fdopen(copy, "r"));
    if (stream_ != nullptr) {
      lines_.emplace(stream_.get(), Format::kJoining);
      return {};
    }
    const GenRegStatus code = ossErrorMapSystem(errno);
    if (copy >= 0) (void)::close(copy);  // nothing was read from it
    return Status(code, store_.path());
  }

  Status close() {
    lines_.reset();
    stream_.reset();
    return guard_.close();
  }

  // The next line; *ended behind the last one.
  Status nextLine(TextLine* line, bool* ended) {
    *ended = !lines_->next(line);
    if (!*ended) obstacles_.note(*line, Format::kJoining);
    if (*ended && std::ferror(stream_.get()) != 0) return failure();
    return {};
  }

  // The next entry; *ended behind the last one.
  Status next(Stored<typename Format::Record>* record, bool* ended) {
    TextLine line;
    for (;;) {
      Status status = nextLine(&line, ended);
      if (!status || *ended) return status;
      if (kindOf(line) == LineKind::entry) break;
    }
    *record = {};
    Format::read(native_, record);
    record->image = {line.number, std::move(line.raw), std::move(line.logical),
                     Format::understood(native_)};
    return {};
  }

  // Parses the line.
  LineKind kindOf(const TextLine& line) {
    if (line.tooLong) return LineKind::unparsed;
    if (parseLine<Format>(line.logical, &native_) != genreg::status::ok) {
      return kindOfUnparsed(line.raw);
    }
    return Format::kindOf(native_);
  }

  long long position() const { return stream_ == nullptr ? 0 : ftello(stream_.get()); }
  const Obstacles& obstacles() const { return obstacles_; }

 private:
  Status failure() const { return Status(genreg::status::read_failed, store_.path()); }

  Store store_;
  ScanGuard<typename Format::Registry> guard_;
  std::unique_ptr<FILE, CloseFile> stream_;
  std::optional<LineReader> lines_;
  typename Format::Native native_{};
  Obstacles obstacles_;
};

template <class Format>
class TextStore : public OpenedStore<typename Format::Registry> {
 public:
  using Base = OpenedStore<typename Format::Registry>;
  using Base::Base;
  using Record = typename Format::Record;
  using Key = typename Format::Key;
  using Scan = LineScan<Format>;
  using SeveralAllowed = vrx::detail::SeveralAllowed;

  static Key keyOf(const Record& record) { return Format::keyOf(record); }
  static bool hasKey(const Record& record, const Key& key) { return Format::keyOf(record) == key; }
  static bool same(const Record& a, const Record& b) { return a == b; }

  Status check(const Stored<Record>* old, const Record& next, Loss loss) const {
    if (old != nullptr && !old->image.understood) return notUnderstood(old->image);
    Refusals refusals;
    Record::visitFields(next, [&](const char* name, const auto& value) {
      refusals << refuseNul(name, value)
               << refuseBytes(name, value, "\n", "a line end ends the record");
    });
    refusals << Format::refuse(next);
    if (!refusals.status()) return refusals.status();
    refusals << checkLine(old, next);
    const std::string lost = old == nullptr || loss == Loss::accepted ? "" : lostText(*old, next);
    if (!lost.empty()) refusals << Status::refused("", lossOf(lost));
    return refusals.status();
  }

  // What would go with the line of `old` when `next` takes its place, though no field shows it.
  static std::string lostText(const Stored<Record>& old, const Record& next) {
    return Format::lost(old, next);
  }
  static std::string lossOf(const std::string& lost) {
    return "its line holds " + quoted(lost) + ", which would not be kept as it stands";
  }

  // What an update is going to stumble over is better known before it begins: a refused Add leaves
  // its copy behind.
  Status add(const Record& record) const {
    Status readable = this->readable();
    if (readable.noFile() && !Format::kMakesFile) return readable;
    Status first = readable ? firstLook(record) : Status();
    typename Format::Native native{};
    if (first) first = parse(nullptr, record, &native);
    if (!first) return first;
    return explained(this->native().Add(Format::kKeyMask, &native));
  }

  Status replace(const Stored<Record>& old, const Record& next) const {
    typename Format::Native key{};
    typename Format::Native native{};
    Status status = readBack(old, &key);
    if (status) status = parse(&old, next, &native);
    if (!status) return status;
    return explained(this->native().Change(kWholeRecord, &key, &native));
  }

  Status remove(const Stored<Record>& old) const { return removeBy(kWholeRecord, old); }
  Status removeKey(const Stored<Record>& old) const { return removeBy(Format::kKeyMask, old); }

 private:
  static Status notUnderstood(const LineImage& image) {
    return Status::refused("",
                           "line " + std::to_string(image.line) +
                               " is not understood and is left alone: " + quoted(image.shown()));
  }

  // The record that was read, as the library has it.
  Status readBack(const Stored<Record>& old, typename Format::Native* native) const {
    Status readable = this->readable();
    return readable ? Status(parseLine<Format>(old.image.logical, native)) : readable;
  }

  Status removeBy(unsigned long long mask, const Stored<Record>& old) const {
    if (!old.image.understood) return notUnderstood(old.image);
    typename Format::Native key{};
    Status status = readBack(old, &key);
    return status ? explained(this->native().Delete(mask, &key)) : status;
  }

  // The line that `next` makes must read as `next` does.
  Status checkLine(const Stored<Record>* old, const Record& next) const {
    typename Format::Native native{};
    Status status = parse(old, next, &native);
    if (!status) return status;
    if (Format::kindOf(native) != LineKind::entry) {
      return Status(genreg::status::record_not_formatted).because("it would be no entry");
    }
    Record back;
    Format::read(native, &back);
    return sameFields(next, back);
  }

  static Status sameFields(const Record& next, const Record& back) {
    std::vector<std::pair<std::string, bool>> given;
    Record::visitFields(next, [&](const char*, const auto& value) {
      given.emplace_back(textOf(value), isPresent(value));
    });
    Refusals refusals;
    std::size_t i = 0;
    Record::visitFields(back, [&](const char* name, const auto& value) {
      const auto& [text, present] = given[i++];
      if (text == textOf(value) && present == isPresent(value)) return;
      refusals << wouldChange(name, text, ", but as " + quoted(textOf(value)));
    });
    return refusals.status();
  }

  // Lays `next` out over the old line, and parses what came out.
  static Status parse(const Stored<Record>* old, const Record& next,
                      typename Format::Native* native) {
    char line[kGenRegLineSize] = {};
    if (old != nullptr) {
      const char* text = old->image.text.c_str();
      std::memcpy(line, text, strnlen(text, sizeof line - 1));
    }
    const GenRegStatus code = Format::layOut(next, line);
    if (code != genreg::status::ok) return Status(code);
    const std::string logical = logicalLine(withoutLineEnd(line) + "\n", Format::kJoining);
    return Status(parseLine<Format>(logical, native));
  }

  // Reads the whole file for lines that stop an Add.
  Obstacles obstacles() const {
    Scan scan(*this);
    TextLine line;
    bool ended = !scan.open();
    while (!ended) {
      if (!scan.nextLine(&line, &ended)) break;
    }
    (void)scan.close();  // the update that follows, or has failed, tells
    return scan.obstacles();
  }

  Status firstLook(const Record& record) const {
    Scan scan(*this);
    Stored<Record> stored;
    bool ended = false;
    Status status = scan.open();
    while (status && !ended) {
      status = scan.next(&stored, &ended);
      if (status && !ended && hasKey(stored, keyOf(record))) {
        status = Status(genreg::status::duplicate_record);
      }
    }
    const Status closed = scan.close();
    if (!status) return status;
    const GenRegStatus code = scan.obstacles().status();
    return code == genreg::status::ok ? closed
                                      : Status(code).because(scan.obstacles().describe(code));
  }

  // The outcome of an update; where a line of the file explains it, the line is named.
  Status explained(GenRegStatus code) const {
    const bool mayBeALine = code == genreg::status::read_failed ||
                            code == genreg::status::buffer_too_small ||
                            code == genreg::status::verify_failed;
    return mayBeALine ? Status(code).because(obstacles().describe(code)) : Status(code);
  }
};

}  // namespace detail
}  // namespace vrx
