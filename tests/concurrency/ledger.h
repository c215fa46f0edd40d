// SPDX-License-Identifier: Apache-2.0
// The book that writers keep in shared memory about their updates, and what it says a list of the
// registry may show. It outlives the writers, which are killed: whoever holds a list can tell
// whether every acknowledged update stands in it. Making the updates is not its matter
// (contenders.h).
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

#include "tests/concurrency/signed_records.h"

namespace vrxtest {

constexpr unsigned kMostWriters = 16;
constexpr unsigned kMostReaders = 4;
constexpr unsigned kSlots = 12;
constexpr unsigned kMostSteps = 4000;

// The sequence number that stands in each slot of a writer, 0 for none.
using Standing = std::array<unsigned, kSlots>;

enum class Action : unsigned { kAdd, kChange, kDelete };

// What a writer does in its update `sequence`, when `standing` stands: the same whenever it is
// asked.
struct Step {
  unsigned slot = 0;
  Action action = Action::kAdd;
};
Step stepOf(unsigned writer, unsigned sequence, const Standing& standing);

// What has become of a step that was begun.
enum class Fate : std::uint32_t { kMade, kNotMade };

// One writer's page. Only its process writes here; a step's entry is complete before `begun` counts
// it.
struct WriterPage {
  struct Entry {
    std::atomic<std::uint32_t> slot;
    std::atomic<std::uint32_t> stands;  // the sequence number, or 0 when the step removes
    std::atomic<Fate> fate;             // settled when `ended` counts the step
    std::atomic<std::uint32_t> micros;  // how long an acknowledged update took
  };
  std::atomic<std::uint32_t> begun;         // steps
  std::atomic<std::uint32_t> ended;         // this many, or one less
  std::atomic<std::uint32_t> acknowledged;  // updates that returned 0
  std::atomic<std::uint32_t> foundMade;     // updates whose process died in them, behind the commit
  std::atomic<std::uint32_t> foundUnmade;   // likewise, before it
  std::atomic<std::uint32_t> failures;      // updates that returned something else
  std::atomic<std::uint32_t> firstFailure;
  std::atomic<std::uint32_t> lost;  // records that were not there when the writer looked
  Entry entries[kMostSteps + 1];    // by sequence number
};

struct ReaderPage {
  std::atomic<std::uint32_t> lists;
  std::atomic<std::uint32_t> wholeLists;  // that could be read to their end, each record once
  std::atomic<std::uint32_t> goodLists;   // of those, that show one moment, and none of the past
  std::atomic<std::uint32_t> records;
  std::atomic<std::uint32_t> wholeRecords;
  std::atomic<std::uint32_t> changes;  // lists that differ from the one before
};

struct Ledger {
  std::atomic<std::uint32_t> over;  // tells the readers to end
  WriterPage writers[kMostWriters];
  ReaderPage readers[kMostReaders];
};

// Follows one writer's standing from step to step.
class Follower {
 public:
  const Standing& standing() const { return standing_; }
  unsigned step() const { return step_; }
  // Goes on to the step, which has begun.
  void advance(const WriterPage& page, unsigned step);
  // Takes over what stands, whatever the page says.
  void adopt(const Standing& standing) { standing_ = standing; }

 private:
  Standing standing_{};
  unsigned step_ = 0;
};

// All records of a list, or none when it could not be read.
struct Listing {
  bool complete = false;  // the scan came to its end, every record was whole, and none stood twice
  unsigned records = 0;
  unsigned wholeRecords = 0;
  std::array<Standing, kMostWriters> standing{};
};

// Judges lists one after the other.
class ListJudge {
 public:
  ListJudge(const Ledger& ledger, unsigned writers) : ledger_(ledger), followers_(writers) {}
  // Before the list is read: what has been acknowledged now must show in it.
  void begin();
  // After it: whether each writer's records are those of one moment between the two.
  bool end(const Listing& listing);
  bool changed() const { return changed_; }

 private:
  bool endWriter(unsigned writer, const Standing& found);

  const Ledger& ledger_;
  std::vector<Follower> followers_;
  bool changed_ = false;
};

// The number of slots in which the two differ.
unsigned differences(const Standing& a, const Standing& b);

}  // namespace vrxtest
