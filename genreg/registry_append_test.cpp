// SPDX-License-Identifier: Apache-2.0
// The append in place: with duplicates allowed and nothing to verify, Add writes at the registry's
// end. There is no copy to fall back on, so what is not kept is cut off again.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/plain_registry.h"
#include "tests/support/private_mounts.h"
#include "tests/support/process_settings.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace genreg;
using vrxtest::Call;
using vrxtest::CallCount;
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

class RegistryAppend : public testing::Test {
 protected:
  RegistryAppend() { writeFile(files.registry, old); }

  GenRegStatus add(const char* name) const {
    PlainRegistry registry(files.registry, kGenRegDuplicates);
    PlainRecord record = plainRecord(name, 1);
    return statusOf(registry.Add(vrxtest::kPlainName, &record));
  }
  // Opens for an append and writes a frame, without flushing it.
  void beginAppend(PlainRegistry& registry) const {
    ASSERT_EQ(registry.OpenReg(kGenRegAdd), 0u);
    ASSERT_EQ(std::fwrite("frame", 1, 5, registry.registryStream), 5u);
  }
  void expectOld() const { EXPECT_EQ(readFile(files.registry), old); }

  const LeakCheck leaks;
  const TempDir folder;
  const PlainFiles files{folder};
  const std::string old = plainFrame("first", 0);
};

TEST_F(RegistryAppend, RecordGoesToTheEndOfTheSameFile) {
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(stat(files.registry.c_str(), &before), 0);
  EXPECT_EQ(add("second"), 0u);
  EXPECT_EQ(add("second"), 0u);
  EXPECT_EQ(readFile(files.registry), old + plainFrame("second", 1) + plainFrame("second", 1));
  ASSERT_EQ(stat(files.registry.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  for (const std::string& path : {files.temporary, files.corrupt, files.backup}) {
    EXPECT_FALSE(pathExists(path)) << path;
  }
}

TEST_F(RegistryAppend, MissingRegistryIsCreated) {
  ASSERT_EQ(unlink(files.registry.c_str()), 0);
  EXPECT_EQ(add("only"), 0u);
  EXPECT_EQ(readFile(files.registry), plainFrame("only", 1));
}

TEST_F(RegistryAppend, LeftoversAreNotTouched) {
  writeFile(files.temporary, "leftover");
  EXPECT_EQ(add("second"), 0u);
  EXPECT_EQ(readFile(files.temporary), "leftover");
}

TEST_F(RegistryAppend, KeptAppendIsSyncedOnce) {
  const CallCount syncs(Call::kFsync);
  EXPECT_EQ(add("second"), 0u);
  EXPECT_EQ(syncs.calls(), 1);
}

TEST_F(RegistryAppend, AbandonedAppendIsCutOff) {
  PlainRegistry registry(files.registry, kGenRegDuplicates);
  beginAppend(registry);
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  expectOld();
}

TEST_F(RegistryAppend, AbandonedAppendThatWasFlushedIsCutOff) {
  PlainRegistry registry(files.registry, kGenRegDuplicates);
  beginAppend(registry);
  ASSERT_EQ(std::fflush(registry.registryStream), 0);
  EXPECT_EQ(readFile(files.registry), old + "frame");
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  expectOld();
}

// A call that fails while an append is kept: the status is 0x900001C7 and nothing was appended.
struct AppendFault {
  Call call;
  int nth;
};
constexpr AppendFault kKeepFaults[] = {
    {Call::kOtherFcntl, 2}, {Call::kFflush, 1}, {Call::kFsync, 1}, {Call::kFclose, 1}};

TEST_F(RegistryAppend, AppendThatCannotBeKeptIsCutOff) {
  for (const AppendFault& row : kKeepFaults) {
    const LeakCheck none;
    PlainRegistry registry(files.registry, kGenRegDuplicates);
    beginAppend(registry);
    const FailCall fault(row.call, row.nth, EIO);
    EXPECT_EQ(registry.CloseReg(kGenRegAdd), 0x900001C7u) << static_cast<int>(row.call);
    EXPECT_TRUE(fault.fired()) << static_cast<int>(row.call);
    EXPECT_EQ(registry.registryStream, nullptr);
    expectOld();
  }
}

TEST_F(RegistryAppend, AbandonedAppendIsCutOffWithoutASpareDescriptor) {
  PlainRegistry registry(files.registry, kGenRegDuplicates);
  beginAppend(registry);
  const FailCall fault(Call::kOtherFcntl, 2, EMFILE);
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  EXPECT_TRUE(fault.fired());
  expectOld();
}

TEST_F(RegistryAppend, WriteErrorBeforeTheCloseOfAnAppendIsNotForgotten) {
  PlainRegistry registry(files.registry, kGenRegDuplicates);
  beginAppend(registry);
  {
    const FailCall fault(Call::kFwrite, 1, ENOSPC);
    EXPECT_EQ(std::fwrite("more", 1, 4, registry.registryStream), 0u);
  }
  EXPECT_EQ(registry.CloseReg(kGenRegAdd), 0x900001C7u);
  expectOld();
}

TEST_F(RegistryAppend, AbandonedAppendThatCannotBeClosedIsReportedWithoutASpareDescriptor) {
  PlainRegistry registry(files.registry, kGenRegDuplicates);
  beginAppend(registry);
  const FailCall spare(Call::kOtherFcntl, 2, EMFILE);
  const FailCall fault(Call::kFclose, 1, EIO);
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0x900001C7u);
  EXPECT_TRUE(spare.fired());
  EXPECT_TRUE(fault.fired());
  expectOld();
}

TEST_F(RegistryAppend, AppendThatCannotBeCutOffIsReported) {
  PlainRegistry registry(files.registry, kGenRegDuplicates);
  beginAppend(registry);
  const FailCall fault(Call::kFtruncate, 1, EIO, vrxtest::Extent::kFromThenOn);
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0x900001C7u);
}

// Failures of the whole Add, with its status.
struct AddFault {
  Call call;
  int nth;
  GenRegStatus expected;
};
constexpr AddFault kAddFaults[] = {
    {Call::kFwrite, 1, 0x900001D2u}, {Call::kFwrite, 2, 0x900001D2u},
    {Call::kFseeko, 1, 0x900001DFu}, {Call::kFflush, 1, 0x900001C6u},
    {Call::kFsync, 1, 0x900001C6u},  {Call::kFclose, 1, 0x900001C6u},
};

TEST_F(RegistryAppend, FailedAddLeavesTheRegistryAsItWas) {
  for (const AddFault& row : kAddFaults) {
    const LeakCheck none;
    const FailCall fault(row.call, row.nth, EIO);
    EXPECT_EQ(add("second"), row.expected) << static_cast<int>(row.call);
    EXPECT_TRUE(fault.fired()) << static_cast<int>(row.call);
    expectOld();
  }
  EXPECT_EQ(add("second"), 0u) << "no lock is left";
}

TEST_F(RegistryAppend, AddThatRunsOutOfSpaceLeavesTheRegistryAsItWas) {
  vrxtest::inChildProcess([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {old.size() + 10, old.size() + 10};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(add("second"), 0x900001C6u);
  });
  expectOld();
}

TEST_F(RegistryAppend, ChecksumHeaderNeedsACopyInstead) {
  PlainRegistry registry(files.registry, kGenRegDuplicates | kGenRegChecksumHeader);
  PlainRecord record = plainRecord("second", 1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(statusOf(registry.Add(vrxtest::kPlainName, &record)), 0u);
  testing::internal::GetCapturedStdout();
  const std::string frames = old + plainFrame("second", 1);
  ASSERT_EQ(readFile(files.registry).size(), 32 + frames.size()) << "the record is lost";
  EXPECT_EQ(readFile(files.registry).substr(32), frames);
  EXPECT_FALSE(pathExists(files.temporary));
}

}  // namespace
