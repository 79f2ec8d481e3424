// Type libraries, read from the interface descriptions that they are built from.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/automation.h"
#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/names.h"

namespace virtual_pc {

// The type of a parameter: an enumeration is VT_I4, and `name` is the enumeration's.
struct ParameterType
{
    VARTYPE type = VT_EMPTY;
    bool pointer = false;
    std::wstring name = {};
};

struct Parameter
{
    std::wstring name;  // may be empty
    ParameterType type;
    bool in = false;
    bool out = false;
    bool retval = false;
};

struct Member
{
    std::wstring name;
    DISPID id = DISPID_UNKNOWN;
    WORD kind = DISPATCH_METHOD;  // or DISPATCH_PROPERTYGET, DISPATCH_PROPERTYPUT
    int slot = -1;                // none in a dispatch interface
    ParameterType result;
    std::vector<Parameter> parameters;
    std::wstring help;
};

struct NamedNumber
{
    std::wstring name;
    LONG value;
};

// An interface of a class.
struct ClassInterface
{
    std::wstring name;
    bool is_default = false;
    bool is_source = false;
};

struct TypeDescription
{
    enum class Kind
    {
        enumeration,
        dispatch,
        coclass,
        interface,
    };

    Kind kind;
    std::wstring name;
    GUID guid{};
    std::wstring help;
    std::vector<std::wstring> flags;  // attributes without an argument: "dual" and the like
    std::vector<NamedNumber> numbers;
    std::vector<Member> members;
    std::vector<ClassInterface> interfaces;
    std::wstring base;

    bool Has(std::wstring_view flag) const;
};

struct TypeLibrary
{
    std::wstring name;
    GUID guid{};
    WORD major = 0;
    WORD minor = 0;
    LCID locale = 0;
    std::wstring help;
    std::map<GUID, std::wstring, GuidLess> custom;
    std::vector<std::wstring> imports;
    std::vector<TypeDescription> types;

    // Null when there is none.
    const TypeDescription* Find(const GUID& type) const;
    const TypeDescription* Find(std::wstring_view type) const;
};

// Reads a description. Throws std::runtime_error "line N: what is wrong".
TypeLibrary ReadTypeLibrary(std::string_view text);

class Machine;

// Which files carry a type library.
class TypeLibraries
{
public:
    // Gives the program or library at `path` on the PC the type library that a file on the host
    // describes. Throws std::runtime_error.
    void Add(std::wstring_view path, const std::string& description);
    // With the machine held. Null for none.
    std::shared_ptr<const TypeLibrary> Find(const std::wstring& path) const;

private:
    std::map<std::wstring, std::shared_ptr<const TypeLibrary>, NoCase> m_libraries;
};

}  // namespace virtual_pc
