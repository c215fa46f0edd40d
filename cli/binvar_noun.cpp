// SPDX-License-Identifier: Apache-2.0
// The noun `binvar`: the variables of a binary file.
#include "cli/face_store.h"
#include "cli/file_nouns.h"
#include "vrx/binary_variables.h"

namespace cli {

namespace {

constexpr std::size_t kMaxText = sizeof GenRegBinVarValRecord::variable - 1;

std::vector<Field> binvarFields() {
  return {
      {"name", "NAME", Kind::text, kMaxText, KeyPart::name, Presence::required},
      {"value", "VALUE", Kind::integer, 0, KeyPart::none, Presence::required},
      {"comment", "COMMENT", Kind::text, kMaxText, KeyPart::none, Presence::optional},
  };
}

std::unique_ptr<Store> openBinvar(const Noun& noun, const Arguments& arguments,
                                  const std::string& path, SideEffects) {
  return openFile<FaceStore, vrx::BinaryVariables>(noun, arguments,
                                                   chosenFile(noun, arguments, nullptr, path));
}

}  // namespace

Noun binvarNoun() {
  Noun noun = {"binvar",      "the variables of a binary file, named by -f",
               "NAME",        "name,value,comment",
               KeyPart::name, binvarFields(),
               &openBinvar,   kAcceptsFile | kAcceptsAll};
  noun.missingFile = MissingFile::made;
  noun.slashInName = true;
  return noun;
}

}  // namespace cli
