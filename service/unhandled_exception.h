// Logs the exception that ends the process.
#pragma once

#include "platform/module.h"

// The process's unhandled-exception filter: logs the exception and leaves it to the system, which
// ends the process.
LONG WINAPI theUnhandledExceptionHandler(EXCEPTION_POINTERS* exceptionPointers);
