// SPDX-License-Identifier: Apache-2.0
// The writer's and the reader's loops.
#include "tests/concurrency/contenders.h"

#include <chrono>

#include "genreg/registry.h"

namespace vrxtest {
namespace {

using Clock = std::chrono::steady_clock;

// Notes a record that was read; false when it is nobody's, or there already.
bool take(const Claim& claim, Listing* listing) {
  if (claim.writer >= kMostWriters || claim.slot >= kSlots) return false;
  unsigned& slot = listing->standing[claim.writer][claim.slot];
  if (slot != 0) return false;
  slot = claim.sequence;
  return true;
}

class Writer {
 public:
  Writer(const Arena& arena, AnyRegistry& registry, unsigned writer)
      : arena_(arena), registry_(registry), writer_(writer), page_(arena.ledger->writers[writer]) {}

  void settle();
  void run();

 private:
  Step begin(unsigned sequence);
  unsigned make(const Step& step, unsigned sequence);
  void noteFailure(WriterPage::Entry& entry, unsigned status);
  void end(unsigned sequence, unsigned status, std::chrono::microseconds taken);

  const Arena& arena_;
  AnyRegistry& registry_;
  const unsigned writer_;
  WriterPage& page_;
  Follower follower_;
};

// What stands must be what was acknowledged, or that with the update which nobody heard of again.
void Writer::settle() {
  const unsigned begun = page_.begun;
  follower_.advance(page_, page_.ended);
  const Listing listing = listWith(registry_, *arena_.format);
  const Standing& found = listing.standing[writer_];
  Follower made = follower_;
  made.advance(page_, begun);
  if (begun != page_.ended && found == made.standing()) {
    ++page_.foundMade;
  } else if (begun != page_.ended) {
    page_.entries[begun].fate = Fate::kNotMade;
    ++page_.foundUnmade;
  }
  follower_.advance(page_, begun);
  page_.ended = begun;
  page_.lost += listing.complete ? differences(follower_.standing(), found) : kSlots;
  follower_.adopt(found);
}

Step Writer::begin(unsigned sequence) {
  const Step step = stepOf(writer_, sequence, follower_.standing());
  WriterPage::Entry& entry = page_.entries[sequence];
  entry.slot = step.slot;
  entry.stands = step.action == Action::kDelete ? 0 : sequence;
  entry.fate = Fate::kMade;
  page_.begun = sequence;
  return step;
}

unsigned Writer::make(const Step& step, unsigned sequence) {
  const SignedFormat& format = *arena_.format;
  const Claim claim{writer_, step.slot, sequence};
  const unsigned long long mask = format.mask(claim);
  const std::shared_ptr<void> key = format.key(claim);
  const std::shared_ptr<void> record = format.record(claim);
  switch (step.action) {
    case Action::kAdd:
      return registry_.update(kGenRegAdd, mask, nullptr, record.get());
    case Action::kChange:
      return registry_.update(kGenRegChange, mask, key.get(), record.get());
    case Action::kDelete:
      break;
  }
  return registry_.update(kGenRegDelete, mask, key.get(), nullptr);
}

// A record of this writer's that cannot be found has been lost: then its slot holds nothing.
void Writer::noteFailure(WriterPage::Entry& entry, unsigned status) {
  if (status == genreg::status::no_match) {
    entry.stands = 0;
    ++page_.lost;
  } else {
    entry.fate = Fate::kNotMade;
  }
}

void Writer::end(unsigned sequence, unsigned status, std::chrono::microseconds taken) {
  WriterPage::Entry& entry = page_.entries[sequence];
  if (status != 0) {
    noteFailure(entry, status);
    if (page_.failures++ == 0) page_.firstFailure = status;
  }
  entry.micros = static_cast<std::uint32_t>(taken.count());
  page_.ended = sequence;
  if (status == 0) ++page_.acknowledged;
  follower_.advance(page_, sequence);
}

void Writer::run() {
  for (unsigned sequence = page_.begun + 1;
       page_.acknowledged < arena_.updates && sequence <= kMostSteps; ++sequence) {
    const Step step = begin(sequence);
    const Clock::time_point start = Clock::now();
    const unsigned status = make(step, sequence);
    end(sequence, status,
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start));
  }
}

void note(const Listing& listing, bool good, bool changed, ReaderPage* page) {
  ++page->lists;
  page->records += listing.records;
  page->wholeRecords += listing.wholeRecords;
  if (listing.complete) ++page->wholeLists;
  if (listing.complete && good) ++page->goodLists;
  if (changed) ++page->changes;
}

}  // namespace

Listing listWith(AnyRegistry& registry, const SignedFormat& format) {
  Listing listing;
  const std::shared_ptr<void> key = format.blank();
  const std::shared_ptr<void> record = format.blank();
  if (registry.openScan() != 0) return listing;
  bool good = true;
  unsigned status = 0;
  while ((status = registry.next(key.get(), record.get())) == 0) {
    Claim claim;
    const bool whole = format.read(record.get(), &claim);
    ++listing.records;
    listing.wholeRecords += whole ? 1 : 0;
    good = whole && take(claim, &listing) && good;
  }
  const bool closed = registry.closeScan() == 0;
  listing.complete = good && closed && status == genreg::status::end_of_registry;
  return listing;
}

Listing listOf(const Arena& arena) {
  Listing listing;
  std::string path = arena.path;
  arena.format->use(path.data(), [&](AnyRegistry& registry) {
    if (registry.constructed() == 0) listing = listWith(registry, *arena.format);
  });
  return listing;
}

void writeAll(const Arena& arena, unsigned writer) {
  std::string path = arena.path;
  arena.format->use(path.data(), [&](AnyRegistry& registry) {
    Writer self(arena, registry, writer);
    self.settle();
    self.run();
  });
}

void readAll(const Arena& arena, unsigned reader) {
  ReaderPage& page = arena.ledger->readers[reader];
  ListJudge judge(*arena.ledger, arena.writers);
  std::string path = arena.path;
  arena.format->use(path.data(), [&](AnyRegistry& registry) {
    bool last = false;
    do {
      last = arena.ledger->over != 0;
      judge.begin();
      const Listing listing = listWith(registry, *arena.format);
      const bool good = judge.end(listing);
      note(listing, good, judge.changed(), &page);
    } while (!last);
  });
}

}  // namespace vrxtest
