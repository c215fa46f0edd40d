// SPDX-License-Identifier: Apache-2.0
// damage_check [--stride N] [--format NAME]...: every byte of a registry of three records set to
// every value, and the registry cut to every length; each result looked up, scanned, added to,
// changed and deleted from. Prints "damage, NAME: N/N" for each format. A stride takes every Nth
// value, other ones at each byte. What must hold stands in judges.h.
#include <cstdio>
#include <string>
#include <vector>

#include "tests/damage/judges.h"
#include "tests/support/campaign.h"

namespace {

using vrxtest::CampaignOptions;
using vrxtest::Score;
using vrxtest::damage::Judge;

constexpr unsigned kValues = 256;

void tryOne(Judge& judge, Score& score, const std::string& bytes, const std::string& what) {
  score.begin();
  score.end(what, judge.complaintAbout(bytes));
}

bool damageFormat(const std::string& format, unsigned long stride) {
  const vrxtest::ScratchFolder folder;
  const auto judge = vrxtest::damage::judgeFor(format, folder.file("reg"));
  const std::string original = judge->original();
  Score score("damage, " + format);
  for (std::size_t size = 0; !original.empty() && size <= original.size(); ++size) {
    tryOne(*judge, score, original.substr(0, size), "cut to " + std::to_string(size));
  }
  for (std::size_t at = 0; at < original.size(); ++at) {
    for (unsigned long value = at % stride; value < kValues; value += stride) {
      std::string bytes = original;
      bytes[at] = static_cast<char>(value);
      tryOne(*judge, score, bytes, "byte " + std::to_string(at) + " = " + std::to_string(value));
    }
  }
  return score.tell();
}

}  // namespace

int main(int argc, char** argv) {
  const CampaignOptions options =
      vrxtest::parseCampaign(argc, argv,
                             {"global", "profile", "services", "inittab", "binvar", "bigendian",
                              "checksum", "checksum-kept"});
  bool sound = true;
  for (const std::string& format : options.formats)
    sound = damageFormat(format, options.stride) && sound;
  return sound ? 0 : 1;
}
