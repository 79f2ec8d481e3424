// The folders that the service writes in, which no user is to write, and which nothing is written
// through where they are links.
#pragma once

#include <string>

// Makes a folder where it is missing, for the system and administrators to write and users to read.
// False, and nothing is made, where it or its parent is a link. Any thread.
bool MakeOwnFolder(const std::wstring& path);

// Whether a file or folder is a link, or what it is cannot be told; false for a missing one. The
// first link that a process finds is told on the debugger output. Any thread.
bool IsLink(const std::wstring& path);
