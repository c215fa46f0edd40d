// SPDX-License-Identifier: Apache-2.0
// The store of records in binary frames, written once over the format. Not for programs.
//
// A Format tells what it knows about its records:
//
//     using Record, Key, Registry, Native   the value, its key, the exact object, its record
//     kKeyMask, kAllMask                    the bits of the key, and of all that is compared
//     keyOf(record), same(a, b)             a value's key; whether two values are the same
//     isOne(native)                         whether a record of the file is of this kind
//     read(registry, at, native, &stored)   the value and the image of a record that begins at `at`
//     native(image)                         the library's record in an image
//     put(old, next, &native)               writes the fields in which `next` differs from `old`
//                                           (null: all fields)
//     refuse(next), rule(&native)           refuses values; the rule that a record breaks
#pragma once

#include "vrx/detail/opened.h"
#include "vrx/detail/refusals.h"
#include "vrx/stored.h"

namespace vrx {
namespace detail {

template <class Format>
class FrameScan {
 public:
  using Store = OpenedStore<typename Format::Registry>;

  explicit FrameScan(const Store& store) : store_(store), guard_(store) {}

  Status open() { return guard_.open(); }
  Status close() { return guard_.close(); }
  long long position() const { return position_; }

  // The next record of this kind; *ended behind the last one.
  Status next(Stored<typename Format::Record>* record, bool* ended) {
    for (;;) {
      const GenRegStatus code = readFrame();
      *ended = code == genreg::status::end_of_registry;
      if (*ended) return {};
      if (code != genreg::status::ok) return Status(code, store_.path());
      if (Format::isOne(native_)) break;
    }
    *record = {};
    Format::read(store_.native(), position_, native_, record);
    return {};
  }

 private:
  GenRegStatus readFrame() {
    const GenRegStatus code = store_.native().getRegFilePosition(&position_);
    if (code != genreg::status::ok) return code;
    typename Format::Native anything{};
    return genreg::statusOf(store_.native().GetNext(0, &anything, &native_));
  }

  Store store_;
  ScanGuard<typename Format::Registry> guard_;
  typename Format::Native native_{};
  long long position_ = 0;
};

template <class Format>
class BinaryStore : public OpenedStore<typename Format::Registry> {
 public:
  using Base = OpenedStore<typename Format::Registry>;
  using Base::Base;
  using Record = typename Format::Record;
  using Key = typename Format::Key;
  using Scan = FrameScan<Format>;
  using SeveralAllowed = vrx::detail::SeveralAllowed;

  static Key keyOf(const Record& record) { return Format::keyOf(record); }
  static bool hasKey(const Record& record, const Key& key) { return Format::keyOf(record) == key; }
  static bool same(const Record& a, const Record& b) { return a == b; }

  Status check(const Stored<Record>* old, const Record& next, Loss) const {
    Refusals refusals;
    Record::visitFields(
        next, [&](const char* name, const auto& value) { refusals << refuseNul(name, value); });
    refusals << Format::refuse(next);
    if (!refusals.status()) return refusals.status();
    typename Format::Native native = changed(old, next);
    return Status(Format::rule(&native));
  }

  // The library looks for a record with the same key while it holds the lock.
  Status add(const Record& record) const {
    typename Format::Native native = changed(nullptr, record);
    return Status(genreg::statusOf(this->native().Add(Format::kKeyMask, &native)));
  }

  // Fields that a record lacks are compared as well, so that one which somebody else has added
  // meanwhile is noticed rather than lost.
  Status replace(const Stored<Record>& old, const Record& next) const {
    Status readable = this->readable();
    if (!readable) return readable;
    typename Format::Native key = Format::native(old.image);
    typename Format::Native native = changed(&old, next);
    return Status(genreg::statusOf(this->native().Change(Format::kAllMask, &key, &native)));
  }

  Status remove(const Stored<Record>& old) const { return removeBy(Format::kAllMask, old); }
  Status removeKey(const Stored<Record>& old) const { return removeBy(Format::kKeyMask, old); }

 private:
  static typename Format::Native changed(const Stored<Record>* old, const Record& next) {
    typename Format::Native native{};
    if (old != nullptr) native = Format::native(old->image);
    Format::put(old, next, &native);
    return native;
  }

  Status removeBy(unsigned long long mask, const Stored<Record>& old) const {
    Status readable = this->readable();
    if (!readable) return readable;
    typename Format::Native key = Format::native(old.image);
    return Status(genreg::statusOf(this->native().Delete(mask, &key)));
  }
};

}  // namespace detail
}  // namespace vrx
