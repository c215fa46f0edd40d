// SPDX-License-Identifier: Apache-2.0
// Change-log lines byte for byte, and a log that somebody forged.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>

#include "genreg/internal/function_ids.h"
#include "globalreg/global_reg.h"
#include "globalreg/internal/line_buffer.h"
#include "platform/osse/errors.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/global_records.h"
#include "tests/support/leave_child.h"
#include "tests/support/private_mounts.h"
#include "tests/support/temp_dir.h"

namespace {

using vrxtest::CapturedLog;
using vrxtest::inPrivateMounts;
using vrxtest::instanceRecord;
using vrxtest::serviceRecord;
using vrxtest::variableRecord;

constexpr char kLog[] = "/tmp/globalreg.debug";

// Inside private mounts: an environment in which every part of a line is known but the time.
void fixEnvironment() {
  setenv("VRX_GLOBAL_REG_PATHNAME", "/tmp/reg", 1);
  setenv("VRX_LEVEL_FILE", "/tmp/level", 1);
  setenv("TZ", "UTC", 1);
  vrxtest::writeFile("/tmp/level", "version=3.1.0.7\nbuild_level=s250131\nfixpack=7\n");
}

// A line without its time stamp, after a look at the stamp's form.
std::string withoutTime(const std::string& line) {
  constexpr std::size_t kStampEnd = 4 + 24 + 1;  // TS=" and 24 characters and "
  if (line.size() < kStampEnd) return "no line: " + line;
  std::tm parsed{};
  const std::string stamp = line.substr(4, 24);
  const char* end = strptime(stamp.c_str(), "%a %b %d %H:%M:%S %Y", &parsed);
  EXPECT_TRUE(end != nullptr && *end == '\0') << stamp;
  EXPECT_EQ(line.substr(0, 4), "TS=\"");
  EXPECT_EQ(line[28], '"');
  return line.substr(kStampEnd);
}

std::string expectedHead(const char* caller, const char* action) {
  return std::string(";CALLER=") + caller + ";PID=" + std::to_string(getpid()) +
         ";U=" + std::to_string(getuid()) + ";BL=s250131;FP=7;PATH=/tmp/reg;ACT=" + action;
}

std::string fileText() {
  return vrxtest::readFile(kLog);
}

TEST(ChangeLog, WidestLineFits) {
  inPrivateMounts([] {
    fixEnvironment();
    setenv("VRX_GLOBAL_REG_PATHNAME", std::string(1023, 'p').c_str(), 1);
    GlobalReg registry;
    GlobalRegRecord record;
    std::memset(&record, 'x', sizeof record);
    record.RecordType = kGlobalRegInstance;
    record.FieldMask = kInstanceKnown;
    std::string argument(1019, 'a');
    char* arguments[] = {argument.data()};
    registry.CallerArgCount = 1;
    registry.CallerArgs = arguments;
    ASSERT_EQ(GlobalReg::Log(&registry, kGenRegChange, &record, &record), 0);
    const std::string line = fileText();
    EXPECT_LT(line.size(), globalreg::LineBuffer::kCapacity);
    EXPECT_EQ(line.substr(line.size() - 257), std::string(256, 'x') + "\n");
    EXPECT_NE(line.find(";PATH=" + std::string(1023, 'p') + ";"), std::string::npos);
  });
}

TEST(ChangeLog, LineOfEachTypeAndAction) {
  inPrivateMounts([] {
    fixEnvironment();
    GlobalReg registry;
    GlobalRegRecord instance = instanceRecord("VRX", "inst1");
    GlobalRegRecord service = serviceRecord("VRX");
    GlobalRegRecord variable = variableRecord("VRX", "A", "1");
    const struct {
      GlobalRegRecord* record;
      const char* text;
    } records[] = {{&instance, "I,VRX,3.1.0.7,inst1,,,,,,,"},
                   {&service, "S,VRX,3.1.0.7,,,,,,,,"},
                   {&variable, "V,VRX,A,1,"}};
    const struct {
      unsigned int action;
      const char* word;
    } actions[] = {{4, "Add"}, {2, "Change"}, {8, "Delete"}, {1, "Unknown"}};
    for (const auto& action : actions) {
      for (const auto& record : records) {
        ASSERT_EQ(GlobalReg::Log(&registry, action.action, record.record, nullptr), 0);
        EXPECT_EQ(withoutTime(fileText()),
                  expectedHead("UNKNOWN", action.word) + ";CL=N/A;REC=" + record.text + "\n");
        ASSERT_EQ(unlink(kLog), 0);
      }
    }
  });
}

TEST(ChangeLog, ChangeWritesBothRecordsAndOtherActionsOne) {
  inPrivateMounts([] {
    fixEnvironment();
    GlobalReg registry;
    GlobalRegRecord key = variableRecord("VRX", "A", "1");
    GlobalRegRecord changed = variableRecord("VRX", "A", "2");
    ASSERT_EQ(GlobalReg::Log(&registry, kGenRegChange, &key, &changed), 0);
    EXPECT_EQ(withoutTime(fileText()),
              expectedHead("UNKNOWN", "Change") + ";CL=N/A;REC=V,VRX,A,1,!V,VRX,A,2,\n");
    ASSERT_EQ(unlink(kLog), 0);
    ASSERT_EQ(GlobalReg::Log(&registry, kGenRegDelete, &key, &changed), 0);
    EXPECT_EQ(fileText().find('!'), std::string::npos);
  });
}

TEST(ChangeLog, NamesTheCallerAndItsCommandLine) {
  inPrivateMounts([] {
    fixEnvironment();
    GlobalReg registry;
    registry.SetChangeLoggingFuncID(genreg::kOssSetInstanceInfo);
    std::string arguments[] = {"vrxreg", "instance", "set"};
    char* pointers[] = {arguments[0].data(), arguments[1].data(), arguments[2].data()};
    registry.CallerArgCount = 3;
    registry.CallerArgs = pointers;
    GlobalRegRecord record = variableRecord("VRX", "A", "1");
    ASSERT_EQ(GlobalReg::Log(&registry, kGenRegAdd, &record, nullptr), 0);
    EXPECT_EQ(withoutTime(fileText()), expectedHead("ossSetInstanceInfo", "Add") +
                                           ";CL=\"vrxreg instance set\";REC=V,VRX,A,1,\n");
  });
}

TEST(ChangeLog, WithoutLevelOrUsablePathTheirPartsAreEmpty) {
  inPrivateMounts([] {
    fixEnvironment();
    ASSERT_EQ(unlink("/tmp/level"), 0);
    setenv("VRX_GLOBAL_REG_PATHNAME", std::string(1024, 'p').c_str(), 1);
    GlobalReg registry;
    GlobalRegRecord record = variableRecord("VRX", "A", "1");
    ASSERT_EQ(GlobalReg::Log(&registry, kGenRegAdd, &record, nullptr), 0);
    EXPECT_NE(fileText().find(";BL=;FP=0;PATH=;ACT=Add;"), std::string::npos);
  });
}

TEST(ChangeLog, UpdatesThroughTheStoreWriteOneLineEach) {
  inPrivateMounts([] {
    fixEnvironment();
    GlobalReg registry;
    GlobalRegRecord key = variableRecord("VRX", "A", "1");
    GlobalRegRecord changed = variableRecord("VRX", "A", "2");
    ASSERT_EQ(registry.Add(kVariableKey, &key), 0);
    ASSERT_EQ(registry.Change(kVariableKey, &key, &changed), 0);
    ASSERT_EQ(registry.Delete(kVariableKey, &key), 0);
    EXPECT_NE(registry.Delete(kVariableKey, &key), 0);
    const std::string text = fileText();
    const std::size_t second = text.find('\n') + 1;
    const std::size_t third = text.find('\n', second) + 1;
    EXPECT_EQ(withoutTime(text.substr(0, second)),
              expectedHead("UNKNOWN", "Add") + ";CL=N/A;REC=V,VRX,A,1,\n");
    EXPECT_EQ(withoutTime(text.substr(second, third - second)),
              expectedHead("UNKNOWN", "Change") + ";CL=N/A;REC=V,VRX,A,1,!V,VRX,A,2,\n");
    EXPECT_EQ(withoutTime(text.substr(third)),
              expectedHead("UNKNOWN", "Delete") + ";CL=N/A;REC=V,VRX,A,1,\n");
  });
}

// Inside private mounts: logs one change.
void logOne() {
  GlobalReg registry;
  GlobalRegRecord record = variableRecord("VRX", "A", "1");
  EXPECT_EQ(GlobalReg::Log(&registry, kGenRegAdd, &record, nullptr), 0);
}

TEST(ChangeLog, IsEverybodysWhateverTheUmask) {
  inPrivateMounts([] {
    fixEnvironment();
    umask(077);
    logOne();
    EXPECT_EQ(vrxtest::modeOf(kLog), 0666);
  });
}

TEST(ChangeLog, ExistingLogIsAppendedToAndKeepsItsOwner) {
  if (getuid() != 0) GTEST_SKIP() << "takes a process of root's";
  inPrivateMounts([] {
    fixEnvironment();
    vrxtest::writeFile(kLog, "before\n");
    ASSERT_EQ(chown(kLog, 7002, 7003), 0);
    ASSERT_EQ(chmod(kLog, 0600), 0);
    logOne();
    struct stat info {};
    ASSERT_EQ(stat(kLog, &info), 0);
    EXPECT_EQ(info.st_uid, 7002U);
    EXPECT_EQ(info.st_gid, 7003U);
    EXPECT_EQ(vrxtest::modeOf(kLog), 0666);
    EXPECT_EQ(fileText().substr(0, 10), "before\nTS=");
  });
}

TEST(ChangeLog, AnotherUsersLogInAStickyFolderIsAppendedTo) {
  if (getuid() != 0) GTEST_SKIP() << "takes a process of root's";
  inPrivateMounts([] {
    fixEnvironment();
    vrxtest::writeFile(kLog, "");
    ASSERT_EQ(chmod(kLog, 0666), 0);
    ASSERT_EQ(chown(kLog, 7003, 7003), 0);
    ASSERT_EQ(setuid(7002), 0);
    logOne();
    EXPECT_EQ(fileText().substr(0, 4), "TS=\"");
  });
}

TEST(ChangeLog, LogThatMayNotBeWrittenFailsNoUpdate) {
  if (getuid() != 0) GTEST_SKIP() << "takes a process of root's";
  inPrivateMounts([] {
    fixEnvironment();
    vrxtest::writeFile(kLog, "");
    ASSERT_EQ(chmod("/tmp", 0777), 0);
    ASSERT_EQ(setuid(7002), 0);
    const CapturedLog log;
    GlobalReg registry;
    GlobalRegRecord record = variableRecord("VRX", "A", "1");
    EXPECT_EQ(registry.Add(kVariableKey, &record), 0);
    EXPECT_EQ(log.count(genreg::kGlobalRegLog, ossErrorMapSystem(EACCES)), 1);
  });
}

TEST(ChangeLog, LinkIsNotFollowed) {
  inPrivateMounts([] {
    fixEnvironment();
    vrxtest::writeFile("/tmp/victim", "mine");
    ASSERT_EQ(chmod("/tmp/victim", 0600), 0);
    ASSERT_EQ(symlink("/tmp/victim", kLog), 0);
    const CapturedLog log;
    logOne();
    EXPECT_EQ(vrxtest::readFile("/tmp/victim"), "mine");
    EXPECT_EQ(vrxtest::modeOf("/tmp/victim"), 0600);
    EXPECT_EQ(log.count(genreg::kGlobalRegLog, ossErrorMapSystem(ELOOP)), 1);
  });
}

TEST(ChangeLog, DanglingLinkCreatesNothing) {
  inPrivateMounts([] {
    fixEnvironment();
    ASSERT_EQ(symlink("/tmp/created", kLog), 0);
    logOne();
    EXPECT_FALSE(vrxtest::pathExists("/tmp/created"));
  });
}

TEST(ChangeLog, FileWithASecondNameIsNotTouched) {
  inPrivateMounts([] {
    fixEnvironment();
    vrxtest::writeFile("/tmp/victim", "mine");
    ASSERT_EQ(chmod("/tmp/victim", 0600), 0);
    ASSERT_EQ(link("/tmp/victim", kLog), 0);
    const CapturedLog log;
    logOne();
    EXPECT_EQ(vrxtest::readFile("/tmp/victim"), "mine");
    EXPECT_EQ(vrxtest::modeOf("/tmp/victim"), 0600);
    EXPECT_EQ(log.count(genreg::kGlobalRegLog), 1);
  });
}

TEST(ChangeLog, FifoNeitherBlocksNorReceives) {
  inPrivateMounts([] {
    fixEnvironment();
    ASSERT_EQ(mkfifo(kLog, 0600), 0);
    const CapturedLog log;
    logOne();  // nobody reads
    const int reader = open(kLog, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    logOne();
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 0);
    EXPECT_EQ(vrxtest::modeOf(kLog), 0600);
    EXPECT_EQ(log.count(genreg::kGlobalRegLog), 2);
  });
}

TEST(ChangeLog, FolderInTheLogsPlaceIsOnlyLogged) {
  inPrivateMounts([] {
    fixEnvironment();
    ASSERT_EQ(mkdir(kLog, 0700), 0);
    const CapturedLog log;
    logOne();
    EXPECT_EQ(log.count(genreg::kGlobalRegLog, ossErrorMapSystem(EISDIR)), 1);
    EXPECT_EQ(vrxtest::modeOf(kLog), 0700);
  });
}

TEST(ChangeLog, CloseAndLookThatFailAreOnlyLogged) {
  inPrivateMounts([] {
    fixEnvironment();
    GlobalReg registry;
    GlobalRegRecord record = variableRecord("VRX", "A", "1");
    const int before = vrxtest::openDescriptorCount();
    for (const vrxtest::Call call : {vrxtest::Call::kFstat, vrxtest::Call::kClose}) {
      // The level file is closed and looked at before the log is.
      vrxtest::CallCount logged(call);
      ASSERT_EQ(GlobalReg::Log(&registry, kGenRegAdd, &record, nullptr), 0);
      const int last = logged.calls();
      const CapturedLog log;
      const vrxtest::FailCall fault(call, last, EIO);
      EXPECT_EQ(GlobalReg::Log(&registry, kGenRegAdd, &record, nullptr), 0);
      EXPECT_TRUE(fault.fired());
      EXPECT_EQ(log.count(genreg::kGlobalRegLog), 1);
    }
    EXPECT_EQ(vrxtest::openDescriptorCount(), before);
  });
}

TEST(ChangeLog, LineThatCannotBeWrittenIsOnlyLogged) {
  inPrivateMounts([] {
    fixEnvironment();
    logOne();
    const rlim_t size = static_cast<rlim_t>(fileText().size());
    ASSERT_NE(signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    for (const rlim_t room : {rlim_t{0}, rlim_t{10}}) {
      const rlimit limit = {size + room, before.rlim_max};
      ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
      const CapturedLog log;
      logOne();
      ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);  // what is printed here may go to a file
      EXPECT_EQ(log.count(genreg::kGlobalRegLog, ossErrorMapSystem(room == 0 ? EFBIG : ENOSPC)), 1);
      EXPECT_EQ(log.count(genreg::kGlobalRegLog), 1);
    }
  });
}

TEST(ChangeLog, UnknownInstanceOwnerLeavesThePathEmpty) {
  inPrivateMounts([] {
    fixEnvironment();
    unsetenv("VRX_GLOBAL_REG_PATHNAME");
    setenv("VRXINSTANCE", "no such user", 1);
    logOne();
    EXPECT_NE(fileText().find(";PATH=;ACT=Add;"), std::string::npos);
  });
}

TEST(ChangeLog, PathIsTheHostWideOneWithoutVariables) {
  inPrivateMounts([] {
    fixEnvironment();
    unsetenv("VRX_GLOBAL_REG_PATHNAME");
    unsetenv("VRXINSTANCE");
    logOne();
    EXPECT_NE(fileText().find(";PATH=/var/vrx/global.reg;ACT=Add;"), std::string::npos);
  });
}

TEST(ChangeLog, LeavesNoDescriptorOpen) {
  inPrivateMounts([] {
    fixEnvironment();
    const int before = vrxtest::openDescriptorCount();
    for (int i = 0; i < 20; ++i)
      logOne();
    EXPECT_EQ(vrxtest::openDescriptorCount(), before);
  });
}

TEST(ChangeLog, LinesOfSeveralProcessesDoNotMix) {
  inPrivateMounts([] {
    fixEnvironment();
    for (int i = 0; i < 8; ++i) {
      if (fork() != 0) continue;
      for (int n = 0; n < 50; ++n)
        logOne();
      vrxtest::leaveChild(0);
    }
    while (wait(nullptr) > 0) {
    }
    const std::string text = fileText();
    int lines = 0;
    for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1, ++lines) {
      ASSERT_EQ(text.substr(at, 4), "TS=\"");
      const std::string end = "REC=V,VRX,A,1,\n";
      ASSERT_EQ(text.substr(text.find('\n', at) + 1 - end.size(), end.size()), end);
    }
    EXPECT_EQ(lines, 400);
  });
}

}  // namespace
