// SPDX-License-Identifier: Apache-2.0
// model_check [--operations N] [--seed S] [--format NAME]...: random operations on registries of up
// to a dozen records, each by a fresh object and followed by a scan by another one; every status
// and every record compared with a model. Prints "model, NAME: N/N" for each format.
#include <string>

#include "tests/model/comparison.h"
#include "tests/support/campaign.h"

namespace {

using vrxtest::Score;
using vrxtest::model::Comparison;

constexpr unsigned long kOperations = 1000000;

std::unique_ptr<Comparison> comparisonOf(const std::string& format, const std::string& path,
                                         unsigned long seed) {
  const bool text = format == "profile" || format == "services" || format == "inittab";
  return text ? vrxtest::model::textComparison(format, path, seed)
              : vrxtest::model::binaryComparison(format, path, seed);
}

// After a disagreement the rest would disagree for the same reason: it counts as failed.
bool compareFormat(const std::string& format, unsigned long operations, unsigned long seed) {
  const vrxtest::ScratchFolder folder;
  const auto comparison = comparisonOf(format, folder.file("reg"), seed);
  Score score("model, " + format);
  std::string complaint;
  for (unsigned long i = 0; i < operations; ++i) {
    score.begin();
    const bool agreed = complaint.empty();
    if (agreed) complaint = comparison->step();
    const std::string what = "seed " + std::to_string(seed) + ", step " + std::to_string(i);
    score.end(what, agreed ? complaint : "not tried");
  }
  return score.tell();
}

}  // namespace

int main(int argc, char** argv) {
  const vrxtest::CampaignOptions options = vrxtest::parseCampaign(
      argc, argv, {"global", "profile", "services", "inittab", "binvar", "bigendian", "checksum"});
  const unsigned long operations = options.operations != 0 ? options.operations : kOperations;
  bool agreed = true;
  for (const std::string& format : options.formats)
    agreed = compareFormat(format, operations, options.seed) && agreed;
  return agreed ? 0 : 1;
}
