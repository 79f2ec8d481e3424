// The folders that the service writes in, which no user is to write, and which nothing is written
// through where they are links or a user's own.
#pragma once

#include <string>

#include "platform/base.h"

// Makes a folder that others make theirs in, too, with the rights that its place gives, and owned
// by administrators. Nothing happens where it exists, or where the caller may not do so. Any
// thread.
void MakeSharedFolder(const std::wstring& path);

// Makes a folder where it is missing, for the system and administrators to write and users to read;
// one that is there and lets others write gets these rights. False, and nothing is made, where it
// or its parent is a link or belongs to a user, or where others may replace the parent. Any thread.
bool MakeOwnFolder(const std::wstring& path);

// Whether a file or folder is a link, or what it is cannot be told; false for one that is missing
// in a folder that is there. Any thread.
bool IsLink(const std::wstring& path);

// Whether an open file belongs to the system, has no second name elsewhere, and no other may write
// it. Any thread.
bool IsOwnFile(const std::wstring& path, HANDLE file);

// Why a place is not written is told on the debugger output, of the first that a process finds.

// The first of a program's file, its folder and the folders above that another than the system and
// administrators may write or replace, and so the program; empty where there is none. Any thread.
std::wstring WritableByOthers(const std::wstring& program);
