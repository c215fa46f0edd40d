// SPDX-License-Identifier: Apache-2.0
// Looking at names without following them, and reading files through copies of our own.
#include "cli/leftovers_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>

#include "cli/lock_wait.h"
#include "cli/text.h"
#include "genreg/registry.h"
#include "platform/osse/errors.h"

namespace cli {

namespace {

FileType typeOf(unsigned mode) {
  if (S_ISREG(mode)) return FileType::file;
  if (S_ISLNK(mode)) return FileType::link;
  return S_ISDIR(mode) ? FileType::folder : FileType::other;
}

Found lookAt(const std::string& path) {
  Found found;
  found.path = path;
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return found;
    throw failureOf(ossErrorMapSystem(errno), path, path);
  }
  found.type = typeOf(info.st_mode);
  found.device = info.st_dev;
  found.inode = info.st_ino;
  found.size = static_cast<std::uint64_t>(info.st_size);
  found.links = info.st_nlink;
  found.mode = info.st_mode & 07777u;
  found.seconds = info.st_mtim.tv_sec;
  found.nanoseconds = info.st_mtim.tv_nsec;
  return found;
}

// Asks without taking it, so that nobody who tries it in this moment is turned away.
bool isLocked(const Found& lock) {
  if (!lock.isFile()) return false;
  constexpr int kCareful = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const int descriptor = open(lock.path.c_str(), kCareful);
  if (descriptor < 0) return false;
  struct flock wanted {};
  wanted.l_type = F_WRLCK;
  wanted.l_whence = SEEK_SET;
  const bool answered = fcntl(descriptor, F_OFD_GETLK, &wanted) == 0;
  (void)close(descriptor);  // nothing was written
  return answered && wanted.l_type != F_UNLCK;
}

// The noun among the words, wherever it stands there; null for none.
const Noun* takeNoun(std::vector<std::string>* words) {
  const auto isNoun = [](const std::string& word) { return findNoun(word) != nullptr; };
  const auto at = std::find_if(words->begin(), words->end(), isNoun);
  if (at == words->end()) return nullptr;
  const Noun* noun = findNoun(*at);
  words->erase(at);
  return noun;
}

bool isOfGlobalRegistry(const Noun& noun) {
  return (noun.accepts & kAcceptsRegistry) != 0;
}

std::vector<const Noun*> globalRegistryNouns() {
  std::vector<const Noun*> chosen;
  for (const Noun& noun : nouns()) {
    if (isOfGlobalRegistry(noun)) chosen.push_back(&noun);
  }
  return chosen;
}

void refuseOptionsOfOthers(const Arguments& arguments, const Noun* named, const Noun& noun) {
  constexpr unsigned kPlace = kAcceptsRegistry | kAcceptsFile;
  const std::string foreign = firstForeignOption(arguments, ~kPlace | (noun.accepts & kPlace));
  if (foreign.empty()) return;
  throw usageFailure(named == nullptr
                         ? fmt::format("{}: of what? Name the noun (profile, ports ...)", foreign)
                         : fmt::format("{} does not apply to {}", foreign, noun.name));
}

std::string bytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Lines after a power failure may hold zeros, which the library reads over.
void requireText(const std::string& text, const std::string& path) {
  const std::size_t at = text.find('\0');
  if (at == std::string::npos) return;
  const auto line = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n');
  throw pathFailure(Exit::damaged, path, fmt::format("line {} holds a NUL byte", line + 1));
}

}  // namespace

Subject takeSubject(Command& command) {
  const Noun* named = takeNoun(&command.words);
  Subject subject;
  subject.nouns = globalRegistryNouns();
  if (named != nullptr) subject.nouns = {named};
  const Noun& noun = *subject.nouns.front();
  refuseOptionsOfOthers(command.arguments, named, noun);
  subject.store = noun.open(noun, command.arguments, "", SideEffects::wanted);
  subject.path = subject.store->path();
  subject.store->file().GetAndSetRealRegistryPaths();
  return subject;
}

std::vector<Companion> takeCompanions(Command& command) {
  std::vector<Companion> chosen;
  for (const std::string& word : command.words) {
    const std::optional<Companion> companion = companionOf(word);
    if (!companion) {
      throw usageFailure(fmt::format("{}: no such leftover{}; there are tmp, cor, bkp, lock", word,
                                     suggestion(word, {"tmp", "cor", "bkp", "lock"})));
    }
    chosen.push_back(*companion);
  }
  command.words.clear();
  return chosen;
}

Companion takeCopy(Command& command) {
  const std::vector<Companion> chosen = takeCompanions(command);
  if (chosen.size() != 1) throw usageFailure("name one leftover: tmp, cor or bkp");
  if (chosen.front() != Companion::lock) return chosen.front();
  throw usageFailure("lock: the lock file holds no records; name tmp, cor or bkp");
}

Surroundings lookAround(const Subject& subject, LockQuestion question) {
  const GenRegFile& file = subject.store->file();
  Surroundings seen;
  seen.registry = lookAt(file.registryPath);
  const char* const paths[] = {file.temporaryPath, file.corruptPath, file.backupPath,
                               file.lockPath};
  std::transform(std::begin(paths), std::end(paths), seen.companions.begin(), &lookAt);
  if (question == LockQuestion::asked) seen.lockIsHeld = isLocked(seen.at(Companion::lock));
  return seen;
}

void requireCompanion(const Subject& subject, const Surroundings& seen, Companion companion) {
  if (seen.at(companion).stands()) return;
  Failure failure(Exit::noRegistry,
                  fmt::format("{}: there is no {} beside it", subject.path, nameOf(companion)));
  failure.path = seen.at(companion).path;
  throw failure;
}

void openFile(const Found& found, OSSHFile* file) {
  const OSSFileOpenParams how = {kOssFileStructureVersion,
                                 found.path.c_str(),
                                 kOssOpenExisting | kOssOpenNoFollow,
                                 kOssAccessRead,
                                 0,
                                 0,
                                 0};
  const GenRegStatus rc = file->open(&how);
  if (rc != genreg::status::ok) throw failureOf(rc, found.path, found.path);
}

std::uint64_t Contents::recordCount() const {
  std::uint64_t count = 0;
  for (const auto& [noun, rows] : records)
    count += rows.size();
  return count;
}

std::uint64_t Contents::lineCount() const {
  if (!text || text->empty()) return 0;
  const auto ends = static_cast<std::uint64_t>(std::count(text->begin(), text->end(), '\n'));
  return text->back() == '\n' ? ends : ends + 1;
}

Contents readContents(const Command& command, const Subject& subject, const Found& found,
                      const OSSHFile& file) {
  const PrivateCopy copy(file.getFileHandle(), found.path);
  Contents contents;
  for (const Noun* noun : subject.nouns) {
    if (noun->difference == Difference::file) contents.text = bytesOf(copy.path());
    const auto store = noun->open(*noun, command.arguments, copy.path(), SideEffects::none);
    std::vector<Row>& rows = contents.records[noun->name];
    (void)readRecords(*store, found.path, [&rows](Row& row) {  // it keeps none
      rows.push_back(std::move(row));
      return false;
    });
  }
  if (contents.text) requireText(*contents.text, found.path);
  return contents;
}

Contents readContents(const Command& command, const Subject& subject, const Found& found) {
  OSSHFile file;
  openFile(found, &file);
  return readContents(command, subject, found, file);
}

Failure busyFailure(const Subject& subject) {
  const std::string path = subject.store->file().lockPath;
  Failure failure(Exit::busy, fmt::format("{} is held by {}: an update is going on; nothing done",
                                          path, lockHolder(path)));
  failure.code = genreg::status::locked_elsewhere;
  failure.path = path;
  return failure;
}

}  // namespace cli
