// The maker's logging library, which may be installed beside the executable.
#pragma once

// Loads the library and starts it under the service's name. The service also runs without it.
void StartLoggingLibrary();

// Stops and unloads the library; does nothing when it is not loaded.
void StopLoggingLibrary();
