// Who may change a file or folder, as its descriptor says.
#pragma once

#include <string>

#include "platform/base.h"

// The folder that a path lies in, of a folder on a drive the drive's root; empty for a root.
std::wstring FolderOf(const std::wstring& path);

// The owner and rights of a file or folder, as the text of its descriptor; links are followed.
// Empty with the last error set on failure. Any thread.
std::wstring DescriptorOf(const std::wstring& path);

// What the rights let others do than the system, administrators and the owner.
enum class Lets
{
    replace,  // put another thing in its place, or in that of what it contains
    write,    // that, or write the file or into the folder
};
bool LetsOthers(const std::wstring& descriptor, Lets what);

// Whether the system or administrators own a file or folder, or the account that owns all the
// folders above it, too. Any thread.
bool IsOwnedByTheSystem(const std::wstring& path, const std::wstring& descriptor);
