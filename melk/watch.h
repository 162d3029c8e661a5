// `melk watch`: reads the board repeatedly and shows what changes.
#pragma once

#include "melk/session.h"

namespace melk {

// A panel where there is a screen, else a line for each change, or with --json
// an object for each reading.
int run_watch(Session& session);

}  // namespace melk
