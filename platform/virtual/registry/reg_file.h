// Registration files (.reg, version 5): UTF-16 with a byte-order mark, or UTF-8.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/virtual/registry/registry.h"

namespace virtual_pc {

// One change that a .reg file asks for.
struct RegFileChange
{
    enum class What
    {
        key,
        delete_key,
        value,
        delete_value,
    };
    What what;
    RegistryPath path;
    std::wstring name;  // of the value; "" is the default value
    RegistryValue value;
};

// The changes that the file asks for, in its order. Throws std::runtime_error "FILE:LINE: what is
// wrong".
std::vector<RegFileChange> ReadRegFile(const std::string& file);

// Puts keys together into one file.
class RegFileWriter
{
public:
    // A key and everything below it; a root itself needs no line.
    void Add(const RegistryPath& path, const RegistryNode& key);

    // In UTF-16. Throws std::runtime_error when the file cannot be written.
    void Write(const std::string& file) const;

private:
    void AddValue(const std::wstring& name, const RegistryValue& value);

    std::wstring m_text = L"Windows Registry Editor Version 5.00\r\n";
};

}  // namespace virtual_pc
