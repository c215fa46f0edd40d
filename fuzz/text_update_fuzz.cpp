// SPDX-License-Identifier: Apache-2.0
// A whole update or lookup of a hostile file, against the model: the status and every byte of the
// file. The first byte chooses the format, some more the operation; the rest is the file.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz_support.h"
#include "platform/osse/files.h"
#include "platform/osse/memory.h"
#include "tests/support/text_model_driver.h"

namespace {

namespace model = vrxtest::model;
using vrxfuzz::require;

constexpr std::size_t kOperationBytes = 24;

class ByteChoices : public model::Choices {
 public:
  explicit ByteChoices(const std::string& bytes) : bytes_(bytes) {}
  unsigned below(unsigned bound) override {
    if (at_ == bytes_.size()) return 0;
    return static_cast<unsigned char>(bytes_[at_++]) % bound;
  }

 private:
  const std::string& bytes_;
  std::size_t at_ = 0;
};

// A folder for one process, gone with it.
class Folder {
 public:
  Folder() : path_(std::filesystem::temp_directory_path() / "vrxfuzz-XXXXXX") {
    std::string name = path_.string();
    require(mkdtemp(name.data()) != nullptr, "no temporary folder");
    path_ = name;
  }
  ~Folder() {
    std::error_code ignored;  // the process ends either way
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string file(const char* name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

std::string read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string{std::istreambuf_iterator<char>(file), {}};
}

void run(model::Format format, const model::Operation& operation, const std::string& bytes) {
  static const Folder folder;
  const std::string path = folder.file("reg");
  std::ofstream(path, std::ios::binary) << bytes;
  const model::Outcome wanted = model::expected(format, bytes, operation);
  const std::string story = model::described(format, bytes, operation);
  const unsigned long blocks = ossMemLiveBlocks();
  {
    const auto library = model::libraryFor(format, path);
    const unsigned rc = library->run(operation);
    require(rc == wanted.status, "status", std::to_string(rc) + " for " + story);
    if (operation.verb == model::Verb::kFind && rc == 0) {
      require(library->found() == model::expectedFound(format, bytes, operation), "found", story);
    }
  }
  require(read(path) == wanted.bytes, "file", story);
  require(ossMemLiveBlocks() == blocks, "memory kept", story);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size <= kOperationBytes) return 0;
  ossSetSyncPolicy(OSSSyncPolicy::none);
  constexpr model::Format kFormats[] = {model::Format::kProfile, model::Format::kServices,
                                        model::Format::kInitTable};
  const model::Format format = kFormats[data[0] % 3];
  const std::string head = vrxfuzz::bytesOf(data + 1, kOperationBytes - 1);
  ByteChoices choices(head);
  run(format, model::randomOperation(format, choices),
      vrxfuzz::bytesOf(data + kOperationBytes, size - kOperationBytes));
  return 0;
}
