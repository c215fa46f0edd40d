// SPDX-License-Identifier: Apache-2.0
// The book's memory, the writers' plan, and the judge of lists.
#include "tests/concurrency/ledger.h"

namespace vrxtest {
namespace {

constexpr unsigned kOneInThree = 3;

// Well mixed bits of a writer's step.
std::uint32_t mixed(unsigned writer, unsigned sequence) {
  std::uint32_t bits = writer * 0x9E3779B9U + sequence * 0x85EBCA6BU;
  bits = (bits ^ (bits >> 16)) * 0x7FEB352DU;
  bits = (bits ^ (bits >> 15)) * 0x846CA68BU;
  return bits ^ (bits >> 16);
}

}  // namespace

Step stepOf(unsigned writer, unsigned sequence, const Standing& standing) {
  const std::uint32_t bits = mixed(writer, sequence);
  Step step;
  step.slot = bits % kSlots;
  if (standing[step.slot] == 0) {
    step.action = Action::kAdd;
  } else {
    step.action = (bits >> 8) % kOneInThree == 0 ? Action::kDelete : Action::kChange;
  }
  return step;
}

void Follower::advance(const WriterPage& page, unsigned step) {
  while (step_ < step) {
    const WriterPage::Entry& entry = page.entries[++step_];
    if (entry.fate == Fate::kMade) standing_[entry.slot] = entry.stands;
  }
}

void ListJudge::begin() {
  for (std::size_t writer = 0; writer < followers_.size(); ++writer) {
    const WriterPage& page = ledger_.writers[writer];
    followers_[writer].advance(page, page.ended);
  }
}

bool ListJudge::end(const Listing& listing) {
  changed_ = false;
  bool good = true;
  for (unsigned writer = 0; writer < followers_.size(); ++writer)
    good = endWriter(writer, listing.standing[writer]) && good;
  return good;
}

// Looks for the first moment that shows what was found. A list that shows none leaves the follower
// where it is, so that the next one is judged by the same measure.
bool ListJudge::endWriter(unsigned writer, const Standing& found) {
  const WriterPage& page = ledger_.writers[writer];
  const unsigned last = page.begun;
  Follower follower = followers_[writer];
  while (follower.standing() != found) {
    if (follower.step() >= last) return false;
    follower.advance(page, follower.step() + 1);
  }
  changed_ = changed_ || follower.step() != followers_[writer].step();
  followers_[writer] = follower;
  return true;
}

unsigned differences(const Standing& a, const Standing& b) {
  unsigned count = 0;
  for (unsigned slot = 0; slot < kSlots; ++slot)
    count += a[slot] != b[slot] ? 1 : 0;
  return count;
}

}  // namespace vrxtest
