// The switches of the command line.
#pragma once

#include "platform/com.h"

// Runs the first known switch on the command line, which includes the executable's path. TRUE when
// the process then continues as a service or server: there was no switch, or it was -Debug. FALSE
// when the process ends after the switch, with the switch's result in `hr`.
BOOL ParseCommandLine(const wchar_t* commandLine, HRESULT& hr);
