// SPDX-License-Identifier: Apache-2.0
// The noun `profile`: the variables of a file of name = value lines.
#include "cli/face_store.h"
#include "cli/file_nouns.h"
#include "vrx/profile.h"

namespace cli {

namespace {

std::vector<Field> profileFields() {
  return {
      {"name", "NAME", Kind::text, kMaxLineText, KeyPart::name, Presence::required},
      {"value", "VALUE", Kind::text, kMaxLineText, KeyPart::none, Presence::maybeEmpty},
      {"comment", "COMMENT", Kind::text, kMaxLineText, KeyPart::none, Presence::optional},
  };
}

std::unique_ptr<Store> openProfile(const Noun& noun, const Arguments& arguments,
                                   const std::string& path, SideEffects) {
  return openFile<LineStore, vrx::Profile>(noun, arguments,
                                           chosenFile(noun, arguments, nullptr, path));
}

}  // namespace

Noun profileNoun() {
  Noun noun = {"profile",     "the variables of a name = value file, named by -f",
               "NAME",        "name,value,comment",
               KeyPart::name, profileFields(),
               &openProfile,  kAcceptsFile | kAcceptsAll | kAcceptsAllLines};
  noun.missingFile = MissingFile::made;
  noun.difference = Difference::file;
  noun.slashInName = true;
  return noun;
}

}  // namespace cli
