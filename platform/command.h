// Running a command and reading what it prints.
#pragma once

#include <cstdio>
#include <cwchar>

#ifndef _WIN32

extern "C" {

// Starts a command whose output is read, as text with mode L"rt", from the stream that it returns
// (fgetws), which the caller gives to _pclose. Null with the last error set when it cannot be
// started; a command that the system does not know is started all the same, and prints nothing
// here.
std::FILE* _wpopen(const wchar_t* command, const wchar_t* mode);

// Waits for the command's end. Its exit code, or -1 for a stream that is not open.
int _pclose(std::FILE* output);
}

#endif
