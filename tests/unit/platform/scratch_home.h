// A WIREFOX_HOME of a test's own.
#pragma once

#include <stdlib.h>

#include "tests/unit/scratch_folder.h"

class ScratchHome : public unit::ScratchFolder {
 public:
  ScratchHome() {
    if (const char* previous = getenv("WIREFOX_HOME")) previous_ = previous;
    setenv("WIREFOX_HOME", directory().c_str(), 1);
  }
  ~ScratchHome() {
    if (previous_.empty()) {
      unsetenv("WIREFOX_HOME");
    } else {
      setenv("WIREFOX_HOME", previous_.c_str(), 1);
    }
  }

 private:
  std::string previous_;
};
