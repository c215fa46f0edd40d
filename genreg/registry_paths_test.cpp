// SPDX-License-Identifier: Apache-2.0
// The five paths: how they are formed, followed through links, and read back.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/plain_registry.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace genreg;
using vrxtest::PlainRegistry;
using vrxtest::TempDir;

// The five paths of an object, in one value that tests compare.
struct Paths {
  std::string registry;
  std::string temporary;
  std::string corrupt;
  std::string lock;
  std::string backup;
};

Paths pathsOf(const GenRegFile& object) {
  return {object.registryPath, object.temporaryPath, object.corruptPath, object.lockPath,
          object.backupPath};
}

bool operator==(const Paths& a, const Paths& b) {
  return a.registry == b.registry && a.temporary == b.temporary && a.corrupt == b.corrupt &&
         a.lock == b.lock && a.backup == b.backup;
}

std::ostream& operator<<(std::ostream& out, const Paths& paths) {
  return out << paths.registry << ' ' << paths.temporary << ' ' << paths.corrupt << ' '
             << paths.lock << ' ' << paths.backup;
}

Paths besideFile(const std::string& directory, const std::string& base) {
  const std::string whole = directory + "/" + base;
  return {whole, whole + ".tmp", whole + ".cor", directory + "/." + base + ".lock",
          directory + "/." + base + ".bkp"};
}

void makeLink(const std::string& target, const std::string& path) {
  ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0) << path;
}

// A path below `directory` of exactly `length` bytes, made of components that a file system takes.
std::string pathOfLength(const std::string& directory, std::size_t length) {
  std::string path = directory;
  while (path.size() + 101 < length)
    path += "/" + std::string(99, 'd');
  return path + "/" + std::string(length - path.size() - 1, 'f');
}

TEST(RegistryPaths, CompanionsStandBesideTheRegistry) {
  const PlainRegistry registry("/var/reg/services");
  EXPECT_EQ(registry.pathStatus, 0u);
  EXPECT_EQ(pathsOf(registry), besideFile("/var/reg", "services"));
  EXPECT_STREQ(registry.lockPath, "/var/reg/.services.lock");
  EXPECT_STREQ(registry.backupPath, "/var/reg/.services.bkp");
  EXPECT_NE(registry.state & kGenRegStatePathsSet, 0u);
}

TEST(RegistryPaths, BareNameHasBareCompanions) {
  const PlainRegistry registry("services");
  const Paths expected = {"services", "services.tmp", "services.cor", ".services.lock",
                          ".services.bkp"};
  EXPECT_EQ(pathsOf(registry), expected);
}

TEST(RegistryPaths, DotDirectoryCountsAsBareForTheHiddenNames) {
  const PlainRegistry registry("./services");
  const Paths expected = {"./services", "./services.tmp", "./services.cor", ".services.lock",
                          ".services.bkp"};
  EXPECT_EQ(pathsOf(registry), expected);
}

TEST(RegistryPaths, DirectoryThatBeginsWithADotIsADirectory) {
  EXPECT_EQ(pathsOf(PlainRegistry("../services")), besideFile("..", "services"));
  EXPECT_EQ(pathsOf(PlainRegistry(".hidden/services")), besideFile(".hidden", "services"));
}

TEST(RegistryPaths, RegistryInTheRootKeepsItsCompanionsThere) {
  const PlainRegistry registry("/services");
  EXPECT_STREQ(registry.temporaryPath, "/services.tmp");
  EXPECT_STREQ(registry.lockPath, "//.services.lock");
  EXPECT_STREQ(registry.backupPath, "//.services.bkp");
}

TEST(RegistryPaths, DottedNamesAreNotTakenForExtensions) {
  EXPECT_EQ(pathsOf(PlainRegistry("/d/.hidden.tmp")), besideFile("/d", ".hidden.tmp"));
}

// What a refused path leaves.
void expectNoPaths(const PlainRegistry& registry) {
  EXPECT_EQ(pathsOf(registry), (Paths{"", "", "", "", ""}));
  EXPECT_EQ(registry.state, 1u);
}

class NullPathRegistry : public GenRegBin {
 public:
  NullPathRegistry() { pathStatus = setRegistryPaths(nullptr); }
  GenRegStatus pathStatus = 0;
};

TEST(RegistryPaths, NullAndEmptyPathsAreRefused) {
  const NullPathRegistry null;
  EXPECT_EQ(null.pathStatus, 0x900001F3u);
  EXPECT_EQ(null.state, 1u);
  const PlainRegistry empty("");
  EXPECT_EQ(empty.pathStatus, 0x900001F3u);
  expectNoPaths(empty);
}

TEST(RegistryPaths, PathOf1017BytesIsAccepted) {
  const std::string path = pathOfLength("/d", 1017);
  const PlainRegistry registry(path);
  EXPECT_EQ(registry.pathStatus, 0u);
  EXPECT_EQ(registry.registryPath, path);
  EXPECT_EQ(std::strlen(registry.lockPath), 1023u);
  EXPECT_EQ(std::strlen(registry.backupPath), 1022u);
  EXPECT_EQ(std::strlen(registry.temporaryPath), 1021u);
}

TEST(RegistryPaths, BareNameOf1017BytesIsAccepted) {
  const PlainRegistry registry(std::string(1017, 'n'));
  EXPECT_EQ(registry.pathStatus, 0u);
  EXPECT_EQ(std::strlen(registry.lockPath), 1023u);
}

TEST(RegistryPaths, PathOf1018BytesIsRefused) {
  const PlainRegistry registry(pathOfLength("/d", 1018));
  EXPECT_EQ(registry.pathStatus, 0x900001F4u);
  expectNoPaths(registry);
}

TEST(RegistryPaths, PathsBeyondTheBuffersAreRefused) {
  for (const std::size_t length : {1023u, 1024u, 1025u, 4096u, 1000000u}) {
    const PlainRegistry registry(std::string(length, 'n'));
    EXPECT_EQ(registry.pathStatus, 0x900001F4u) << length;
    expectNoPaths(registry);
  }
}

TEST(RegistryPaths, NameInTheRootThatWouldCutTheLockPathIsRefused) {
  const PlainRegistry registry("/" + std::string(1016, 'n'));
  EXPECT_EQ(registry.pathStatus, 0x900001F4u);
  expectNoPaths(registry);
}

TEST(RegistryPaths, PathWithoutABaseNameIsRefusedAndLoggedWithItsPath) {
  const vrxtest::CapturedLog log;
  const PlainRegistry registry("/var/reg/");
  EXPECT_EQ(registry.pathStatus, 0x900001B8u);
  expectNoPaths(registry);
  EXPECT_EQ(log.count(0x082A0004, 0x900001B8u), 1);
}

TEST(RegistryPaths, PathWhoseDirectoryCannotBeTakenIsRefused) {
  const vrxtest::FailCall fault(vrxtest::Call::kDirectoryName, 1, ENAMETOOLONG);
  const PlainRegistry registry("/var/reg/services");
  EXPECT_EQ(registry.pathStatus, 0x900001B9u);
  expectNoPaths(registry);
}

TEST(RegistryPaths, RefusedSecondSetUpKeepsTheFirst) {
  PlainRegistry registry("/var/reg/services");
  EXPECT_EQ(registry.setRegistryPaths("/other/"), 0x900001B8u);
  EXPECT_EQ(registry.setRegistryPaths(std::string(1018, 'x').c_str()), 0x900001F4u);
  EXPECT_EQ(pathsOf(registry), besideFile("/var/reg", "services"));
  EXPECT_NE(registry.state & kGenRegStatePathsSet, 0u);
}

TEST(RegistryPaths, GivenPathMayLieInTheObjectItself) {
  PlainRegistry registry("/var/reg/services");
  EXPECT_EQ(registry.setRegistryPaths(registry.registryPath), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile("/var/reg", "services"));
  EXPECT_EQ(registry.setRegistryPaths(registry.registryPath + std::strlen("/var")), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile("/reg", "services"));
  EXPECT_EQ(registry.setRegistryPaths(registry.temporaryPath), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile("/reg", "services.tmp"));
  EXPECT_EQ(registry.setRegistryPaths(registry.backupPath), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile("/reg", ".services.tmp.bkp"));
}

// The getters, with the paths that they give for "/var/reg/services".
using Getter = GenRegStatus (GenRegFile::*)(char*, unsigned long);
struct GetterCase {
  Getter getter;
  const char* path;
};
constexpr GetterCase kGetters[] = {
    {&GenRegFile::getRegistryPath, "/var/reg/services"},
    {&GenRegFile::getRegistryTmpPath, "/var/reg/services.tmp"},
    {&GenRegFile::getRegistryBackupPath, "/var/reg/.services.bkp"},
    {&GenRegFile::getRegistryLockPath, "/var/reg/.services.lock"},
    {&GenRegFile::getRegistryCorruptTmpPath, "/var/reg/services.cor"},
};

TEST(RegistryPathGetters, BufferOfExactlyTheLengthPlusOneIsEnough) {
  PlainRegistry registry("/var/reg/services");
  for (const GetterCase& row : kGetters) {
    std::vector<char> buffer(std::strlen(row.path) + 1, '?');
    EXPECT_EQ((registry.*row.getter)(buffer.data(), buffer.size()), 0u);
    EXPECT_STREQ(buffer.data(), row.path);
  }
}

TEST(RegistryPathGetters, OneByteLessEmptiesTheBuffer) {
  PlainRegistry registry("/var/reg/services");
  for (const GetterCase& row : kGetters) {
    std::vector<char> buffer(std::strlen(row.path) + 1, '?');
    EXPECT_EQ((registry.*row.getter)(buffer.data(), buffer.size() - 1), 0x90000008u);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer.back(), '?') << "written beyond the size";
  }
}

TEST(RegistryPathGetters, LargerBufferEndsInATerminator) {
  PlainRegistry registry("/var/reg/services");
  for (const GetterCase& row : kGetters) {
    std::vector<char> buffer(2000, '?');
    EXPECT_EQ((registry.*row.getter)(buffer.data(), 1500), 0u);
    EXPECT_STREQ(buffer.data(), row.path);
    EXPECT_EQ(buffer[1499], '\0');
    EXPECT_EQ(buffer[1500], '?');
  }
}

TEST(RegistryPathGetters, SizeZeroWritesNothing) {
  PlainRegistry registry("/var/reg/services");
  for (const GetterCase& row : kGetters) {
    char buffer = '?';
    EXPECT_EQ((registry.*row.getter)(&buffer, 0), 0x90000008u);
    EXPECT_EQ(buffer, '?');
  }
}

TEST(RegistryPathGetters, NullBufferIsRefused) {
  PlainRegistry registry("/var/reg/services");
  for (const GetterCase& row : kGetters) {
    EXPECT_EQ((registry.*row.getter)(nullptr, 100), 0x9000000Cu);
    EXPECT_EQ((registry.*row.getter)(nullptr, 0), 0x9000000Cu);
  }
}

TEST(RegistryPathGetters, ObjectWithoutPathsGivesEmptyOnes) {
  GenRegFile registry;
  for (const GetterCase& row : kGetters) {
    char buffer = '?';
    EXPECT_EQ((registry.*row.getter)(&buffer, 1), 0u);
    EXPECT_EQ(buffer, '\0');
  }
}

TEST(RegistryLinks, PathThatIsNoLinkKeepsItsNames) {
  const TempDir folder;
  vrxtest::writeFile(folder.file("reg"), "");
  PlainRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile(folder.path(), "reg"));
}

TEST(RegistryLinks, MissingFileAndObjectWithoutPathsKeepTheirNames) {
  const TempDir folder;
  PlainRegistry missing(folder.file("reg"));
  EXPECT_EQ(missing.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(missing), besideFile(folder.path(), "reg"));
  GenRegFile without;
  EXPECT_EQ(without.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(without), (Paths{"", "", "", "", ""}));
  EXPECT_EQ(without.state, 1u);
}

TEST(RegistryLinks, RelativeLinkIsTakenFromItsDirectory) {
  const TempDir folder;
  makeLink("data/reg.real", folder.file("reg"));
  PlainRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile(folder.file("data"), "reg.real"));
}

TEST(RegistryLinks, AbsoluteLinkReplacesTheDirectory) {
  const TempDir folder;
  makeLink("/nowhere/else/real", folder.file("reg"));
  PlainRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile("/nowhere/else", "real"));
}

TEST(RegistryLinks, BareLinkTargetGetsTheDirectoryForm) {
  const TempDir folder;
  makeLink("real", folder.file("reg"));
  PlainRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile(folder.path(), "real"));
}

TEST(RegistryLinks, ChainOfLinksThroughFoldersIsFollowedToItsEnd) {
  const TempDir folder;
  ASSERT_EQ(mkdir(folder.file("a").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(folder.file("b").c_str(), 0755), 0);
  makeLink("a/second", folder.file("reg"));
  makeLink("../b/third", folder.file("a/second"));
  makeLink(folder.file("b/real"), folder.file("b/third"));
  PlainRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile(folder.file("b"), "real"));
}

TEST(RegistryLinks, FollowingTwiceChangesNothingMore) {
  const TempDir folder;
  makeLink("real", folder.file("reg"));
  PlainRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  const Paths once = pathsOf(registry);
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), once);
}

TEST(RegistryLinks, CyclesLeaveThePathsAsTheyAre) {
  const TempDir folder;
  makeLink("self", folder.file("self"));
  makeLink("two", folder.file("one"));
  makeLink("one", folder.file("two"));
  for (const char* name : {"self", "one"}) {
    PlainRegistry registry(folder.file(name));
    EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
    EXPECT_EQ(pathsOf(registry), besideFile(folder.path(), name));
  }
}

// Links "l1" to "l<count>" and then "real", each naming the next.
void makeChain(const TempDir& folder, int count) {
  for (int i = 1; i < count; ++i) {
    makeLink("l" + std::to_string(i + 1), folder.file("l" + std::to_string(i)));
  }
  makeLink("real", folder.file("l" + std::to_string(count)));
}

TEST(RegistryLinks, FortyHopsAreFollowed) {
  const TempDir folder;
  makeChain(folder, 40);
  PlainRegistry registry(folder.file("l1"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile(folder.path(), "real"));
}

TEST(RegistryLinks, FortyOneHopsAreNotFollowed) {
  const TempDir folder;
  makeChain(folder, 41);
  PlainRegistry registry(folder.file("l1"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile(folder.path(), "l1"));
}

// Follows a link to a path of `length` bytes. The target need not exist.
Paths followToLength(std::size_t length) {
  const TempDir folder;
  makeLink(pathOfLength("/nowhere", length), folder.file("reg"));
  PlainRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  const Paths paths = pathsOf(registry);
  if (paths == besideFile(folder.path(), "reg")) return {};
  return paths;
}

TEST(RegistryLinks, TargetOf1017BytesFits) {
  const Paths paths = followToLength(1017);
  EXPECT_EQ(paths.registry.size(), 1017u);
  EXPECT_EQ(paths.lock.size(), 1023u);
}

TEST(RegistryLinks, TargetThatWouldCutAnyNameLeavesAllFive) {
  for (const std::size_t length : {1018u, 1019u, 1020u, 1022u, 1023u, 1024u, 1025u, 2000u}) {
    EXPECT_EQ(followToLength(length), Paths{}) << length;
  }
}

TEST(RegistryLinks, RelativeTargetThatNoLongerFitsLeavesAllFive) {
  const TempDir folder;
  const std::string relative = pathOfLength("d", 1000 - folder.path().size());
  makeLink(relative + std::string(40, 'x'), folder.file("reg"));
  PlainRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile(folder.path(), "reg"));
}

TEST(RegistryLinks, TargetThatNamesNoFileLeavesAllFive) {
  const TempDir folder;
  makeLink("data/", folder.file("reg"));
  PlainRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile(folder.path(), "reg"));
}

TEST(RegistryLinks, LinkThatCannotBeReadLeavesAllFive) {
  const TempDir folder;
  makeLink("real", folder.file("reg"));
  PlainRegistry registry(folder.file("reg"));
  for (int nth = 1; nth <= 2; ++nth) {
    const vrxtest::FailCall fault(vrxtest::Call::kReadlink, nth, EIO);
    EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(pathsOf(registry), besideFile(folder.path(), "reg"));
  }
}

TEST(RegistryLinks, LinkWhoseDirectoryCannotBeTakenLeavesAllFive) {
  for (const char* target : {"real", "/nowhere/real"}) {
    const TempDir folder;
    makeLink(target, folder.file("reg"));
    PlainRegistry registry(folder.file("reg"));
    const vrxtest::FailCall fault(vrxtest::Call::kDirectoryName, 1, ENAMETOOLONG);
    EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
    EXPECT_TRUE(fault.fired()) << target;
    EXPECT_EQ(pathsOf(registry), besideFile(folder.path(), "reg")) << target;
  }
}

// Its directory's form has one slash more than the target.
TEST(RegistryLinks, TargetInTheRootThatNoLongerFitsLeavesAllFive) {
  const TempDir folder;
  makeLink("/" + std::string(1022, 'n'), folder.file("reg"));
  PlainRegistry registry(folder.file("reg"));
  EXPECT_EQ(registry.GetAndSetRealRegistryPaths(), 0u);
  EXPECT_EQ(pathsOf(registry), besideFile(folder.path(), "reg"));
}

}  // namespace
