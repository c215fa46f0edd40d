// SPDX-License-Identifier: Apache-2.0
// A whole update or lookup of a hostile file, against the model: the status and every byte of the
// file. The first byte chooses the format, some more the operation; the rest is the file.
#include "fuzz/file_support.h"

namespace {

namespace model = vrxtest::model;
using vrxfuzz::require;

constexpr std::size_t kOperationBytes = 24;

void run(model::Format format, const model::Operation& operation, const std::string& bytes) {
  const std::string path = vrxfuzz::scratchFile("reg");
  vrxtest::putBytes(path, bytes);
  const model::Outcome wanted = model::expected(format, bytes, operation);
  const std::string story = model::described(format, bytes, operation);
  const vrxfuzz::Bounded bounded(bytes.size());
  const auto library = model::libraryFor(format, path);
  const unsigned rc = bounded.call([&] { return library->run(operation); });
  require(rc == wanted.status, "status", std::to_string(rc) + " for " + story);
  if (operation.verb == model::Verb::kFind && rc == 0) {
    require(library->found() == model::expectedFound(format, bytes, operation), "found", story);
  }
  require(vrxtest::bytesAt(path) == wanted.bytes, "file", story);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size <= kOperationBytes) return 0;
  constexpr model::Format kFormats[] = {model::Format::kProfile, model::Format::kServices,
                                        model::Format::kInitTable};
  const model::Format format = kFormats[data[0] % 3];
  vrxfuzz::ByteChoices choices(vrxfuzz::bytesOf(data + 1, kOperationBytes - 1));
  run(format, model::randomOperation(format, choices),
      vrxfuzz::bytesOf(data + kOperationBytes, size - kOperationBytes));
  return 0;
}
