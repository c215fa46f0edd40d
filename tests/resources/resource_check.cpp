// SPDX-License-Identifier: Apache-2.0
// resource_check [--operations N] [--format NAME]...: that many updates and lookups in one process,
// half of them by one object and half by objects that come and go, each with its status checked.
// What the process holds after a tenth of them it holds at the end. Prints "resources, NAME: N/N"
// for each format, and what was held.
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/osse/memory.h"
#include "tests/support/campaign.h"
#include "tests/support/subjects.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace vrxtest;

constexpr unsigned long kOperations = 100000;
constexpr unsigned kEnd = 0x900001BE;
constexpr unsigned kNoMatch = 0x900001F6;

struct Held {
  int descriptors = 0;
  unsigned long blocks = 0;
  std::size_t bytes = 0;
};

Held heldNow() {
  const int descriptors = openDescriptorCount();
  return {descriptors, ossMemLiveBlocks(), mallinfo2().uordblks};
}

std::string told(const Held& held) {
  return std::to_string(held.descriptors) + " descriptors, " + std::to_string(held.blocks) +
         " blocks, " + std::to_string(held.bytes) + " bytes";
}

// One call each, in a cycle that ends with the records it began with.
struct Call {
  unsigned wanted;
  unsigned (*run)(SubjectRegistry& registry);
};

unsigned lookUp(SubjectRegistry& registry, const char* name) {
  std::string found;
  return registry.get(name, &found);
}

unsigned scan(SubjectRegistry& registry) {
  std::string found;
  unsigned rc = registry.openScan();
  while (rc == 0)
    rc = registry.next(&found);
  const unsigned closed = registry.closeScan();
  return rc == kEnd ? closed : rc;
}

const std::vector<Call> kCycle = {
    {0,
     [](SubjectRegistry& r) {
       return r.add({"vnew", 1, "note"});
     }},
    {0, [](SubjectRegistry& r) { return lookUp(r, "vnew"); }},
    {0,
     [](SubjectRegistry& r) {
       return r.change("vnew", {"vnew", 2, "other"});
     }},
    {0, scan},
    {kNoMatch,
     [](SubjectRegistry& r) {
       return r.change("vnone", {"vnone", 2, ""});
     }},
    {kNoMatch, [](SubjectRegistry& r) { return lookUp(r, "vnone"); }},
    {0, [](SubjectRegistry& r) { return r.remove("vnew"); }},
};

class Endurance {
 public:
  Endurance(const Subject& subject, std::string path)
      : subject_(subject),
        path_(std::move(path)),
        score_("resources, " + std::string(subject.name)) {
    unsigned status = 0;
    lasting_ = subject_.open(path_, &status);
    for (const char* name : {"ione", "stwo", "vthree"})
      (void)lasting_->add({name, 1, ""});  // a registry without them would fail the calls
  }

  // Both looks are at the same point of the calls' order: an object may hold more between some.
  bool run(unsigned long operations) {
    const unsigned long round = 2 * kCycle.size();
    const unsigned long rounds = (operations + round - 1) / round;
    Held early;
    for (unsigned long i = 0; i < rounds * round; ++i) {
      if (i == (rounds + 9) / 10 * round) early = heldNow();
      const Call& call = kCycle[i % kCycle.size()];
      score_.begin();
      const unsigned rc = i / kCycle.size() % 2 == 0 ? call.run(*lasting_) : byFreshObject(call);
      score_.end("call " + std::to_string(i),
                 rc == call.wanted ? "" : "status " + std::to_string(rc));
    }
    const Held late = heldNow();
    score_.begin();
    score_.end("held", isConstant(early, late) ? "" : told(early) + ", then " + told(late));
    const bool passed = score_.tell();
    std::fprintf(stderr, "  %s, then %s\n", told(early).c_str(), told(late).c_str());
    return passed;
  }

 private:
  unsigned byFreshObject(const Call& call) const {
    unsigned status = 0;
    return call.run(*subject_.open(path_, &status));
  }

  static bool isConstant(const Held& early, const Held& late) {
    return early.descriptors == late.descriptors && early.blocks == late.blocks &&
           early.bytes == late.bytes;
  }

  const Subject& subject_;
  const std::string path_;
  Score score_;
  std::unique_ptr<SubjectRegistry> lasting_;
};

std::vector<std::string> allFormats() {
  std::vector<std::string> names;
  for (const Subject& subject : subjects())
    names.emplace_back(subject.name);
  return names;
}

// The C library keeps a few freed pieces of each size for the thread that freed them, and counts
// them as taken: how many depends on which sizes have been asked for so far. It is told not to when
// a program begins, so this one begins again.
void keepNoFreedPieces(char** argv) {
  constexpr char kTunables[] = "GLIBC_TUNABLES";
  if (std::getenv(kTunables) != nullptr) return;
  setenv(kTunables, "glibc.malloc.tcache_count=0", 1);
  execv("/proc/self/exe", argv);  // without it, the count is as exact as it can be
}

}  // namespace

int main(int argc, char** argv) {
  keepNoFreedPieces(argv);
  const CampaignOptions options = parseCampaign(argc, argv, allFormats());
  const unsigned long operations = options.operations != 0 ? options.operations : kOperations;
  bool passed = true;
  for (const std::string& format : options.formats) {
    const ScratchFolder folder;
    Endurance endurance(*findSubject(format), folder.file("reg"));
    passed =
        endurance.run((operations + options.formats.size() - 1) / options.formats.size()) && passed;
  }
  return passed ? 0 : 1;
}
