// What the state reader says of a text, for tests of hostile and malformed state files.
#pragma once
#include "velt/state/State.h"

#include <string>

namespace StateErrors {

// The reader's error for `text` (as the file "t.yaml"), or "accepted".
inline std::string errorOf(const std::string& text) {
   try {
      VeltState::parseState(text, "t.yaml");
   } catch (const VeltState::StateError& e) {
      return e.what();
   }
   return "accepted";
}

} // namespace StateErrors
