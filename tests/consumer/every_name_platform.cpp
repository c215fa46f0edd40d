// SPDX-License-Identifier: Apache-2.0
// Every function of the platform libraries that works on memory, paths, files and locks, and the
// installed level.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "every_name.h"

namespace every_name {

namespace {

namespace status = oss::status;

// A handle of a program's own, which calls the destructor of its base.
class OwnHandle : public OSSHFile {};

void callMemory() {
  const unsigned long before = ossMemLiveBlocks();
  void* block = nullptr;
  RETURNS(0, ossMemAlloc(&block, 100, __FILE__, __LINE__));
  HOLDS(ossMemCapacity(block) == 100);
  HOLDS(ossMemLiveBlocks() == before + 1);
  RETURNS(0, ossMemFree(block, __FILE__, __LINE__));
  HOLDS(ossMemLiveBlocks() == before);
  RETURNS(0, ossMemAllocUncleared(&block, 100, __FILE__, __LINE__));
  HOLDS(ossMemCapacity(block) == 100);
  RETURNS(0, ossMemFree(block, __FILE__, __LINE__));
}

void callPaths() {
  char text[1024] = "";
  RETURNS(0, ossBaseName("/a/b.reg", text, sizeof text));
  HOLDS(std::string(text) == "b.reg");
  RETURNS(0, ossDirectoryName("/a/b.reg", text, sizeof text));
  HOLDS(std::string(text) == "/a");
  RETURNS(0, ossDirectoryCreate(pathOf("made/below").c_str(), 0750));
  HOLDS(ossIsDirectory(pathOf("made/below").c_str()));
  HOLDS(!ossIsFile(pathOf("made/below").c_str()));
  RETURNS(0, ossBuildHomeDirectoryRelativePath("root", "/x", text, sizeof text));
  HOLDS(std::string(text).substr(std::strlen(text) - 2) == "/x");
  RETURNS(status::unknown_user,
          ossBuildHomeDirectoryRelativePath("no such user", "/x", text, sizeof text));
  HOLDS(!ossPathIsSetuidRoot(folder.c_str()));
}

void callFiles() {
  write("one", "1");
  const std::string one = pathOf("one");
  const std::string two = pathOf("two");
  RETURNS(0, ossFileSetPermissions(one.c_str(), 0640));
  OSSFileInfo info{};
  RETURNS(0, ossFileGetInfoV9(one.c_str(), &info));
  HOLDS(info.size == 1 && info.permissions == 0640 && info.regular);
  RETURNS(0, ossFileRename(one.c_str(), two.c_str()));
  HOLDS(ossIsFile(two.c_str()) && !ossIsFile(one.c_str()));
  RETURNS(0, ossFileDelete(two.c_str()));
  RETURNS(kOssSystemErrorBase + ENOENT, ossFileDelete(two.c_str()));
  RETURNS(kOssSystemErrorBase + ENOENT, ossErrorMapSystem(ENOENT));
  ossSetSyncPolicy(OSSSyncPolicy::full);
  HOLDS(ossGetSyncPolicy() == OSSSyncPolicy::full);
  ossSetSyncPolicy(OSSSyncPolicy::standard);
  RETURNS(0, ossDirectorySync(folder.c_str()));
}

// A handle as a program uses it: open, lock, work through the descriptor, unlock, close.
void callHandle() {
  write("locked", "1");
  const std::string path = pathOf("locked");
  const OSSFileOpenParams how = {
      kOssFileStructureVersion, path.c_str(), kOssOpenOrCreate, kOssAccessReadWrite, 0, 0644, 0};
  const OSSFileLockParams lock = {kOssFileStructureVersion, kOssLockExclusive, kOssLockNoWait};
  OSSHFile file;
  OwnHandle other;
  RETURNS(0, file.open(&how));
  RETURNS(0, other.open(&how));
  RETURNS(0, file.lock(&lock));
  RETURNS(status::lock_held, other.lock(&lock));
  RETURNS(0, ossFileSync(file.getFileHandle()));
  RETURNS(0, ossFileSetPermissions(file.getFileHandle(), 0600));
  ossFileCopyOwnership(file.getFileHandle(), other.getFileHandle());
  bool same = false;
  RETURNS(0, ossDescriptorNamesPath(file.getFileHandle(), path.c_str(), &same));
  HOLDS(same);
  RETURNS(0, file.unlock());
  RETURNS(0, other.lock(&lock));
  RETURNS(0, file.close());
  const int descriptor = other.detach();
  HOLDS(descriptor >= 0 && other.getFileHandle() == -1);
  HOLDS(::close(descriptor) == 0);
  ossSetLockTimeLimit(1500);
  HOLDS(ossGetLockTimeLimit() == 1500);
  ossSetLockTimeLimit(-1);
}

void callStringsAndTime() {
  char text[8] = "";
  HOLDS(ossSnprintf(text, sizeof text, "%d", 1234567890) == 10);
  HOLDS(std::string(text) == "1234567");
  bool word = false;
  RETURNS(0, ossStrToBoolean("on", &word));
  HOLDS(word);
  RETURNS(status::not_a_boolean, ossStrToBoolean("maybe", &word));
  const long long now = std::time(nullptr);
  const long long told = ossTimeGetUTC();
  HOLDS(told >= now && told <= now + 5);
}

void callInstall() {
  sqleLevelInfo level{};
  setenv("VRX_LEVEL_FILE", pathOf("level").c_str(), 1);
  RETURNS(status::level_file_missing, sqleGetLevelInfo(kSqleLevelInfoVersion, &level));
  write("level", "version=3.1.0.7\nbuild_level=s250131\nfixpack=7\n");
  RETURNS(0, sqleGetLevelInfo(kSqleLevelInfoVersion, &level));
  HOLDS(std::string(level.version) == "3.1.0.7");
  HOLDS(std::string(level.buildLevel) == "s250131");
  HOLDS(level.fixpackNumber == 7);
}

}  // namespace

void callPlatform() {
  callMemory();
  callPaths();
  callFiles();
  callHandle();
  callStringsAndTime();
  callInstall();
}

}  // namespace every_name
