// How other processes activate the control interface, and what happens when a call fails.

#include "platform/virtual/com/marshal.h"
#include "tests/agent_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

TEST_F(AgentTest, WhatCannotBeActivatedSaysWhy)
{
    const auto answer = [&] {
        std::wstring words = Client().GetProperty(L"NeverSleepEventCode").Words();
        Client().Release();
        return words;
    };
    const std::wstring app_key = LR"(HKCR\AppID\)" + std::wstring(kAppId);
    std::wstring asked;
    pc.com.start_service = [&](const std::wstring& service) {
        asked = service;
        return static_cast<HRESULT>(0x80070422u);
    };
    pc.registry.SetString(app_key, L"LocalService", L"HOLVService");
    EXPECT_EQ(answer(), L"0x80070422") << "the service's own failure";
    EXPECT_EQ(asked, L"HOLVService");
    pc.com.start_service = [&](const std::wstring&) {
        pc.StartInstalled(Image{}.path, L"HOLVService.exe");
        return S_OK;
    };
    EXPECT_EQ(answer(), L"0") << "and when it starts, the class is served";
    StopServer();
    pc.registry.DeleteKey(app_key);

    pc.Install(Image{}.path, [] { return 3; });
    EXPECT_EQ(answer(), L"0x80080005") << "a program that ends at once";
    pc.Install(Image{}.path, [] {
        Sleep(200'000);
        return 0;
    });
    const Instant before = pc.now();
    EXPECT_EQ(answer(), L"0x80080005") << "one that offers nothing";
    EXPECT_EQ(pc.now() - before, 120s);
    pc.RunFor(100s);
    pc.registry.SetString(LR"(HKCR\CLSID\)" + std::wstring(kClassId) + LR"(\LocalServer32)", L"",
                          LR"(C:\Nowhere\None.exe)");
    EXPECT_EQ(answer(), L"0x80080005") << "one that is not there";
    pc.registry.DeleteKey(LR"(HKCR\CLSID\)" + std::wstring(kClassId));
    EXPECT_EQ(answer(), L"0x80040154");
    pc.registry.DeleteKey(LR"(HKCR\HOLVAgentLib.HOLVAgentLib)");
    EXPECT_EQ(answer(), L"0x800401F3");
}

TEST_F(AgentTest, TheClassKeepsTheProgramForAClientThatLocksIt)
{
    RunInApartment([&] {
        EXPECT_EQ(RegisterAgentClassObjects(CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE), S_OK);
        std::optional<ExportedInterface> serving;
        {
            const Hold hold(pc);
            serving = pc.com.Serving(CLSID_HOLVAgentApi);
        }
        OwnedInterface<IClassFactory> factory;
        EXPECT_EQ(ImportInterface(*serving, reinterpret_cast<void**>(factory.Receive())), S_OK);
        factory.Get()->LockServer(TRUE);
        EXPECT_EQ(module.locks, 1);
        factory.Get()->LockServer(FALSE);
        EXPECT_EQ(module.locks, 0);
        EXPECT_EQ(RevokeAgentClassObjects(), S_OK);
        EXPECT_EQ(RevokeAgentClassObjects(), S_OK) << "nothing is left to revoke";
    });
}

TEST_F(AgentTest, EachCallThatFailsLeavesNothingBehind)
{
    const auto life = [&] {
        AgentClient& client = Client();
        client.Call(L"GetNeverSleepApiVersion", {}, {VT_BSTR});
        client.Advise(L"A", SinkReaction::cancel);
        client.Advise(L"B", SinkReaction::call_back);
        client.PutProperty(L"NeverSleepEventCode", 1);
        client.Call(L"SetNeverSleepParam", {1, 1});
        client.Unadvise(L"A");
        client.Release();
    };
    life();
    for (std::uint64_t n = 1;; ++n) {
        pc.faults.FailNth(n);
        life();
        const Function* failed = pc.faults.failed();
        pc.faults.FailNth(0);
        if (!failed) break;
        EXPECT_EQ(module.locks, 0) << failed->name() << " failed, call " << n;
        if (!Server()) continue;  // its loop failed, and it ended
    }
}

}  // namespace
