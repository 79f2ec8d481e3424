// The registry: values and .reg files.

#include "pc/commands.h"

#include <filesystem>
#include "platform/virtual/base/text.h"
#include "platform/virtual/registry/registry.h"

using namespace virtual_pc;

namespace {

RegistryValue ValueOf(const ScriptLine& line, std::string_view type, std::string_view text)
{
    switch (ChoiceOf(line, type, {"dword", "string", "expand", "binary"})) {
        case 0:
            return RegistryValue::Dword(NumberOf(line, text));
        case 1:
            return RegistryValue::String(FromUtf8(text));
        case 2:
            return RegistryValue::String(FromUtf8(text), REG_EXPAND_SZ);
        default:
            break;
    }
    RegistryValue value{REG_BINARY, {}};
    if (text.size() % 2 != 0) {
        throw ScriptError(line, "\"" + std::string(text) + "\" is no row of bytes, like 01ff");
    }
    for (std::size_t at = 0; at < text.size(); at += 2) {
        value.data.push_back(
            static_cast<BYTE>(NumberOf(line, "0x" + std::string(text.substr(at, 2)))));
    }
    return value;
}

// "" and "@" both name the default value.
std::wstring NameOf(const std::string& text) { return text == "@" ? L"" : FromUtf8(text); }

Action Set(const ScriptLine& line, const Arguments& a)
{
    return [key = KeyOf(line, a[0]), name = NameOf(a[1]), value = ValueOf(line, a[2], a[3])](
               ScriptContext& context) { context.pc.registry.Set(key, name, value); };
}

Action DeleteKeyOrValue(const ScriptLine& line, const Arguments& a)
{
    return [line, key = KeyOf(line, a[0]), name = a[1],
            all = line.words.size() == 3](ScriptContext& context) {
        const bool deleted = all ? context.pc.registry.DeleteKey(key)
                                 : context.pc.registry.DeleteValue(key, NameOf(name));
        if (!deleted) throw ExpectationFailed(line, "there is no " + ToUtf8(key) + " " + name);
    };
}

// The path of a file is relative to the script's folder.
std::filesystem::path FileOf(const ScriptLine& line, const std::string& name)
{
    return line.script.parent_path() / name;
}

Action Import(const ScriptLine& line, const Arguments& a)
{
    return [line, file = FileOf(line, a[0])](ScriptContext& context) {
        try {
            context.pc.registry.Import(file);
        } catch (const std::runtime_error& error) {
            throw ScriptError(line, error.what());
        }
    };
}

Action Export(const ScriptLine& line, const Arguments& a)
{
    return [line, key = KeyOf(line, a[0]), file = FileOf(line, a[1])](ScriptContext& context) {
        try {
            context.pc.registry.Export(file, key);
        } catch (const std::runtime_error& error) {
            throw ExpectationFailed(line, error.what());
        }
    };
}

}  // namespace

std::vector<Command> RegistryCommands()
{
    return {
        {"reg set KEY NAME TYPE VALUE", "writes a value; TYPE: dword, string, expand, binary", Set},
        {"reg delete KEY [NAME]", "deletes a key with all below it, or one value",
         DeleteKeyOrValue},
        {"reg import FILE", "applies a .reg file, whole or not at all", Import},
        {"reg export KEY FILE", "writes everything below a key as a .reg file", Export},
    };
}
