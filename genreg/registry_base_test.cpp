// SPDX-License-Identifier: Apache-2.0
// Feature bits, the change-logging identifier and what a fresh object holds. Files are not touched
// here.
#include <gtest/gtest.h>

#include <cstring>

#include "genreg/bin/bin_store.h"
#include "genreg/registry.h"
#include "platform/osse/log.h"
#include "tests/support/captured_log.h"

namespace {

using namespace genreg;

TEST(GenRegBase, FreshObjectHasEmptySlotsStateOneAndNoFeatures) {
  const GenRegBase object;
  EXPECT_EQ(object.matchRecord, nullptr);
  EXPECT_EQ(object.validateRecord, nullptr);
  EXPECT_EQ(object.printRecord, nullptr);
  EXPECT_EQ(object.log, nullptr);
  EXPECT_EQ(object.notify, nullptr);
  EXPECT_EQ(object.state, 1u);
  EXPECT_EQ(object.features, 0u);
  EXPECT_EQ(object.changeLoggingFuncID, 0u);
}

TEST(GenRegBase, FreshFileObjectHasEmptyPathsAndNoStreams) {
  const GenRegFile object;
  EXPECT_EQ(object.getRecordSize, nullptr);
  EXPECT_EQ(object.getMaxRecordSize, nullptr);
  for (const char* path : {object.registryPath, object.backupPath, object.temporaryPath,
                           object.corruptPath, object.lockPath}) {
    EXPECT_STREQ(path, "");
  }
  EXPECT_EQ(object.lockFile.getFileHandle(), -1);
  EXPECT_EQ(object.lockFileOpen.version, 0x09050000u);
  EXPECT_EQ(object.lockFileOpen.path, nullptr);
  EXPECT_EQ(object.registryStream, nullptr);
  EXPECT_EQ(object.temporaryStream, nullptr);
  EXPECT_EQ(object.registryCreationMode, 0u);
  EXPECT_EQ(object.lockCreationMode, 0u);
  EXPECT_EQ(object.copyLacksHeader, 1u);
}

TEST(GenRegBase, BinaryStoreHasTypeOneAndEmptySlots) {
  const GenRegBin store;
  EXPECT_EQ(store.storeType, 1u);
  EXPECT_EQ(store.packRecord, nullptr);
  EXPECT_EQ(store.unpackRecord, nullptr);
}

TEST(GenRegBase, FeaturesOutsideOneTo256AreRefusedAndChangeNothing) {
  GenRegBase object;
  object.features = 0x5;
  for (const unsigned bit : {0u, 257u, 512u, 0xFFFFFFFFu}) {
    EXPECT_EQ(object.setFeature(bit), 0x90000202u) << bit;
    EXPECT_EQ(object.unsetFeature(bit), 0x90000202u) << bit;
  }
  EXPECT_EQ(object.features, 0x5u);
}

TEST(GenRegBase, HighestFeatureCanBeSet) {
  GenRegBase object;
  EXPECT_EQ(object.setFeature(256), 0u);
  EXPECT_EQ(object.features, 256u);
}

TEST(GenRegBase, SettingAFeatureTwiceSucceedsAndKeepsOthers) {
  GenRegBase object;
  EXPECT_EQ(object.setFeature(0x20), 0u);
  EXPECT_EQ(object.setFeature(0x20), 0u);
  EXPECT_EQ(object.setFeature(0x3), 0u);  // a value of several bits sets them all
  EXPECT_EQ(object.features, 0x23u);
}

TEST(GenRegBase, UnsettingAnAbsentFeatureIsReported) {
  GenRegBase object;
  EXPECT_EQ(object.unsetFeature(0x20), 0x90000203u);
  EXPECT_EQ(object.setFeature(0x20), 0u);
  EXPECT_EQ(object.unsetFeature(0x20), 0u);
  EXPECT_FALSE(object.isFeatureSet(0x20));
  EXPECT_EQ(object.unsetFeature(0x20), 0x90000203u);
}

TEST(GenRegBase, UnsettingClearsAllBitsWhenAnyIsSet) {
  GenRegBase object;
  object.features = 0x9;
  EXPECT_EQ(object.unsetFeature(0x3), 0u);
  EXPECT_EQ(object.features, 0x8u);
}

TEST(GenRegBase, FeatureIsSetWhenAnyOfItsBitsIs) {
  GenRegBase object;
  EXPECT_FALSE(object.isFeatureSet(0x3));
  object.features = 0x1;
  EXPECT_TRUE(object.isFeatureSet(0x3));
  object.features = 0x2;
  EXPECT_TRUE(object.isFeatureSet(0x3));
  object.features = 0x4;
  EXPECT_FALSE(object.isFeatureSet(0x3));
}

TEST(GenRegBase, FeatureQueryHasNoRange) {
  GenRegBase object;
  EXPECT_FALSE(object.isFeatureSet(0));
  EXPECT_FALSE(object.isFeatureSet(0x200));
  object.features = 0x200;
  EXPECT_TRUE(object.isFeatureSet(0x200));
}

TEST(GenRegBase, ChangeLoggingIdentifierIsHiddenUntilFeatureIsSet) {
  GenRegBase object;
  object.SetChangeLoggingFuncID(7);
  EXPECT_EQ(object.GetChangeLoggingFuncID(), 0u);
  EXPECT_EQ(object.setFeature(0x20), 0u);
  EXPECT_EQ(object.GetChangeLoggingFuncID(), 7u);
  EXPECT_EQ(object.unsetFeature(0x20), 0u);
  EXPECT_EQ(object.GetChangeLoggingFuncID(), 0u);
}

TEST(GenRegBase, RefusedFeatureIsLoggedOnce) {
  const vrxtest::CapturedLog log;
  GenRegBase object;
  EXPECT_EQ(object.setFeature(0), 0x90000202u);
  EXPECT_EQ(log.count(0x082A0002, 0x90000202u), 1);
  EXPECT_EQ(object.unsetFeature(0x40), 0x90000203u);
  EXPECT_EQ(log.count(0x082A0003, 0x90000203u), 1);
}

TEST(GenRegBase, LoadAndUnLoadDoNothing) {
  GenRegFile object;
  EXPECT_EQ(object.Load(3), 0u);
  EXPECT_EQ(object.UnLoad(3), 0u);
  EXPECT_EQ(object.state, 1u);
}

int acceptAny(unsigned long long, void*) {
  return 0;
}
int anySize(unsigned long* size) {
  *size = 20;
  return 0;
}
int packAny(void**, void*) {
  return 0;
}
int unpackAny(void**) {
  return 0;
}

GenRegStatus check(GenRegBin& store) {
  return statusOf(store.CheckFuncPtrs());
}

TEST(CheckFuncPtrs, PlainStoreNeedsValidateAndMaximumSizeInThisOrder) {
  GenRegBin store;
  EXPECT_EQ(check(store), 0x9000021Bu);
  store.validateRecord = acceptAny;
  EXPECT_EQ(check(store), 0x9000021Du);
  store.getMaxRecordSize = anySize;
  EXPECT_EQ(check(store), 0u);
}

TEST(CheckFuncPtrs, PackedStoreNeedsPackThenUnpackBesides) {
  GenRegBin store;
  store.features = kGenRegPacked;
  EXPECT_EQ(check(store), 0x9000021Bu);
  store.validateRecord = acceptAny;
  store.getMaxRecordSize = anySize;
  EXPECT_EQ(check(store), 0x90000223u);
  store.packRecord = packAny;
  EXPECT_EQ(check(store), 0x90000222u);
  store.unpackRecord = unpackAny;
  EXPECT_EQ(check(store), 0u);
}

}  // namespace
