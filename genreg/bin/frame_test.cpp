// SPDX-License-Identifier: Apache-2.0
// One frame between a stream and memory: ReadRecord and WriteRecord.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "genreg/bin/bin_store.h"
#include "genreg/internal/function_ids.h"
#include "platform/osse/memory.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/packed_registry.h"
#include "tests/support/plain_registry.h"
#include "tests/support/store_watch.h"

namespace {

using namespace vrxtest;
using genreg::kGenRegBinReadRecord;
using genreg::kGenRegBinWriteRecord;
using genreg::statusOf;
namespace status = genreg::status;

struct CloseStream {
  void operator()(FILE* stream) const { (void)fclose(stream); }  // what matters was asserted
};
using Stream = std::unique_ptr<FILE, CloseStream>;

// A block that ReadRecord may replace.
class Block {
 public:
  explicit Block(unsigned long size) { EXPECT_EQ(ossMemAlloc(&block, size, __FILE__, 1), 0U); }
  ~Block() { EXPECT_EQ(ossMemFree(block, __FILE__, 1), 0U); }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  std::string bytes(unsigned long length) const {
    return {static_cast<const char*>(block), length};
  }

  void* block = nullptr;
};

class Frame : public testing::Test {
 protected:
  Stream fileOf(const std::string& bytes) {
    writeFile(path_, bytes);
    return Stream(fopen(path_.c_str(), "rb"));
  }
  Stream emptyFile() { return Stream(fopen(path_.c_str(), "w+b")); }
  GenRegStatus read(FILE* stream) {
    return statusOf(registry_.ReadRecord(stream, &block_.block, &length_));
  }
  // Writes a record of `size` bytes, as the size slot reports it, and tells what the file holds.
  GenRegStatus write(FILE* stream, std::string& record) {
    return statusOf(registry_.WriteRecord(stream, record.data()));
  }
  std::string written(Stream stream) {
    stream.reset();
    return readFile(path_);
  }

  TempDir folder_;
  const std::string path_ = folder_.file("frames");
  PlainRegistry registry_{folder_.file("reg")};
  Block block_{sizeof(PlainRecord)};
  unsigned long length_ = 0xABCD;
};

// --- reading

TEST_F(Frame, EmptyFileIsAtItsEndAndThatIsNotLogged) {
  const CapturedLog log;
  const Stream stream = fileOf("");
  EXPECT_EQ(read(stream.get()), status::end_of_registry);
  EXPECT_EQ(log.count(kGenRegBinReadRecord), 0);
}

TEST_F(Frame, IsReadToTheEndOfTheFileAndNotBeyond) {
  const Stream stream = fileOf(frameOf("first") + frameOf("second"));
  ASSERT_EQ(read(stream.get()), 0U);
  EXPECT_EQ(length_, 5U);
  EXPECT_EQ(block_.bytes(5), "first");
  ASSERT_EQ(read(stream.get()), 0U);
  EXPECT_EQ(length_, 6U);
  EXPECT_EQ(block_.bytes(6), "second");
  EXPECT_EQ(read(stream.get()), status::end_of_registry);
}

TEST_F(Frame, OneByteShortRunsPastTheEndAndTellsItsLength) {
  const CapturedLog log;
  const Stream stream = fileOf(frameOf(std::string(100, 'x')).substr(0, 103));
  void* const before = block_.block;
  EXPECT_EQ(read(stream.get()), status::frame_past_end);
  EXPECT_EQ(length_, 100U);
  EXPECT_EQ(block_.block, before);
  EXPECT_GE(log.count(kGenRegBinReadRecord, status::frame_past_end), 1);
}

TEST_F(Frame, LargestLengthRunsPastTheEndWithoutOverflow) {
  const Stream stream = fileOf(std::string(4, '\xFF') + std::string(64, 'x'));
  EXPECT_EQ(read(stream.get()), status::frame_past_end);
  EXPECT_EQ(length_, 0xFFFFFFFFUL);
}

TEST_F(Frame, CutLengthFieldRunsPastTheEndWhateverItHolds) {
  for (const char fill : {'\0', '\1', '\xFF'}) {
    for (std::size_t size = 1; size <= 3; ++size) {
      const Stream stream = fileOf(std::string(size, fill));
      EXPECT_EQ(read(stream.get()), status::frame_past_end) << size;
    }
  }
}

TEST_F(Frame, CutLengthFieldBehindAFrameRunsPastTheEnd) {
  const Stream stream = fileOf(frameOf("first") + std::string(3, '\0'));
  ASSERT_EQ(read(stream.get()), 0U);
  EXPECT_EQ(read(stream.get()), status::frame_past_end);
}

TEST_F(Frame, OfLengthZeroIsAnEmptyRecordAndLeavesTheBuffer) {
  const Stream stream = fileOf(frameOf("") + frameOf("next"));
  std::memset(block_.block, 'x', sizeof(PlainRecord));
  ASSERT_EQ(read(stream.get()), 0U);
  EXPECT_EQ(length_, 0U);
  EXPECT_EQ(block_.bytes(sizeof(PlainRecord)), std::string(sizeof(PlainRecord), 'x'));
  ASSERT_EQ(read(stream.get()), 0U);
  EXPECT_EQ(block_.bytes(4), "next");
}

TEST_F(Frame, OfLengthZeroAtTheEndOfTheFileIsRead) {
  const Stream stream = fileOf(frameOf(""));
  EXPECT_EQ(read(stream.get()), 0U);
  EXPECT_EQ(read(stream.get()), status::end_of_registry);
}

TEST_F(Frame, LongerThanTheLargestRecordReplacesTheBufferOnce) {
  const std::string longBody(5000, 'L');
  const Stream stream = fileOf(frameOf(longBody) + frameOf("short") + frameOf(longBody));
  void* const before = block_.block;
  ASSERT_EQ(read(stream.get()), 0U);
  void* const grown = block_.block;
  EXPECT_NE(grown, before);
  EXPECT_EQ(block_.bytes(5000), longBody);
  const CallCount allocations(Call::kMemAlloc);
  ASSERT_EQ(read(stream.get()), 0U);
  ASSERT_EQ(read(stream.get()), 0U);
  EXPECT_EQ(block_.block, grown);
  EXPECT_EQ(allocations.calls(), 0);
}

TEST_F(Frame, IsReadWithTwoReadsAndNoAllocation) {
  const Stream stream = fileOf(frameOf(std::string(20, 'x')));
  const CallCount reads(Call::kFread);
  const CallCount allocations(Call::kMemAlloc);
  ASSERT_EQ(read(stream.get()), 0U);
  EXPECT_EQ(reads.calls(), 2);
  EXPECT_EQ(allocations.calls(), 0);
}

TEST_F(Frame, NoMemoryForALargerBufferLeavesTheBuffer) {
  const Stream stream = fileOf(frameOf(std::string(5000, 'L')));
  void* const before = block_.block;
  const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
  EXPECT_EQ(read(stream.get()), status::no_record_memory);
  EXPECT_EQ(block_.block, before);
  EXPECT_EQ(length_, 5000U);
}

TEST_F(Frame, DamagedBufferCannotBeReplacedAndStays) {
  const Stream stream = fileOf(frameOf(std::string(5000, 'L')));
  const unsigned long blocks = ossMemLiveBlocks();
  void* const before = block_.block;
  char* const guard = static_cast<char*>(before) + sizeof(PlainRecord);
  *guard ^= 1;
  EXPECT_EQ(read(stream.get()), status::record_memory_not_released);
  *guard ^= 1;
  EXPECT_EQ(block_.block, before);
  EXPECT_EQ(ossMemLiveBlocks(), blocks);
}

TEST_F(Frame, StreamErrorInTheLengthFieldIsReported) {
  const Stream unreadable(fopen(path_.c_str(), "wb"));
  EXPECT_EQ(read(unreadable.get()), status::length_read_failed);
  const Stream stream = fileOf(frameOf("first"));
  const FailCall fault(Call::kFread, 1, EIO);
  EXPECT_EQ(read(stream.get()), status::length_read_failed);
}

TEST_F(Frame, StreamErrorInTheBodyIsReported) {
  const CapturedLog log;
  const Stream stream = fileOf(frameOf("first"));
  const FailCall fault(Call::kFread, 2, EIO);
  EXPECT_EQ(read(stream.get()), status::body_read_failed);
  EXPECT_EQ(length_, 5U);
  EXPECT_GE(log.count(kGenRegBinReadRecord, status::body_read_failed), 1);
}

TEST_F(Frame, OfAFileThatWasCutAfterItWasMeasuredIsABodyError) {
  const Stream stream = fileOf(frameOf(std::string(60000, 'x')));
  const BeforeCall cut(Call::kFread, 2, [this] { writeFile(path_, frameOf("x")); });
  EXPECT_EQ(read(stream.get()), status::body_read_failed);
}

TEST_F(Frame, OfAFileThatCannotBeMeasuredIsNotRead) {
  const Stream stream = fileOf(frameOf("first"));
  const FailCall fault(Call::kFstat, 1, EIO);
  EXPECT_EQ(read(stream.get()), status::length_read_failed);
}

TEST_F(Frame, PositionThatCannotBeToldIsPastTheEnd) {
  const Stream stream = fileOf(frameOf("first"));
  const FailCall fault(Call::kFtello, 1, EIO);
  EXPECT_EQ(read(stream.get()), status::frame_past_end);
}

TEST_F(Frame, ReadingRefusesNullArguments) {
  const Stream stream = fileOf(frameOf("first"));
  EXPECT_EQ(read(nullptr), status::invalid_argument);
  EXPECT_EQ(statusOf(registry_.ReadRecord(stream.get(), nullptr, &length_)),
            status::invalid_argument);
  EXPECT_EQ(statusOf(registry_.ReadRecord(stream.get(), &block_.block, nullptr)),
            status::invalid_argument);
  EXPECT_EQ(length_, 0xABCDU);
}

// --- the length's byte order

TEST_F(Frame, LengthIsInHostOrderByDefault) {
  std::string record(20, 'r');
  Stream stream = emptyFile();
  ASSERT_EQ(write(stream.get(), record), 0U);
  const unsigned int length = 20;
  std::string expected(4, '\0');
  std::memcpy(expected.data(), &length, 4);
  EXPECT_EQ(written(std::move(stream)), expected + record);
}

// A size slot that reports what the test wants.
unsigned long reportedSize = 0;
int reportSize(void*, unsigned long* size) {
  *size = reportedSize;
  return 0;
}
int refuseSize(void*, unsigned long*) {
  return genreg::statusInt(status::empty_record);
}

TEST_F(Frame, LengthIsBigEndianOnDiskWithFeature8) {
  registry_.features |= kGenRegBigEndian;
  registry_.getRecordSize = reportSize;
  for (const unsigned long length : {36UL, 0x102UL, 0x10203UL, 0x100000UL}) {
    reportedSize = length;
    std::string record(length, 'r');
    Stream stream = emptyFile();
    ASSERT_EQ(write(stream.get(), record), 0U);
    std::string expected;
    for (int shift = 24; shift >= 0; shift -= 8) {
      expected.push_back(static_cast<char>(length >> shift & 0xFF));
    }
    EXPECT_TRUE(written(std::move(stream)) == expected + record) << length;
    const Stream back(fopen(path_.c_str(), "rb"));
    ASSERT_EQ(read(back.get()), 0U);
    EXPECT_EQ(length_, length);
  }
}

TEST_F(Frame, WrittenWithOneByteOrderIsNotReadWithTheOther) {
  std::string record(20, 'r');
  Stream stream = emptyFile();
  ASSERT_EQ(write(stream.get(), record), 0U);
  rewind(stream.get());
  registry_.features |= kGenRegBigEndian;
  EXPECT_EQ(read(stream.get()), status::frame_past_end);
  EXPECT_EQ(length_, 0x14000000U);
}

// --- writing

TEST_F(Frame, OfTwoBytesIsRefusedAndNothingIsWritten) {
  registry_.getRecordSize = reportSize;
  std::string record(4, 'r');
  for (reportedSize = 0; reportedSize < 3; ++reportedSize) {
    Stream stream = emptyFile();
    EXPECT_EQ(write(stream.get(), record), status::record_too_small);
    EXPECT_EQ(written(std::move(stream)), "");
  }
}

TEST_F(Frame, OfThreeBytesUpToTheLargestSizeIsWritten) {
  registry_.getRecordSize = reportSize;
  std::string record(0x100001, 'r');
  for (const unsigned long size : {3UL, 0x100000UL}) {
    reportedSize = size;
    Stream stream = emptyFile();
    EXPECT_EQ(write(stream.get(), record), 0U);
    EXPECT_EQ(written(std::move(stream)).size(), 4 + size);
  }
  reportedSize = 0x100001;
  Stream stream = emptyFile();
  EXPECT_EQ(write(stream.get(), record), status::record_too_large);
  EXPECT_EQ(written(std::move(stream)), "");
}

TEST_F(Frame, NeedsTheSizeSlotOfItsForm) {
  std::string record(20, 'r');
  const Stream stream = emptyFile();
  registry_.getRecordSize = nullptr;
  EXPECT_EQ(write(stream.get(), record), status::no_size_slot);
  registry_.getRecordSize = PlainRegistry::plainSize;
  registry_.features |= kGenRegPacked;
  EXPECT_EQ(write(stream.get(), record), status::no_packed_size_slot);
}

TEST_F(Frame, SizeThatTheSlotRefusesIsTheSlotsOwnFailure) {
  std::string record(20, 'r');
  registry_.getRecordSize = refuseSize;
  Stream stream = emptyFile();
  EXPECT_EQ(write(stream.get(), record), status::empty_record);
  EXPECT_EQ(written(std::move(stream)), "");
}

TEST_F(Frame, OfAPackedRecordHasThePackedLength) {
  PackedRegistry packed(folder_.file("reg"));
  std::string image = PackedRegistry::imageOf(packedRecord("n", 7));
  Stream stream = emptyFile();
  ASSERT_EQ(packed.WriteRecord(stream.get(), image.data()), 0);
  EXPECT_EQ(written(std::move(stream)), frameOf(image));
}

TEST_F(Frame, StreamThatRefusesTheLengthOrTheBodyIsReported) {
  std::string record(20, 'r');
  const Stream readOnly = fileOf("");
  EXPECT_EQ(write(readOnly.get(), record), status::length_write_failed);
  const Stream stream = emptyFile();
  {
    const FailCall fault(Call::kFwrite, 1, ENOSPC);
    EXPECT_EQ(write(stream.get(), record), status::length_write_failed);
  }
  const FailCall fault(Call::kFwrite, 2, ENOSPC);
  EXPECT_EQ(write(stream.get(), record), status::body_write_failed);
}

TEST_F(Frame, FullDeviceRefusesTheLength) {
  const Stream full(fopen("/dev/full", "wb"));
  ASSERT_NE(full, nullptr);
  ASSERT_EQ(setvbuf(full.get(), nullptr, _IONBF, 0), 0);
  const CapturedLog log;
  std::string record(20, 'r');
  EXPECT_EQ(write(full.get(), record), status::length_write_failed);
  EXPECT_EQ(log.count(kGenRegBinWriteRecord, status::length_write_failed), 1);
}

TEST_F(Frame, WritingRefusesNullArguments) {
  std::string record(20, 'r');
  EXPECT_EQ(write(nullptr, record), status::invalid_argument);
  const Stream stream = emptyFile();
  EXPECT_EQ(statusOf(registry_.WriteRecord(stream.get(), nullptr)), status::invalid_argument);
}

// --- the slot check

TEST(BinCheckFuncPtrs, TellsTheFirstEmptySlotInOrder) {
  const TempDir folder;
  PackedRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.CheckFuncPtrs(), 0);
  registry.unpackRecord = nullptr;
  EXPECT_EQ(statusOf(registry.CheckFuncPtrs()), status::no_unpack_slot);
  registry.packRecord = nullptr;
  EXPECT_EQ(statusOf(registry.CheckFuncPtrs()), status::no_pack_slot);
  registry.getMaxRecordSize = nullptr;
  EXPECT_EQ(statusOf(registry.CheckFuncPtrs()), status::no_max_size_slot);
  registry.validateRecord = nullptr;
  EXPECT_EQ(statusOf(registry.CheckFuncPtrs()), status::no_validate_slot);
}

TEST(BinCheckFuncPtrs, PlainFormatNeedsNoPackingSlotsAndNoMatchSlot) {
  const TempDir folder;
  PlainRegistry registry(folder.file("reg"));
  registry.matchRecord = nullptr;
  registry.getRecordSize = nullptr;
  EXPECT_EQ(registry.packRecord, nullptr);
  EXPECT_EQ(registry.unpackRecord, nullptr);
  EXPECT_EQ(registry.CheckFuncPtrs(), 0);
  EXPECT_EQ(registry.storeType, 1U);
}

}  // namespace
