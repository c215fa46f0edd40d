// SPDX-License-Identifier: Apache-2.0
// A hostile text file and a sequence of operations on it: lookups, scans, positions, updates. Each
// is done twice: with the line slots, which pass over lines by their bytes, and without them, where
// every line is parsed. Statuses, records, positions and files must be the same. The first byte
// chooses the format and whether the file is given more comments than fill a reader's block, the
// second where; some more choose the operations; the rest is the file. What a single operation does
// is text_update's.
#include "fuzz/file_support.h"

namespace {

namespace model = vrxtest::model;
using vrxfuzz::require;

constexpr std::size_t kHead = 97;
constexpr unsigned kLong = 0x80;
constexpr unsigned kMostSteps = 6;

enum class Step { kRun, kOpenScan, kNext, kRewind, kSetPosition, kCloseScan };

// What a step gave, in words; a record that was not found shows what the last one left.
std::string perform(model::Library& library, Step step, const model::Operation& operation,
                    long long position, const vrxfuzz::Bounded& bounded) {
  GenRegText& registry = library.registry();
  const auto work = [&]() -> unsigned {
    switch (step) {
      case Step::kRun:
        return library.run(operation);
      case Step::kOpenScan:
        return registry.OpenScan();
      case Step::kNext:
        return library.next(operation);
      case Step::kRewind:
        return registry.Rewind();
      case Step::kSetPosition:
        return registry.setRegFilePosition(&position);
      case Step::kCloseScan:
        break;
    }
    return registry.CloseScan();
  };
  const unsigned status = bounded.call(work);
  const bool found = status == 0 && (step == Step::kNext || operation.verb == model::Verb::kFind);
  long long now = -1;
  const bool scanning = (registry.state & kGenRegStateScanning) != 0;
  if (scanning) require(registry.getRegFilePosition(&now) == 0, "no position");
  return std::to_string(status) + " at " + std::to_string(now) + " of " +
         vrxtest::bytesAt(registry.registryPath) + (found ? " found " + library.found() : "");
}

Step stepChoice(model::Choices& choices) {
  const unsigned choice = choices.below(12);
  return choice < 5 ? static_cast<Step>(choice + 1) : Step::kRun;
}

// The file with many comments behind one of its lines.
std::string withComments(const std::string& bytes, unsigned lines) {
  constexpr std::size_t kLonger = 33000;  // than a reader's block
  std::size_t at = 0;
  for (; lines > 0; --lines) {
    const std::size_t end = bytes.find('\n', at);
    if (end == std::string::npos) break;
    at = end + 1;
  }
  std::string comments;
  while (comments.size() < kLonger)
    comments += "# " + std::string(comments.size() % 61, 'c') + "\n";
  return bytes.substr(0, at) + comments + bytes.substr(at);
}

void run(model::Format format, model::Choices& choices, const std::string& bytes) {
  const std::string paths[] = {vrxfuzz::scratchFile("filtered"), vrxfuzz::scratchFile("parsed")};
  for (const std::string& path : paths)
    vrxtest::putBytes(path, bytes);
  const vrxfuzz::Bounded bounded(bytes.size() + kMostSteps * kGenRegLineSize);
  const auto filtered = model::libraryFor(format, paths[0]);
  const auto parsed = model::libraryFor(format, paths[1]);
  parsed->registry().lineSlots = nullptr;
  for (unsigned i = choices.below(kMostSteps) + 1; i > 0; --i) {
    const Step step = stepChoice(choices);
    const long long position = choices.below(256);
    const model::Operation operation = model::randomOperation(format, choices);
    const std::string got = perform(*filtered, step, operation, position, bounded);
    const std::string wanted = perform(*parsed, step, operation, position, bounded);
    require(got == wanted, "another outcome without the line slots",
            "step " + std::to_string(static_cast<int>(step)) + ": " + got + "\n-- parsed --\n" +
                wanted + "\n" + model::described(format, bytes, operation));
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kHead) return 0;
  constexpr model::Format kFormats[] = {model::Format::kProfile, model::Format::kServices,
                                        model::Format::kInitTable};
  vrxfuzz::ByteChoices choices(vrxfuzz::bytesOf(data + 2, kHead - 2));
  std::string bytes = vrxfuzz::bytesOf(data + kHead, size - kHead);
  if ((data[0] & kLong) != 0) bytes = withComments(bytes, data[1]);
  run(kFormats[data[0] % 3], choices, bytes);
  return 0;
}
