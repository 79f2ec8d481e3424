// The switches of the command line.
#pragma once

#include "platform/com.h"

// Does what the first known switch on the command line, executable included, says. TRUE when the
// process is then to run as a service or server, as without a switch; FALSE when the switch was all
// there is to do, with its result in `hr`.
BOOL ParseCommandLine(const wchar_t* commandLine, HRESULT& hr);
