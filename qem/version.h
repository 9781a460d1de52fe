// Global compatibility version.
//
// Algorithms that changed behaviour compare this against the version that
// introduced the change, so a host can ask for the old behaviour to reproduce
// earlier results. Versions are encoded as major*1000000 + minor*10000 + ...;
// the default is the latest, which is above every threshold in use.
#pragma once

#include "qem/qem_export.h"

// Current version (process-wide; default latest_global_version()).
QEM_API int get_global_version();
// Selects the behaviour of an earlier version; no validation is done.
QEM_API void set_global_version(int version);
// The newest version this build knows: 3000000.
QEM_API int latest_global_version();
