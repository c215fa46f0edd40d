// SPDX-License-Identifier: Apache-2.0
// The three text formats against a model of their own: random files and operations, the status and
// the file compared after each. VRX_MODEL_CASES asks for more files than the usual run's.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "platform/osse/files.h"
#include "tests/support/leak_check.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_model_driver.h"

namespace {

using vrxtest::TempDir;
using vrxtest::model::Choices;
using vrxtest::model::Format;
using vrxtest::model::Library;
using vrxtest::model::Operation;
using vrxtest::model::Outcome;
using vrxtest::model::Verb;

class SeededChoices : public Choices {
 public:
  explicit SeededChoices(unsigned seed) : random_(seed) {}
  unsigned below(unsigned bound) override { return static_cast<unsigned>(random_() % bound); }

 private:
  std::mt19937 random_;
};

// Syncing proves nothing here and takes most of the time.
class Unsynced {
 public:
  Unsynced() { ossSetSyncPolicy(OSSSyncPolicy::none); }
  ~Unsynced() { ossSetSyncPolicy(before_); }
  Unsynced(const Unsynced&) = delete;
  Unsynced& operator=(const Unsynced&) = delete;

 private:
  const OSSSyncPolicy before_ = ossGetSyncPolicy();
};

unsigned caseCount() {
  const char* const wanted = std::getenv("VRX_MODEL_CASES");
  const long count = wanted != nullptr ? std::strtol(wanted, nullptr, 10) : 0;
  return count > 0 ? static_cast<unsigned>(count) : 1200;
}

class TextModel : public ::testing::TestWithParam<Format> {
 protected:
  // One operation on a file with these bytes; leaves in `bytes` what the file then holds.
  void compare(std::string& bytes, const Operation& operation) {
    const Outcome wanted = vrxtest::model::expected(GetParam(), bytes, operation);
    const std::string story = vrxtest::model::described(GetParam(), bytes, operation);
    const unsigned rc = library_->run(operation);
    ASSERT_EQ(rc, wanted.status) << story;
    if (operation.verb == Verb::kFind && rc == 0) {
      ASSERT_EQ(library_->found(), vrxtest::model::expectedFound(GetParam(), bytes, operation))
          << story;
    }
    bytes = vrxtest::readFile(path_);
    ASSERT_EQ(bytes, wanted.bytes) << story;
    ++seen_[rc];
  }

  const TempDir folder_;
  const std::string path_ = folder_.file("reg");
  const std::unique_ptr<Library> library_ = vrxtest::model::libraryFor(GetParam(), path_);
  std::map<unsigned, unsigned> seen_;
};

TEST_P(TextModel, AgreesOnRandomFilesAndOperations) {
  const Unsynced unsynced;
  const vrxtest::LeakCheck leaks;
  for (unsigned seed = 0; seed < caseCount(); ++seed) {
    SCOPED_TRACE(seed);
    SeededChoices choices(seed);
    std::string bytes = vrxtest::model::randomFile(GetParam(), choices);
    vrxtest::writeFile(path_, bytes);
    for (int i = 0; i < 4 && !HasFatalFailure(); ++i)
      compare(bytes, vrxtest::model::randomOperation(GetParam(), choices));
    if (HasFatalFailure()) return;
  }
  // A generator that reaches no interesting outcome would prove nothing.
  for (const unsigned status :
       {0U, 0x900001F6U, 0x900001F7U, 0x900001FBU, 0x900001FCU, 0x900001CDU, 0x90000008U}) {
    EXPECT_GT(seen_[status], 0U) << std::hex << status;
  }
  if (GetParam() != Format::kProfile) {
    EXPECT_GT(seen_[0x900001F1U], 0U);
    EXPECT_GT(seen_[0x900001F8U], 0U);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, TextModel,
                         ::testing::Values(Format::kProfile, Format::kServices,
                                           Format::kInitTable));

}  // namespace
