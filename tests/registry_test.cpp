// The registry, through the platform's functions, the driver's operations and .reg files.

#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/owned.h"
#include "platform/virtual/registry/registry.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;
namespace fs = std::filesystem;

namespace {

class RegistryTest : public VirtualPcTest
{
protected:
    RegistryTest()
    {
        m_folder = fs::temp_directory_path() / ("holv-reg-" + std::to_string(getpid()));
        fs::create_directories(m_folder);
    }
    ~RegistryTest() override { fs::remove_all(m_folder); }

    fs::path File(const std::string& text)
    {
        fs::path file = m_folder / "a.reg";
        std::ofstream(file, std::ios::binary) << text;
        return file;
    }

    fs::path m_folder;
};

TEST_F(RegistryTest, KeysAreFoundInAnyLetterCaseAndKeepTheirSpelling)
{
    pc.registry.SetDword(LR"(HKLM\Software\Orbeq\Holv)", L"Level", 7);
    RunAsProcess([] {
        OwnedKey key;
        EXPECT_EQ(RegCreateKeyW(HKEY_LOCAL_MACHINE, LR"(SOFTWARE\ORBEQ)", key.Receive()),
                  ERROR_SUCCESS);
        DWORD read = 0;
        DWORD size = sizeof(read);
        EXPECT_EQ(RegGetValueW(key.Get(), L"hOLV", L"level", RRF_RT_DWORD, nullptr, &read, &size),
                  ERROR_SUCCESS);
        EXPECT_EQ(read, 7u);
        EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
    });
    const Hold hold(pc);
    EXPECT_EQ(pc.registry.FindKey(Registry::Parse(LR"(hklm\software)"))->keys.find(L"ORBEQ")->first,
              L"Orbeq");
}

TEST_F(RegistryTest, ATextWithVariablesIsReadAsTheTextThatTheyMake)
{
    const struct
    {
        const wchar_t* kept;
        DWORD flags;
        LSTATUS result;
        const wchar_t* read;
        DWORD type;
    } cases[] = {
        {LR"(%SYSTEMroot%\a%)", RRF_RT_REG_SZ, ERROR_SUCCESS, LR"(C:\Windows\a%)", REG_SZ},
        {L"%ProgramData%%none%", RRF_RT_ANY, ERROR_SUCCESS, LR"(C:\ProgramData%none%)", REG_SZ},
        {L"%windir%", RRF_RT_REG_SZ | RRF_NOEXPAND, ERROR_UNSUPPORTED_TYPE, L"%windir%",
         REG_EXPAND_SZ},
        {L"%windir%", RRF_RT_ANY | RRF_NOEXPAND, ERROR_SUCCESS, L"%windir%", REG_EXPAND_SZ},
    };
    RunAsProcess([&] {
        for (const auto& c : cases) {
            pc.registry.Set(LR"(HKLM\A)", L"v", RegistryValue::String(c.kept, REG_EXPAND_SZ));
            wchar_t text[40] = L"";
            DWORD size = sizeof(text);
            DWORD type = 0;
            EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, L"A", L"v", c.flags, &type, text, &size),
                      c.result);
            EXPECT_STREQ(text, c.read);
            EXPECT_EQ(type, c.type);
        }
    });
}

TEST_F(RegistryTest, ClassesAreTheUsersOverTheMachines)
{
    pc.registry.SetString(LR"(HKLM\Software\Classes\One)", L"", L"machine");
    pc.registry.SetString(LR"(HKLM\Software\Classes\Two)", L"", L"machine");
    pc.registry.SetString(LR"(HKCU\Software\Classes\Two)", L"", L"user");
    EXPECT_EQ(pc.registry.GetString(LR"(HKCR\One)", L""), L"machine");
    EXPECT_EQ(pc.registry.GetString(LR"(HKCR\Two)", L""), L"user");
    pc.registry.SetString(LR"(HKCR\Three)", L"", L"new");
    EXPECT_TRUE(pc.registry.HasKey(LR"(HKLM\Software\Classes\Three)"));
    pc.registry.SetString(LR"(HKCR\Two\Sub)", L"", L"new");
    EXPECT_TRUE(pc.registry.HasKey(LR"(HKCU\Software\Classes\Two\Sub)"));
}

TEST_F(RegistryTest, WhatIsExportedComesBackTheSame)
{
    const std::wstring key = LR"(HKLM\Software\Classes\Round "trip")", below = key + LR"(\Below)";
    pc.registry.SetString(key, L"", L"default \\ \"quoted\" \u00e9\u20ac\U0001F50A");
    pc.registry.SetString(key, L"two\nlines = \"x\"", L"a\r\nb");
    pc.registry.SetDword(key, L"number", 0xDEADBEEF);
    std::vector<BYTE> bytes(200);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<BYTE>(i);
    pc.registry.Set(key, L"bytes", {REG_BINARY, bytes});
    pc.registry.Set(key, L"no bytes", {REG_BINARY, {}});
    pc.registry.Set(key, L"expand", RegistryValue::String(L"%a%\\b", REG_EXPAND_SZ));
    pc.registry.Set(below, L"odd", {REG_QWORD, std::vector<BYTE>(8, 1)});
    pc.registry.DeleteValue(key, L"two\nlines = \"x\"");  // a name with a line end fits no file

    const fs::path file = m_folder / "out.reg";
    pc.registry.Export(file, LR"(HKLM\Software)");
    const auto values = [&](const std::wstring& of) {
        const Hold hold(pc);
        std::vector<std::tuple<std::wstring, DWORD, std::vector<BYTE>>> all;
        for (const auto& [name, value] : pc.registry.FindKey(Registry::Parse(of))->values) {
            all.emplace_back(name, value.type, value.data);
        }
        return all;
    };
    const auto before = values(key), before_below = values(below);
    pc.registry.DeleteKey(LR"(HKLM\Software)");
    pc.registry.Import(file);
    ASSERT_TRUE(pc.registry.HasKey(below));
    EXPECT_EQ(values(key), before);
    EXPECT_EQ(values(below), before_below);
}

TEST_F(RegistryTest, FilesMayBeUtf8WithContinuedLinesDeletionsAndComments)
{
    pc.registry.SetDword(LR"(HKLM\Old)", L"n", 1);
    pc.registry.SetDword(LR"(HKLM\A)", L"gone", 1);
    pc.registry.Import(
        File("\xEF\xBB\xBFWindows Registry Editor Version 5.00\r\n"
             "; a comment\r\n\r\n[-HKEY_LOCAL_MACHINE\\Old]\r\n"
             "[HKEY_LOCAL_MACHINE\\A]\r\n\"gone\"=-\r\n@=\"d\xC3\xA9j\xC3\xA0\"\r\n"
             "\"x\"=hex(2):61,00,\\\r\n  62,00,\\\r\n  00,00\r\n"
             "\"p\"=\"C:\\\\x\\\\\"\r\n"));
    EXPECT_FALSE(pc.registry.HasKey(LR"(HKLM\Old)"));
    EXPECT_FALSE(pc.registry.Get(LR"(HKLM\A)", L"gone"));
    EXPECT_EQ(pc.registry.GetString(LR"(HKLM\A)", L""), L"d\u00e9j\u00e0");
    EXPECT_EQ(pc.registry.GetString(LR"(HKLM\A)", L"x"), L"ab");
    EXPECT_EQ(pc.registry.GetString(LR"(HKLM\A)", L"p"), LR"(C:\x\)");
}

TEST_F(RegistryTest, ABadFileIsNamedWithItsLineAndNothingOfItIsApplied)
{
    const std::string head = "Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\New]\n";
    const std::pair<std::string, const char*> cases[] = {
        {"REGEDIT4\n", ":1: the first line is not"},
        {head + "[HKEY_LOCAL_MACHINE\\A\n",
         ":3: \"[HKEY_LOCAL_MACHINE\\A\" has no closing bracket"},
        {head + "[HKEY_NOWHERE\\A]\n", ":3: \"HKEY_NOWHERE\\A\" does not begin with"},
        {head + "\n\"a\"=dword:123456789\n", ":4: \"dword:123456789\" is no number"},
        {head + "\"a\"=hex:1,zz\n", ":3: \"zz\" is no byte"},
        {head + "\"a\"=number:1\n", ":3: \"number:1\" is no text, dword, hex"},
        {head + "\"a=1\n", ":3: the quotation mark at \"a=1 is never closed"},
        {head + "\"a\" \"b\"\n", ":3: \"=\" is expected"},
        {head + "plain\n", ":3: \"plain\" is neither a key nor a value"},
        {head + "\"x\"=hex:01,\\\n02,\\\n03\n\"a\"=\"b\"c\n", ":6: \"c\" follows the text"},
        {"Windows Registry Editor Version 5.00\n\"a\"=dword:1\n",
         ":2: \"\"a\"=dword:1\" belongs to"},
        {head + "[-HKEY_LOCAL_MACHINE]\n", ":3: a root cannot be deleted"},
    };
    for (const auto& [text, says] : cases) {
        try {
            pc.registry.Import(File(text));
            ADD_FAILURE() << text;
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find(std::string("a.reg") + says),
                      std::string::npos)
                << error.what() << "\nexpected: " << says;
        }
        EXPECT_FALSE(pc.registry.HasKey(LR"(HKLM\New)"));
    }
}

}  // namespace
