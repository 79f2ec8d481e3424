// The maker's logging library, which lies beside the executable where it is installed.
#pragma once

// Loads the library and starts it under the service's name. Without it the service runs as well.
void StartLoggingLibrary();

// Stops it and lets it go. Nothing happens when it was not started.
void StopLoggingLibrary();
