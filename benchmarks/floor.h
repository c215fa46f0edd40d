// SPDX-License-Identifier: Apache-2.0
// The least that the file formats and the update protocol ask for, done directly.
//
//   floor       reads the whole file with read(2) and walks its items in memory; an update writes a
//               whole new file, syncs it, renames it over the old one and syncs the folder
//   discipline  the floor, and what makes an update safe: the lock file, the look for duplicates,
//               both files read back and compared item by item, the backup linked and unlinked
//
// Neither checks more than it needs for that, reports anything or supports another format. The
// library is measured against them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "benchmarks/measure.h"
#include "benchmarks/raw_files.h"

namespace vrxbench {

enum class Action : unsigned char { kInsert, kChange, kRemove };

// One update: what identifies the item, and the item that takes its place (none for a removal).
struct Edit {
  Action action;
  std::string key;
  std::string item;
};

// What an update reads into, kept from one update to the next.
struct Buffers {
  Buffer old;
  Buffer fresh;
};

// The first item with this key, where it lies in `file`; nothing when there is none.
template <class Shape>
std::optional<std::string_view> findItem(std::string_view file, std::string_view key) {
  for (std::string_view rest = file; !rest.empty();) {
    const std::string_view item = Shape::next(rest);
    if (Shape::matches(item, key)) return item;
    rest.remove_prefix(item.size());
  }
  return std::nullopt;
}

// The whole file as items, for a program that looks at each.
template <class Shape, class Visit>
void visitItems(std::string_view file, const Visit& visit) {
  while (!file.empty()) {
    const std::string_view item = Shape::next(file);
    visit(item);
    file.remove_prefix(item.size());
  }
}

// The new file as pieces of the old one. `place` is the item that gives way, nothing for an insert.
inline Pieces piecesOf(std::string_view old, std::optional<std::string_view> place,
                       const Edit& edit) {
  if (edit.action == Action::kInsert) return {old, edit.item, {}};
  require(place.has_value(), "no such item");
  const auto offset = static_cast<std::size_t>(place->data() - old.data());
  return {old.substr(0, offset), edit.item, old.substr(offset + place->size())};
}

template <class Shape>
void floorUpdate(Buffers& buffers, const std::string& path, const Edit& edit,
                 Durability durability) {
  const std::string_view old = buffers.old.read(path);
  std::optional<std::string_view> place;
  if (edit.action != Action::kInsert) place = findItem<Shape>(old, edit.key);
  const std::string copy = path + ".tmp";
  writeNew(copy, piecesOf(old, place, edit), durability);
  replaceFile(copy, path, durability);
}

// The only item with this key. Items behind it are looked at, too: a second one would be ambiguous.
template <class Shape>
std::optional<std::string_view> findOnlyItem(std::string_view file, std::string_view key) {
  const std::optional<std::string_view> found = findItem<Shape>(file, key);
  if (!found) return found;
  const auto end = static_cast<std::size_t>(found->data() + found->size() - file.data());
  require(!findItem<Shape>(file.substr(end), key), "several items of one key");
  return found;
}

// Whether the two files differ by exactly this edit.
template <class Shape>
bool differBy(const Edit& edit, std::string_view old, std::string_view fresh) {
  bool made = false;
  while (!old.empty()) {
    const std::string_view before = Shape::next(old);
    old.remove_prefix(before.size());
    const bool selected = !made && Shape::matches(before, edit.key);
    if (selected && edit.action == Action::kInsert) return false;
    made = made || selected;
    if (selected && edit.action == Action::kRemove) continue;
    if (fresh.empty()) return false;
    const std::string_view after = Shape::next(fresh);
    if (after != (selected ? std::string_view(edit.item) : before)) return false;
    fresh.remove_prefix(after.size());
  }
  if (edit.action == Action::kInsert) return fresh == edit.item;
  return made && fresh.empty();
}

template <class Shape>
void lockedUpdate(Buffers& buffers, const std::string& path, const Companions& names,
                  const Edit& edit, Durability durability) {
  const std::string_view old = buffers.old.read(path);
  const std::optional<std::string_view> place = findOnlyItem<Shape>(old, edit.key);
  require(place.has_value() == (edit.action != Action::kInsert), "not the item that was expected");
  writeNew(names.copy, piecesOf(old, place, edit), durability);
  const std::string_view before = buffers.old.read(path);
  require(differBy<Shape>(edit, before, buffers.fresh.read(names.copy)), "the copy is not right");
  commitCopy(path, names, durability);
}

template <class Shape>
void disciplineUpdate(Buffers& buffers, const std::string& path, const Edit& edit,
                      Durability durability) {
  const Companions names(path);
  const LockFile lock(names.lock);
  lockedUpdate<Shape>(buffers, path, names, edit, durability);
}

}  // namespace vrxbench
