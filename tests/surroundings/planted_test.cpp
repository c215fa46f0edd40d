// SPDX-License-Identifier: Apache-2.0
// Things planted where the library makes its files: nothing outside of the registry's own five is
// made, changed or cut, and nothing blocks. Each is tried by a child that an alarm ends.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <set>

#include "globalreg/global_reg.h"
#include "tests/support/global_records.h"
#include "tests/support/private_mounts.h"
#include "tests/surroundings/around.h"

namespace {

using namespace vrxtest;

constexpr unsigned kPatience = 30;

enum class Thing {
  kLink,
  kDanglingLink,
  kLinkToFolder,
  kFifo,
  kFolder,
  kSocket,
  kDevice,
  kHardLink
};
constexpr Thing kThings[] = {Thing::kLink,   Thing::kDanglingLink, Thing::kLinkToFolder,
                             Thing::kFifo,   Thing::kFolder,       Thing::kSocket,
                             Thing::kDevice, Thing::kHardLink};

const std::vector<std::string> kCanaryNames = {"victim", "missing", "inner", "inner/kept"};

bool makeSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  path.copy(address.sun_path, path.size());
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int rc = bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return close(listener) == 0 && rc == 0;
}

// Plants a thing that leads into the canary folder. False when it cannot be had here.
bool plant(Thing thing, const std::string& canary, const std::string& at) {
  switch (thing) {
    case Thing::kLink:
      return symlink((canary + "/victim").c_str(), at.c_str()) == 0;
    case Thing::kDanglingLink:
      return symlink((canary + "/missing").c_str(), at.c_str()) == 0;
    case Thing::kLinkToFolder:
      return symlink((canary + "/inner").c_str(), at.c_str()) == 0;
    case Thing::kFifo:
      return mkfifo(at.c_str(), 0666) == 0;
    case Thing::kFolder:
      return mkdir(at.c_str(), 0777) == 0;
    case Thing::kSocket:
      return makeSocket(at);
    case Thing::kDevice:
      return mknod(at.c_str(), S_IFCHR | 0666, makedev(1, 5)) == 0;  // gives zeros without end
    case Thing::kHardLink:
      return link((canary + "/victim").c_str(), at.c_str()) == 0;
  }
  return false;
}

void makeCanary(const std::string& canary) {
  ASSERT_EQ(mkdir(canary.c_str(), 0755), 0);
  ASSERT_EQ(mkdir((canary + "/inner").c_str(), 0750), 0);
  writeFile(canary + "/victim", "precious");
  writeFile(canary + "/inner/kept", "also precious");
  ASSERT_EQ(chmod((canary + "/victim").c_str(), 0640), 0);
}

struct Place {
  const char* name;
  unsigned (*firstStatus)(const Subject& subject, Thing thing);
};

// A copy's leftover is set aside whatever it is; a folder cannot be deleted as a file can; a lock
// file is a regular file.
constexpr Place kPlaces[] = {
    {"reg.tmp", [](const Subject&, Thing) { return 0U; }},
    {"reg.cor",
     [](const Subject&, Thing thing) { return thing == Thing::kFolder ? 0x900001C5U : 0U; }},
    {".reg.bkp", [](const Subject& subject,
                    Thing thing) { return thing == Thing::kFolder ? notCommitted(subject) : 0U; }},
    {".reg.lock",
     [](const Subject&, Thing thing) { return thing == Thing::kHardLink ? 0U : 0x900001BCU; }},
};

std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    names.insert(entry.path().filename().string());
  return names;
}

class Planted : public testing::TestWithParam<Subject> {
 protected:
  const SyncPolicy unsynced{OSSSyncPolicy::none};
  const Subject& subject = GetParam();

  // Two of each update, and a scan; a refused one changes nothing.
  void useRegistry(const std::string& path, unsigned firstStatus) const {
    EXPECT_EQ(lookUp(subject, path, "stwo"), 0U);
    EXPECT_EQ(update(subject, path, Kind::kAdd), firstStatus);
    for (const Kind kind : {Kind::kChange, Kind::kDelete, Kind::kAdd}) {
      const std::string before = readFile(path);
      if (update(subject, path, kind) != 0) {
        EXPECT_EQ(readFile(path), before);
      }
    }
    const Contents contents = contentsOf(subject, path);
    EXPECT_EQ(contents.status, kScanned);
    EXPECT_GE(contents.records.size(), 3U);
  }

  void tryPlace(const Place& place, Thing thing) const {
    SCOPED_TRACE(std::string(place.name) + ", thing " + std::to_string(static_cast<int>(thing)));
    const TempDir folder;
    const std::string canary = folder.file("canary");
    const std::string home = folder.file("home");
    makeCanary(canary);
    ASSERT_EQ(mkdir(home.c_str(), 0755), 0);
    fillRegistry(subject, home + "/reg");
    (void)unlink((home + "/" + place.name).c_str());  // the lock file; the others are not there
    if (!plant(thing, canary, home + "/" + place.name)) {
      ASSERT_NE(geteuid(), 0U) << "root may plant everything";
      return;
    }
    const auto before = snapshotOf(canary, kCanaryNames);
    (void)alarm(kPatience);
    useRegistry(home + "/reg", place.firstStatus(subject, thing));
    (void)alarm(0);
    EXPECT_EQ(snapshotOf(canary, kCanaryNames), before);
    EXPECT_EQ(namesIn(canary), (std::set<std::string>{"inner", "victim"}));
    for (const std::string& name : namesIn(home))
      EXPECT_EQ(kOwnNames.count(name), 1U) << name;
  }

 private:
  const std::set<std::string> kOwnNames = {"reg", "reg.tmp", "reg.cor", ".reg.bkp", ".reg.lock"};
};

TEST_P(Planted, NothingAtTheCompanionsPathsLeadsOutsideOrBlocks) {
  inChildProcess([this] {
    for (const Place& place : kPlaces) {
      for (const Thing thing : kThings)
        tryPlace(place, thing);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Formats, Planted, testing::ValuesIn(subjects()), subjectName);

// The two files outside of the registry's folder, which only the global registry has.
void tryFixedPath(const char* fixed, Thing thing) {
  SCOPED_TRACE(std::string(fixed) + ", thing " + std::to_string(static_cast<int>(thing)));
  const TempDir folder;
  const std::string canary = folder.file("canary");
  makeCanary(canary);
  std::filesystem::remove_all(fixed);
  const bool planted = thing == Thing::kHardLink && std::string(fixed).rfind("/tmp", 0) != 0
                           ? false  // a hard link does not lead into another file system
                           : plant(thing, canary, fixed);
  if (!planted) return;
  const auto before = snapshotOf(canary, kCanaryNames);
  ASSERT_EQ(setenv("VRX_GLOBAL_REG_PATHNAME", folder.file("reg").c_str(), 1), 0);
  (void)alarm(kPatience);
  GlobalReg registry;
  GlobalRegRecord record = variableRecord("V", "NAME", "1");
  EXPECT_EQ(registry.Add(kVariableKey, &record), 0);
  GlobalRegRecord changed = variableRecord("V", "NAME", "2");
  EXPECT_EQ(registry.Change(kVariableKey, &record, &changed), 0);
  EXPECT_EQ(registry.Delete(kVariableKey, &changed), 0);
  (void)alarm(0);
  EXPECT_EQ(snapshotOf(canary, kCanaryNames), before);
  EXPECT_EQ(namesIn(canary), (std::set<std::string>{"inner", "victim"}));
  std::filesystem::remove_all(fixed);
}

TEST(PlantedOutside, NothingAtTheChangeLogsPathIsWrittenToOrBlocks) {
  inPrivateMounts([] {
    for (const Thing thing : kThings)
      tryFixedPath("/tmp/globalreg.debug", thing);
  });
}

TEST(PlantedOutside, NothingAtTheMonitorsLockFileIsTouchedOrBlocks) {
  inPrivateMounts([] {
    for (const Thing thing : kThings)
      tryFixedPath("/var/vrx/.fmcd.lock", thing);
  });
}

}  // namespace
