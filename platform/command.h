// Running a command and reading what it prints.
#pragma once

#include <cstdio>
#include <cwchar>

#ifndef _WIN32

extern "C" {

// Starts a command whose output the caller reads, as text with mode L"rt", from the returned stream
// (fgetws) and then closes with _pclose. Null with the last error set when it cannot be started. An
// unknown command is started too, and prints nothing here.
std::FILE* _wpopen(const wchar_t* command, const wchar_t* mode);

// Closes the stream and waits for the command's end. Returns its exit code, or -1 for a stream that
// is not open.
int _pclose(std::FILE* output);
}

#endif
