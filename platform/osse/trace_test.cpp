// SPDX-License-Identifier: Apache-2.0
// The trace facility: collectors, events, suspension, the trace file.
#include "platform/osse/trace.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/osse/internal/function_ids.h"
#include "platform/osse/internal/test_match.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_child.h"

namespace {

using namespace oss;
using oss::internal::kOssMemFree;
using vrxtest::readFile;
using vrxtest::TempDir;

struct Seen {
  std::vector<GTraceEvent> events;
  std::string bytes;
};

void see(const GTraceEvent* event, void* context) {
  auto* seen = static_cast<Seen*>(context);
  seen->events.push_back(*event);
  if (event->size > 0) seen->bytes.append(static_cast<const char*>(event->data), event->size);
}

class OssTrace : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(gtraceDetach(), status::ok); }
  Seen seen_;
};

TEST_F(OssTrace, IsOffByDefault) {
  EXPECT_FALSE(gtraceIsAttached());
  EXPECT_FALSE(gtraceIsEnabled());
  gtraceEntry(1);
  gtraceVar(1, 2, 3, nullptr);
}

TEST_F(OssTrace, ACollectorReceivesEveryEvent) {
  ASSERT_EQ(gtraceAttach(see, &seen_), status::ok);
  EXPECT_TRUE(gtraceIsAttached());
  EXPECT_TRUE(gtraceIsEnabled());
  gtraceEntry(7);
  gtraceVar(7, 1, 3, "abc");
  gtraceErrorVar(7, 2, 2, "de");
  gtraceExit(7, 0x900001F6);

  ASSERT_EQ(seen_.events.size(), 4u);
  EXPECT_EQ(seen_.events[0].kind, GTraceKind::entry);
  EXPECT_EQ(seen_.events[1].kind, GTraceKind::variable);
  EXPECT_EQ(seen_.events[1].probe, 1u);
  EXPECT_EQ(seen_.events[1].size, 3u);
  EXPECT_EQ(seen_.events[2].kind, GTraceKind::errorVariable);
  EXPECT_EQ(seen_.events[2].probe, 2u);
  EXPECT_EQ(seen_.events[3].kind, GTraceKind::exit);
  EXPECT_EQ(seen_.events[3].result, 0x900001F6u);
  EXPECT_EQ(seen_.bytes, "abcde");
  for (const GTraceEvent& event : seen_.events) {
    EXPECT_EQ(event.function, 7u);
    EXPECT_EQ(event.thread, ossThreadID());
  }
}

TEST_F(OssTrace, ValuesWithoutBytesHaveNoData) {
  ASSERT_EQ(gtraceAttach(see, &seen_), status::ok);
  gtraceVar(1, 2, 5, nullptr);
  gtraceErrorVar(1, 2, 0, "x");
  ASSERT_EQ(seen_.events.size(), 2u);
  for (const GTraceEvent& event : seen_.events) {
    EXPECT_EQ(event.size, 0u);
    EXPECT_EQ(event.data, nullptr);
  }
}

TEST_F(OssTrace, SuspensionStopsTheFlowAndStaysAttached) {
  ASSERT_EQ(gtraceAttach(see, &seen_), status::ok);
  gtraceSuspend();
  EXPECT_TRUE(gtraceIsAttached());
  EXPECT_FALSE(gtraceIsEnabled());
  gtraceEntry(1);
  EXPECT_TRUE(seen_.events.empty());
  gtraceResume();
  gtraceEntry(1);
  EXPECT_EQ(seen_.events.size(), 1u);
}

TEST_F(OssTrace, ResumingWithoutACollectorEnablesNothing) {
  gtraceResume();
  EXPECT_FALSE(gtraceIsEnabled());
  EXPECT_FALSE(gtraceIsAttached());
}

TEST_F(OssTrace, DetachingEndsTheFlow) {
  ASSERT_EQ(gtraceAttach(see, &seen_), status::ok);
  ASSERT_EQ(gtraceDetach(), status::ok);
  EXPECT_FALSE(gtraceIsAttached());
  gtraceEntry(1);
  EXPECT_TRUE(seen_.events.empty());
  EXPECT_EQ(gtraceAttach(nullptr, nullptr), status::invalid_argument);
  EXPECT_FALSE(gtraceIsAttached());
}

TEST_F(OssTrace, ErrnoStaysAndACollectorIsNotTraced) {
  struct State {
    int calls = 0;
    OSSStatus attach = 0, detach = 0;
  } state;
  const auto collector = [](const GTraceEvent*, void* context) {
    auto* mine = static_cast<State*>(context);
    ++mine->calls;
    gtraceEntry(2);
    mine->attach = gtraceAttach(see, nullptr);
    mine->detach = gtraceDetach();
    errno = EIO;
  };
  ASSERT_EQ(gtraceAttach(collector, &state), status::ok);
  errno = EXDEV;
  gtraceEntry(1);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(state.calls, 1);
  EXPECT_EQ(state.attach, status::inside_callback);
  EXPECT_EQ(state.detach, status::inside_callback);
}

TEST_F(OssTrace, ADetachedCollectorIsNotCalledAgain) {
  struct Use {
    std::atomic<bool> alive{true};
    std::atomic<int> calls{0};
  };
  const auto use = [](const GTraceEvent*, void* context) {
    auto* state = static_cast<Use*>(context);
    EXPECT_TRUE(state->alive);
    ++state->calls;
  };
  std::atomic<bool> stop{false};
  std::thread traced([&] {
    while (!stop)
      gtraceEntry(1);
  });
  for (int round = 0; round < 50; ++round) {
    Use state;
    EXPECT_EQ(gtraceAttach(use, &state), status::ok);
    while (state.calls == 0)
      std::this_thread::yield();
    EXPECT_EQ(gtraceDetach(), status::ok);
    state.alive = false;
  }
  stop = true;
  traced.join();
}

TEST(OssThreadId, DiffersBetweenThreadsAndStaysWithinOne) {
  const unsigned int mine = ossThreadID();
  EXPECT_EQ(ossThreadID(), mine);
  unsigned int other = mine;
  std::thread([&other] { other = ossThreadID(); }).join();
  EXPECT_NE(other, mine);
}

// Run by the tests below in a process of its own.
TEST(OssTraceChild, DISABLED_TracesOneFunction) {
  const std::string large(1000, '\xAB');
  gtraceEntry(kOssMemFree);
  gtraceVar(kOssMemFree, 3, 2, "\x01\xFF");
  gtraceErrorVar(kOssMemFree, 4, large.size(), large.data());
  gtraceExit(kOssMemFree, 0x900001F6);
}

TEST_F(OssTrace, TheEnvironmentNamesAFile) {
  const TempDir dir;
  const std::string file = dir.file("trace");
  ASSERT_EQ(
      osstest::runDisabledTest(osstest::thisProgram(), "OssTraceChild.DISABLED_TracesOneFunction",
                               {"VRX_OSS_TRACE_FILE=" + file}),
      0);
  const std::string start = "[0-9]+[.][0-9]{9} pid=[0-9]+ tid=[0-9]+ ";
  const std::string expected = start + "entry ossMemFree\n" + start +
                               "var ossMemFree probe=3 size=2 01 FF\n" + start +
                               "error ossMemFree probe=4 size=1000( AB){64}\n" + start +
                               "exit ossMemFree result=0x900001F6\n";
  EXPECT_TRUE(osstest::matches(readFile(file), expected)) << readFile(file);
  EXPECT_EQ(vrxtest::modeOf(file), 0600);
}

}  // namespace
