// SPDX-License-Identifier: Apache-2.0
// The 32-byte checksum header: stamped by a commit, checked by the object that stamped it,
// recognised and skipped by others.
#include "genreg/internal/checksum_header.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "genreg/bin/checksum.h"
#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/plain_registry.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace genreg;
using vrxtest::Call;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::pathExists;
using vrxtest::PlainFiles;
using vrxtest::plainFrame;
using vrxtest::PlainRecord;
using vrxtest::plainRecord;
using vrxtest::PlainRegistry;
using vrxtest::readFile;
using vrxtest::TempDir;
using vrxtest::writeFile;

// A header as it stands on disk.
std::string headerText(const std::string& text) {
  std::string header = text;
  header.resize(32, '\0');
  return header;
}

// What a header says about `body`, computed here in the plainest way for whole words.
std::string checksumText(const std::string& body) {
  unsigned checksum = 0;
  for (std::size_t i = 0; i + 4 <= body.size(); i += 4) {
    unsigned word = 0;
    std::memcpy(&word, body.data() + i, 4);
    checksum ^= word;
  }
  return std::to_string(static_cast<int>(checksum));
}

std::string stamped(const std::string& body) {
  return headerText(checksumText(body)) + body;
}

class ChecksumHeader : public testing::Test {
 protected:
  ChecksumHeader() { testing::internal::CaptureStdout(); }
  ~ChecksumHeader() override {
    const std::string text = printed();
    if (HasFailure()) std::fputs(text.c_str(), stdout);
  }

  // Standard output since the test began or asked before.
  std::string printed() {
    if (!capturing_) return {};
    capturing_ = false;
    return testing::internal::GetCapturedStdout();
  }

  GenRegStatus add(GenRegBin& registry, const char* name, int value = 1) const {
    PlainRecord record = plainRecord(name, value);
    return statusOf(registry.Add(vrxtest::kPlainName, &record));
  }
  GenRegStatus get(GenRegBin& registry, const char* name) const {
    PlainRecord key = plainRecord(name, 0);
    PlainRecord found{};
    const GenRegStatus rc = statusOf(registry.Get(vrxtest::kPlainName, &key, &found));
    EXPECT_STREQ(found.name, rc == 0 ? name : "");
    return rc;
  }
  // An object whose own commit has stamped a registry of the record "one".
  void stampOne(PlainRegistry& registry) const {
    ASSERT_EQ(add(registry, "one"), 0u);
    ASSERT_EQ(registry.copyLacksHeader, 0u);
  }

  const LeakCheck leaks;
  const TempDir folder;
  const PlainFiles files{folder};
  const std::string one = plainFrame("one", 1);
  const std::string two = plainFrame("two", 1);

 private:
  bool capturing_ = true;
};

constexpr unsigned kStamps = kGenRegChecksumHeader;

TEST_F(ChecksumHeader, FirstCommitInsertsTheHeader) {
  PlainRegistry registry(files.registry, kStamps);
  EXPECT_EQ(registry.copyLacksHeader, 1u);
  EXPECT_EQ(add(registry, "one"), 0u);
  EXPECT_EQ(readFile(files.registry), stamped(one));
  EXPECT_EQ(registry.copyLacksHeader, 0u);
}

TEST_F(ChecksumHeader, StampingTellsHowMuchItRead) {
  PlainRegistry registry(files.registry, kStamps);
  EXPECT_EQ(add(registry, "one"), 0u);
  EXPECT_EQ(add(registry, "two"), 0u);
  EXPECT_EQ(printed(), "Copy file into buffer done 24\nCopy file into buffer done 48\n");
}

TEST_F(ChecksumHeader, LaterCommitsFillTheHeaderThatTheyReserve) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  EXPECT_EQ(add(registry, "two"), 0u);
  EXPECT_EQ(readFile(files.registry), stamped(one + two));
  PlainRecord key = plainRecord("one", 0);
  EXPECT_EQ(statusOf(registry.Delete(vrxtest::kPlainName, &key)), 0u);
  EXPECT_EQ(readFile(files.registry), stamped(two));
  EXPECT_EQ(get(registry, "two"), 0u);
}

TEST_F(ChecksumHeader, NegativeChecksumIsWrittenAsSuch) {
  PlainRegistry registry(files.registry, kStamps);
  ASSERT_EQ(add(registry, "one", -2), 0u);
  const std::string contents = readFile(files.registry);
  EXPECT_EQ(contents[0], '-');
  EXPECT_EQ(contents, stamped(plainFrame("one", -2)));
  EXPECT_EQ(get(registry, "one"), 0u);
}

TEST_F(ChecksumHeader, DeletingTheLastRecordLeavesAnEmptyStampedRegistry) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  PlainRecord key = plainRecord("one", 0);
  EXPECT_EQ(statusOf(registry.Delete(vrxtest::kPlainName, &key)), 0u);
  EXPECT_EQ(readFile(files.registry), headerText("0"));
  EXPECT_EQ(get(registry, "one"), 0x900001F6u);
  PlainRegistry fresh(files.registry, kStamps);
  EXPECT_EQ(get(fresh, "one"), 0x900001F6u);
  EXPECT_EQ(add(fresh, "two"), 0u);
  EXPECT_EQ(readFile(files.registry), stamped(two));
}

TEST_F(ChecksumHeader, EmptyCopyGetsNoHeader) {
  writeFile(files.registry, one);
  PlainRegistry registry(files.registry, kStamps);
  PlainRecord key = plainRecord("one", 0);
  EXPECT_EQ(statusOf(registry.Delete(vrxtest::kPlainName, &key)), 0u);
  EXPECT_EQ(readFile(files.registry), "");
  EXPECT_EQ(registry.copyLacksHeader, 1u);
  EXPECT_EQ(printed(), "");
}

TEST_F(ChecksumHeader, AlteredBodyIsReportedByTheObjectThatStampedIt) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  std::string contents = readFile(files.registry);
  contents.back() ^= 1;
  writeFile(files.registry, contents);
  for (const unsigned mode : {kGenRegRead, kGenRegChange, kGenRegAdd, kGenRegDelete}) {
    EXPECT_EQ(registry.OpenReg(mode), 0x900005A4u) << mode;
    EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  }
  EXPECT_FALSE(pathExists(files.temporary)) << "refused before a copy is made";
  EXPECT_EQ(get(registry, "one"), 0x900001C5u);
}

TEST_F(ChecksumHeader, AlteredHeaderIsReported) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  const std::string text = checksumText(one);
  for (const std::string& header :
       {headerText("0"), headerText(""), headerText(text + " "), headerText(" " + text),
        headerText("0" + text), std::string(32, '7')}) {
    writeFile(files.registry, header + one);
    EXPECT_EQ(registry.OpenReg(kGenRegRead), 0x900005A4u) << header;
  }
}

TEST_F(ChecksumHeader, PaddingBehindTheTextHasNoMeaning) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  std::string contents = readFile(files.registry);
  contents.replace(20, 12, "whatever was");
  writeFile(files.registry, contents);
  EXPECT_EQ(get(registry, "one"), 0u);
  PlainRegistry fresh(files.registry, kStamps);
  EXPECT_EQ(get(fresh, "one"), 0u);
}

TEST_F(ChecksumHeader, FreshObjectSkipsAHeaderAndChecksNothingLater) {
  writeFile(files.registry, stamped(one + two));
  PlainRegistry registry(files.registry, kStamps);
  EXPECT_EQ(get(registry, "two"), 0u);
  EXPECT_EQ(registry.copyLacksHeader, 1u);
  EXPECT_EQ(registry.firstRecord, 32u);
}

TEST_F(ChecksumHeader, FreshObjectReadsFramesWithoutAHeader) {
  writeFile(files.registry, one + two);
  PlainRegistry registry(files.registry, kStamps);
  EXPECT_EQ(get(registry, "two"), 0u);
  EXPECT_EQ(registry.firstRecord, 0u);
}

TEST_F(ChecksumHeader, UpdateByAFreshObjectStampsAnew) {
  writeFile(files.registry, stamped(one));
  PlainRegistry registry(files.registry, kStamps);
  EXPECT_EQ(add(registry, "two"), 0u);
  EXPECT_EQ(readFile(files.registry), stamped(one + two));
  EXPECT_EQ(registry.copyLacksHeader, 0u);
}

TEST_F(ChecksumHeader, OnlyCanonicalTextWithAnAgreeingChecksumIsAHeader) {
  const std::string text = checksumText(one);
  const std::string wrong = std::to_string(std::stoi(text) ^ 1);
  for (const std::string& header :
       {headerText("+" + text), headerText(" " + text), headerText("0" + text), headerText(wrong),
        headerText(text + "\n"), headerText(""), text + std::string(32 - text.size(), ' ')}) {
    writeFile(files.registry, header + one);
    PlainRegistry registry(files.registry, kStamps);
    EXPECT_EQ(registry.OpenReg(kGenRegRead), 0u);
    EXPECT_EQ(registry.firstRecord, 0u) << header;
  }
}

TEST_F(ChecksumHeader, FilesShorterThanAHeaderHaveNone) {
  for (const std::size_t size : {0u, 1u, 24u, 31u}) {
    writeFile(files.registry, std::string(size, '0'));
    PlainRegistry registry(files.registry, kStamps);
    EXPECT_EQ(registry.OpenReg(kGenRegRead), 0u) << size;
    EXPECT_EQ(registry.firstRecord, 0u) << size;
  }
}

TEST_F(ChecksumHeader, EmptiedRegistryHasNoHeaderAnyMore) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  writeFile(files.registry, "");
  EXPECT_EQ(registry.OpenReg(kGenRegRead), 0u);
  EXPECT_EQ(registry.copyLacksHeader, 1u);
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  EXPECT_EQ(add(registry, "two"), 0u);
  EXPECT_EQ(readFile(files.registry), stamped(two));
}

TEST_F(ChecksumHeader, RemovedRegistryIsStampedAgainByTheNextAdd) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  ASSERT_EQ(unlink(files.registry.c_str()), 0);
  EXPECT_EQ(add(registry, "two"), 0u);
  EXPECT_EQ(readFile(files.registry), stamped(two));
  EXPECT_EQ(get(registry, "two"), 0u);
}

TEST_F(ChecksumHeader, RegistryCutWithinItsHeaderIsUnreadable) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  for (const std::size_t size : {1u, 31u}) {
    writeFile(files.registry, stamped(one).substr(0, size));
    EXPECT_EQ(registry.OpenReg(kGenRegRead), 0x900001CDu) << size;
    EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
    EXPECT_EQ(registry.OpenScan(), 0x900001CDu) << size;
    EXPECT_EQ(registry.registryStream, nullptr);
  }
}

TEST_F(ChecksumHeader, RegistryTooLargeToChecksumIsRefusedByTheObjectThatStampedIt) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  ASSERT_EQ(truncate(files.registry.c_str(), 3LL << 30), 0);
  EXPECT_EQ(registry.OpenReg(kGenRegRead), 0x900001EBu);
  PlainRegistry fresh(files.registry, kStamps);
  EXPECT_EQ(fresh.OpenReg(kGenRegRead), 0u);
  EXPECT_EQ(fresh.firstRecord, 0u) << "nothing tells that it is a header";
}

TEST_F(ChecksumHeader, ScanAndRewindSkipTheHeader) {
  writeFile(files.registry, stamped(one + two));
  PlainRegistry registry(files.registry, kStamps);
  ASSERT_EQ(registry.OpenScan(), 0u);
  for (int round = 0; round < 2; ++round) {
    for (const char* name : {"one", "two"}) {
      PlainRecord key{};
      PlainRecord found{};
      EXPECT_EQ(registry.GetNext(0, &key, &found), 0);
      EXPECT_STREQ(found.name, name);
    }
    EXPECT_EQ(registry.Rewind(), 0u);
  }
  EXPECT_EQ(registry.CloseScan(), 0u);
}

TEST_F(ChecksumHeader, ScanChecksNothing) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  writeFile(files.registry, headerText("12") + one);
  EXPECT_EQ(registry.OpenScan(), 0u);
  PlainRecord key{};
  PlainRecord found{};
  EXPECT_EQ(registry.GetNext(0, &key, &found), 0);
}

TEST_F(ChecksumHeader, OtherStoresAndFeaturesHaveNone) {
  writeFile(files.registry, stamped(one));
  PlainRegistry plain(files.registry, 0);
  EXPECT_EQ(plain.OpenReg(kGenRegRead), 0u);
  EXPECT_EQ(plain.firstRecord, 0u);
  PlainRegistry text(files.registry, kStamps);
  text.storeType = kGenRegTextStore;
  EXPECT_EQ(text.OpenReg(kGenRegRead), 0u);
  EXPECT_EQ(text.firstRecord, 0u);
  EXPECT_FALSE(usesChecksumHeader(text));
}

TEST_F(ChecksumHeader, VerificationEmptiesTheCopyAndSoRefusesTheUpdate) {
  writeFile(files.registry, one);
  PlainRegistry registry(files.registry, kGenRegVerifyCommit | kStamps);
  EXPECT_EQ(add(registry, "two"), 0x900001FBu);
  EXPECT_EQ(readFile(files.registry), one);
  EXPECT_EQ(registry.copyLacksHeader, 1u);
}

// Calls that fail while the object that stamped the registry opens it.
struct HeaderFault {
  Call call;
  int nth;
  int error;
  GenRegStatus expected;
};
constexpr HeaderFault kOpenFaults[] = {
    {Call::kMemAlloc, 1, ENOMEM, 0x900001EBu}, {Call::kMemFree, 1, EINVAL, 0x900001EEu},
    {Call::kFseeko, 1, EIO, 0x900001CDu},      {Call::kFread, 1, EIO, 0x900001CDu},
    {Call::kFread, 2, EIO, 0x900005A5u},       {Call::kFseeko, 2, EIO, 0x900001CDu},
};

TEST_F(ChecksumHeader, EveryFailureOfTheCheckIsReported) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  for (const HeaderFault& row : kOpenFaults) {
    const FailCall fault(row.call, row.nth, row.error);
    EXPECT_EQ(registry.OpenReg(kGenRegRead), row.expected) << static_cast<int>(row.call);
    EXPECT_TRUE(fault.fired()) << static_cast<int>(row.call);
    EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  }
}

TEST_F(ChecksumHeader, FreshObjectThatCannotTellWhetherThereIsAHeaderRefuses) {
  writeFile(files.registry, stamped(one));
  PlainRegistry registry(files.registry, kStamps);
  {
    const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
    EXPECT_EQ(registry.OpenReg(kGenRegRead), 0x900001EBu);
  }
  const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
  EXPECT_EQ(registry.OpenScan(), 0x900001EBu);
  EXPECT_EQ(registry.registryStream, nullptr);
}

TEST_F(ChecksumHeader, HeaderThatCannotBeReservedIsReported) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  const FailCall fault(Call::kFwrite, 1, ENOSPC);
  EXPECT_EQ(registry.OpenReg(kGenRegChange), 0x900001C0u);
}

// Calls that fail while a copy is stamped. The numbers differ for a first and a later stamping.
constexpr HeaderFault kInsertFaults[] = {
    {Call::kFseeko, 1, EIO, 0x900005A5u},      {Call::kFtello, 1, EIO, 0x900005A5u},
    {Call::kMemAlloc, 1, ENOMEM, 0x900001EBu}, {Call::kFflush, 1, EIO, 0x900005A5u},
    {Call::kFseeko, 2, EIO, 0x900005A5u},      {Call::kFread, 1, EIO, 0x900005A5u},
    {Call::kFseeko, 3, EIO, 0x900001D0u},      {Call::kFwrite, 1, ENOSPC, 0x900001D0u},
    {Call::kFwrite, 2, ENOSPC, 0x900001D0u},   {Call::kFflush, 2, EIO, 0x900001C8u},
};

TEST_F(ChecksumHeader, EveryFailureOfAFirstStampingIsReportedAndCommitsNothing) {
  for (const HeaderFault& row : kInsertFaults) {
    const LeakCheck none;
    writeFile(files.registry, one);
    PlainRegistry registry(files.registry, kStamps);
    ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
    ASSERT_EQ(std::fwrite(two.data(), 1, two.size(), registry.temporaryStream), two.size());
    const FailCall fault(row.call, row.nth, row.error);
    EXPECT_EQ(registry.CloseReg(kGenRegChange), row.expected)
        << static_cast<int>(row.call) << '/' << row.nth;
    EXPECT_TRUE(fault.fired()) << static_cast<int>(row.call) << '/' << row.nth;
    EXPECT_EQ(readFile(files.registry), one);
    EXPECT_EQ(registry.copyLacksHeader, 1u);
    EXPECT_EQ(registry.temporaryStream, nullptr);
  }
}

TEST_F(ChecksumHeader, FailedStampIsNotSynced) {
  writeFile(files.registry, one);
  PlainRegistry registry(files.registry, kStamps);
  ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
  ASSERT_EQ(std::fwrite(two.data(), 1, two.size(), registry.temporaryStream), two.size());
  const vrxtest::CallCount syncs(Call::kFsync);
  const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001EBu);
  EXPECT_EQ(syncs.calls(), 0);
}

TEST_F(ChecksumHeader, FailureOfALaterStampingCommitsNothing) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  for (const HeaderFault& row : {kInsertFaults[0], kInsertFaults[1], kInsertFaults[7]}) {
    ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
    ASSERT_EQ(std::fwrite(two.data(), 1, two.size(), registry.temporaryStream), two.size());
    {
      const FailCall fault(row.call, row.nth, row.error);
      EXPECT_EQ(registry.CloseReg(kGenRegChange), row.expected) << static_cast<int>(row.call);
    }
    EXPECT_EQ(readFile(files.registry), stamped(one));
    EXPECT_EQ(get(registry, "one"), 0u);
  }
}

TEST_F(ChecksumHeader, CopyCutBelowItsReservedHeaderIsNotCommitted) {
  PlainRegistry registry(files.registry, kStamps);
  stampOne(registry);
  ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
  ASSERT_EQ(std::fflush(registry.temporaryStream), 0);
  ASSERT_EQ(truncate(files.temporary.c_str(), 5), 0);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001EBu);
  EXPECT_EQ(readFile(files.registry), stamped(one));
}

TEST_F(ChecksumHeader, FailedCommitKeepsTheFlag) {
  writeFile(files.registry, one);
  PlainRegistry registry(files.registry, kStamps);
  const FailCall fault(Call::kRename, 1, EIO);
  EXPECT_EQ(add(registry, "two"), 0x900001C6u);
  EXPECT_EQ(registry.copyLacksHeader, 1u);
}

// Sparse files: a checksum counts its bytes in an int.
constexpr off_t kThreeGibibytes = off_t{3} << 30;

TEST_F(ChecksumHeader, FileTooLargeToBeCheckedIsReadAsFrames) {
  writeFile(files.registry, one);
  ASSERT_EQ(truncate(files.registry.c_str(), kThreeGibibytes), 0);
  PlainRegistry registry(files.registry, kStamps);
  EXPECT_EQ(get(registry, "one"), 0u);
}

TEST_F(ChecksumHeader, HeaderThatCannotBeReadIsTakenForNone) {
  writeFile(files.registry, two + one);
  PlainRegistry registry(files.registry, kStamps);
  const FailCall fault(Call::kFseeko, 1, EIO);
  EXPECT_EQ(get(registry, "one"), 0u);
  EXPECT_TRUE(fault.fired());
}

TEST_F(ChecksumHeader, CopyTooLargeToBeStampedIsNotCommitted) {
  writeFile(files.registry, one);
  PlainRegistry registry(files.registry, kStamps);
  ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
  ASSERT_EQ(ftruncate(fileno(registry.temporaryStream), kThreeGibibytes), 0);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001EBu);
  EXPECT_EQ(readFile(files.registry), one);
}

}  // namespace
