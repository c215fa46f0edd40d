// SPDX-License-Identifier: Apache-2.0
// One call's trace, log and first failure.
#include "genreg/internal/operation.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "genreg/registry.h"
#include "platform/osse/log.h"
#include "platform/osse/names.h"
#include "platform/osse/trace.h"

namespace {

using namespace genreg;

// The log's entries with everything in them.
class FullLog {
 public:
  struct Entry {
    unsigned function;
    unsigned probe;
    OSSStatus code;
    OSSStatus inner;
    std::string text;
  };

  FullLog() { (void)ossSetLogCallback(keep, this); }  // a callback cannot be refused
  ~FullLog() { (void)ossSetLogSink(OSSLogSink::none); }
  FullLog(const FullLog&) = delete;
  FullLog& operator=(const FullLog&) = delete;

  std::vector<Entry> entries;

 private:
  static void keep(const OSSLogEntry* e, void* context) {
    static_cast<FullLog*>(context)->entries.push_back(
        {e->function, e->probe, e->code, e->inner, e->text});
  }
};

class FullTrace {
 public:
  struct Event {
    GTraceKind kind;
    unsigned function;
    unsigned probe;
    OSSStatus result;
    std::string data;
  };

  FullTrace() { (void)gtraceAttach(keep, this); }  // a collector cannot be refused
  ~FullTrace() { (void)gtraceDetach(); }
  FullTrace(const FullTrace&) = delete;
  FullTrace& operator=(const FullTrace&) = delete;

  std::vector<Event> events;

 private:
  static void keep(const GTraceEvent* e, void* context) {
    const auto* bytes = static_cast<const char*>(e->data);
    static_cast<FullTrace*>(context)->events.push_back(
        {e->kind, e->function, e->probe, e->result,
         bytes != nullptr ? std::string(bytes, e->size) : std::string()});
  }
};

TEST(Operation, IsSuccessUntilSomethingFails) {
  const Operation op(kGenRegFileLock);
  EXPECT_FALSE(op.failed());
  EXPECT_EQ(op.status(), 0u);
  EXPECT_EQ(op.result(), 0);
}

TEST(Operation, FirstFailureIsTheResult) {
  const FullLog log;
  Operation op(kGenRegFileLock, "/some/path");
  EXPECT_EQ(op.fail(1, status::read_failed), 0x900001CDu);
  EXPECT_EQ(op.fail(2, status::close_failed), 0x900001CDu);
  EXPECT_EQ(op.conclude(status::no_match), 0x900001CDu);
  EXPECT_EQ(op.status(), 0x900001CDu);
  EXPECT_EQ(statusOf(op.result()), 0x900001CDu);
  ASSERT_EQ(log.entries.size(), 2u);
  EXPECT_EQ(log.entries[1].code, 0x900001C6u);
}

TEST(Operation, FailureIsLoggedWithFunctionProbeCodeAndPath) {
  const FullLog log;
  Operation op(kGenRegFileUnLock, "/some/path");
  (void)op.fail(7, status::unlock_failed);  // only its log entry is wanted
  ASSERT_EQ(log.entries.size(), 1u);
  EXPECT_EQ(log.entries[0].function, 0x082A000Cu);
  EXPECT_EQ(log.entries[0].probe, 7u);
  EXPECT_EQ(log.entries[0].code, 0x900003F7u);
  EXPECT_EQ(log.entries[0].inner, 0u);
  EXPECT_EQ(log.entries[0].text, "/some/path");
}

TEST(Operation, InnerCodeIsLoggedAndNotReturned) {
  const FullLog log;
  Operation op(kGenRegFileUnLock);
  EXPECT_EQ(op.fail(1, status::unlock_failed, status::lock_held), 0x900003F7u);
  ASSERT_EQ(log.entries.size(), 1u);
  EXPECT_EQ(log.entries[0].inner, 0x90000014u);
  EXPECT_EQ(log.entries[0].text, "");
}

TEST(Operation, SystemErrorsBecomeInnerCodes) {
  const FullLog log;
  Operation op(kGenRegFileCloseReg);
  EXPECT_EQ(op.failErrno(1, status::backup_not_linked, EIO), 0x900001E1u);
  EXPECT_EQ(op.failErrno(2, status::copy_not_closed, ENOMEM), 0x900001E1u);
  ASSERT_EQ(log.entries.size(), 2u);
  EXPECT_EQ(log.entries[0].inner, 0x90000080u + EIO);
  EXPECT_EQ(log.entries[1].inner, 0x9000000Du);
}

TEST(Operation, ExpectedOutcomeIsNotLogged) {
  const FullLog log;
  Operation op(kGenRegBinGet);
  EXPECT_EQ(op.conclude(status::no_match), 0x900001F6u);
  EXPECT_TRUE(op.failed());
  EXPECT_TRUE(log.entries.empty());
}

TEST(Operation, NoteIsLoggedAndChangesNothing) {
  const FullLog log;
  Operation op(kGenRegBinAdd);
  op.note(3, status::lock_held, status::ok);
  EXPECT_FALSE(op.failed());
  ASSERT_EQ(log.entries.size(), 1u);
  EXPECT_EQ(log.entries[0].probe, 3u);
}

TEST(Operation, ExplanationCarriesLabelValueAndPath) {
  const FullLog log;
  Operation op(kGenRegBinReadRecord, "/reg");
  op.explain(4, status::frame_past_end, "length", 4294967295ULL);
  EXPECT_FALSE(op.failed());
  ASSERT_EQ(log.entries.size(), 1u);
  EXPECT_EQ(log.entries[0].text, "length=4294967295 /reg");
}

TEST(Operation, LongPathIsCutInTheLogOnly) {
  const FullLog log;
  const std::string path(3000, 'p');
  Operation op(kGenRegBinReadRecord, path.c_str());
  op.explain(4, status::frame_past_end, "length", 1);
  ASSERT_EQ(log.entries.size(), 1u);
  EXPECT_LT(log.entries[0].text.size(), 1200u);
  EXPECT_EQ(log.entries[0].text.substr(0, 12), "length=1 ppp");
}

TEST(Operation, EntryExitAndErrorsAreTraced) {
  const FullTrace trace;
  {
    Operation op(kGenRegFileOpenReg);
    (void)op.fail(5, status::no_registry);  // only its trace is wanted
  }
  ASSERT_EQ(trace.events.size(), 3u);
  EXPECT_EQ(trace.events[0].kind, GTraceKind::entry);
  EXPECT_EQ(trace.events[0].function, 0x082A000Du);
  EXPECT_EQ(trace.events[1].kind, GTraceKind::errorVariable);
  EXPECT_EQ(trace.events[1].probe, 5u);
  GenRegStatus code = 0;
  ASSERT_EQ(trace.events[1].data.size(), sizeof code);
  std::memcpy(&code, trace.events[1].data.data(), sizeof code);
  EXPECT_EQ(code, 0x90000513u);
  EXPECT_EQ(trace.events[2].kind, GTraceKind::exit);
  EXPECT_EQ(trace.events[2].result, 0x90000513u);
}

TEST(Operation, PublicFunctionsTraceEntryAndExit) {
  const FullTrace trace;
  GenRegFile registry;
  EXPECT_EQ(registry.CloseScan(), 0u);
  ASSERT_EQ(trace.events.size(), 2u);
  EXPECT_EQ(trace.events[0].function, 0x082A0011u);
  EXPECT_EQ(trace.events[1].result, 0u);
}

TEST(Operation, FunctionNamesArePrintable) {
  EXPECT_STREQ(ecfGetFunctionName(0x082A0002), "GenRegBase::setFeature");
  EXPECT_STREQ(ecfGetFunctionName(kGenRegFileLock), "GenRegFile::Lock");
  EXPECT_STREQ(ecfGetFunctionName(kGenRegBinAdd), "GenRegBin::Add");
  EXPECT_STREQ(ecfGetFunctionName(0x082AFFFF), "0x082AFFFF");
}

TEST(Operation, FunctionIdentifiersStayInTheirRangeAndAreUnique) {
  const unsigned identifiers[] = {
#define VRX_FUNCTION(identifier, value, name) (value),
#include "genreg/internal/function_ids.inc"
#undef VRX_FUNCTION
  };
  unsigned previous = 0x082A0001;
  for (const unsigned identifier : identifiers) {
    EXPECT_GT(identifier, previous);
    EXPECT_LE(identifier, 0x082A007Au);
    previous = identifier;
  }
}

}  // namespace
