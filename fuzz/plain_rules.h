// SPDX-License-Identifier: Apache-2.0
// The two plain formats that the targets use, as the model of frames knows them.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/frame_model.h"
#include "genreg/formats/bin_var_val.h"
#include "tests/support/plain_registry.h"

namespace vrxfuzz {

template <class Record>
std::string bytesOfRecord(const Record& record) {
  std::string bytes(sizeof record, '\0');
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

// vrxtest::PlainRegistry: 16 bytes of name, 4 bytes of number.
inline PlainRules plainRules() {
  const auto agree = [](unsigned long long mask, const std::string& a, const std::string& b) {
    if ((mask & vrxtest::kPlainName) != 0 && a.substr(0, 16) != b.substr(0, 16)) return false;
    return (mask & vrxtest::kPlainValue) == 0 || a.substr(16) == b.substr(16);
  };
  const auto isAcceptable = [](unsigned long long mask, const std::string& record) {
    return (mask & vrxtest::kPlainName) == 0 || record[0] != '\0';
  };
  return {sizeof(vrxtest::PlainRecord), agree, isAcceptable};
}

// GenRegBinVarVal: a name that ends with its NUL or its 16 bytes, a number, a comment that does not
// count. Several may agree.
inline PlainRules binaryVariableRules() {
  const auto agree = [](unsigned long long mask, const std::string& a, const std::string& b) {
    const auto name = [](const std::string& record) {
      return record.substr(0, std::min<std::size_t>(16, record.find('\0')));
    };
    if ((mask & kBinVarValVariable) != 0 && name(a) != name(b)) return false;
    return (mask & kBinVarValValue) == 0 || a.substr(16, 4) == b.substr(16, 4);
  };
  const auto isAcceptable = [](unsigned long long, const std::string&) { return true; };
  PlainRules rules{sizeof(GenRegBinVarValRecord), agree, isAcceptable};
  rules.duplicates = true;
  return rules;
}

}  // namespace vrxfuzz
