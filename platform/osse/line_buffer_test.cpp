// SPDX-License-Identifier: Apache-2.0
// Lines of log and trace files.
#include "platform/osse/internal/line_buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using oss::internal::LineBuffer;

TEST(OssLineBuffer, PiecesFollowEachOther) {
  LineBuffer line;
  line.add("start");
  line.addNumber("n", 18446744073709551615ull);
  line.addCode("code", 0x900001DA);
  line.addBytes("\x01\xFF", 2);
  line.finish();
  EXPECT_STREQ(line.text(), "start n=18446744073709551615 code=0x900001DA 01 FF\n");
  EXPECT_EQ(line.size(), std::strlen(line.text()));
}

TEST(OssLineBuffer, ControlCharactersAndBackslashesAreEscaped) {
  LineBuffer line;
  line.addEscaped("a\nb\r\x1B\x7F\\c\xC3\xA9");
  EXPECT_STREQ(line.text(), "a\\x0Ab\\x0D\\x1B\\x7F\\x5Cc\xC3\xA9");
}

TEST(OssLineBuffer, LongLinesAreCutAndStillEnd) {
  for (const char filler : {'x', '\n'}) {
    LineBuffer line;
    line.addEscaped(std::string(5000, filler).c_str());
    line.add("more");
    line.addBytes("\x01", 1);
    line.finish();
    EXPECT_EQ(line.size(), LineBuffer::kSize);
    EXPECT_EQ(line.text()[line.size() - 1], '\n');
    EXPECT_EQ(std::strlen(line.text()), LineBuffer::kSize);
  }
}

}  // namespace
