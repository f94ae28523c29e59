#pragma once

#include "app/settings.h"

namespace murmela {

// Runs the parity mode on the calling thread, a worker, with the standard store under
// `arguments`, then has the main thread's event loop end the process with the exit code: the
// code is delivered only after the run's last file write. Needs a QCoreApplication.
void runParityAndExit(ArgumentDomain arguments);

}  // namespace murmela
