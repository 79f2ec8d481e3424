// How other processes activate the control interface, also many at once, and what happens when a
// call fails.

#include <random>
#include <sstream>

#include "pc/commands.h"
#include "tests/agent_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

class AgentScriptTest : public AgentTest
{
protected:
    std::ostringstream out;
    ServiceView view{pc};
    Story story{pc, out};

    std::string Told()
    {
        story.Flush();
        return out.str();
    }
};

TEST_F(AgentScriptTest, ScriptsUseTheInterfaceAndTellWhatCameOfIt)
{
    const Image image;
    {
        ScriptContext stage{pc, image, view, story, out, {}};
        for (const char* line : {
                 "client set E_AUDIO 1",
                 "client get E_AUDIO",
                 "expect client answer 1",
                 "client advise A cancels",
                 "client use Second",
                 "client advise A",
                 "client event 1",
                 "expect client heard A 1",
                 "client quit",
                 "client use UI",
                 "client event 2",
                 "client event",
                 "expect client answer 0",
                 "client unadvise A",
                 "client unadvise A",
                 "expect client answer 0x80040200",
                 "client interval 1320 360",
                 "client status",
                 "expect client answer \"1320 360\"",
                 "client quit",
             }) {
            Bind(ReadLine(line, {}, 1))(stage);
        }
        EXPECT_THROW(Bind(ReadLine("client set E_NONE 1", {}, 1)), ScriptError);
        EXPECT_THROW(Bind(ReadLine("client advise A explodes", {}, 1)), ScriptError);
        Bind(ReadLine("client version", {}, 1))(stage);
        EXPECT_THROW(Bind(ReadLine("expect client answer 2", {}, 1))(stage), ExpectationFailed);
        Bind(ReadLine("client quit", {}, 1))(stage);
    }
    for (const char* told : {
             "UI: SetNeverSleepParam 1 1\n",
             "Second: sink A hears of event code 1\n",
             "UI: sink A hears of event code 2\n",
             "UI: unadvise A fails with 0x80040200\n",
             "UI: GetNeverSleepApiVersion gives 1,1,70,537\n",
             "E_AUDIO  1\n",
         }) {
        EXPECT_NE(Told().find(told), std::string::npos) << told;
    }
}

// --- Activation ---

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

// --- Everything at once ---

class AgentStorm : public AgentTest, public ::testing::WithParamInterface<Machine::Options>
{
protected:
    AgentStorm() : AgentTest(GetParam()) {}

    // A program that calls the interface in an order of its own, and hears its own events.
    void Use(unsigned number)
    {
        std::mt19937 random(static_cast<unsigned>(GetParam().seed) * 100 + number);
        CoInitializeEx(nullptr, number % 2 ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
        for (int life = 0; life < 4; ++life) {
            OwnedInterface<IDispatch> object;
            EXPECT_EQ(CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_LOCAL_SERVER,
                                       IID_IDispatch, reinterpret_cast<void**>(object.Receive())),
                      S_OK);
            if (!object) break;
            OwnedInterface<IConnectionPointContainer> container;
            OwnedInterface<IConnectionPoint> point;
            object.Get()->QueryInterface(IID_IConnectionPointContainer,
                                         reinterpret_cast<void**>(container.Receive()));
            container.Get()->FindConnectionPoint(DIID__HOLVAgentSinkEvent, point.Receive());
            StormSink* const sink = new StormSink(*object.Get());
            DWORD cookie = 0;
            EXPECT_EQ(point.Get()->Advise(sink, &cookie), S_OK);
            EXPECT_EQ(cookie, 1u) << "nobody else's sinks";
            for (int i = 0; i < 10; ++i) {
                const LONG feature = static_cast<LONG>(random() % 8);
                const LONG value = static_cast<LONG>(random() % 2);
                EXPECT_EQ(Call(*object.Get(), 1, DISPATCH_METHOD, {Number(value), Number(feature)}),
                          S_OK);
                EXPECT_EQ(Call(*object.Get(), 5, DISPATCH_PROPERTYPUT, {Number(i)}, nullptr,
                               {DISPID_PROPERTYPUT}),
                          S_OK);
                VARIANT code{};
                EXPECT_EQ(Call(*object.Get(), 5, DISPATCH_PROPERTYGET, {}, &code), S_OK);
                EXPECT_EQ(code.lVal, i) << "the object's own code";
            }
            EXPECT_EQ(sink->heard, 10);
            EXPECT_EQ(point.Get()->Unadvise(cookie), S_OK);
            sink->Release();
        }
        CoUninitialize();
    }

private:
    // Calls back into the object that it hears from.
    class StormSink final : public CountedObject<IDispatch, IID_IDispatch, StormSink>
    {
    public:
        explicit StormSink(IDispatch& object) : m_object(object) {}
        HRESULT QueryInterface(REFIID id, void** object) override
        {
            return CountedObject::QueryInterface(
                IsEqualIID(id, DIID__HOLVAgentSinkEvent) ? IID_IDispatch : id, object);
        }
        HRESULT GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
        HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
        HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
        HRESULT Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                       UINT*) override
        {
            ++heard;
            LONG value = 0;
            return Call(m_object, 4, DISPATCH_METHOD, {Place(VT_I4, &value), Number(E_AUDIO)});
        }
        std::atomic<int> heard = 0;

    private:
        IDispatch& m_object;
    };
};

TEST_P(AgentStorm, ClientsOfAllKindsCallAndHearAtOnce)
{
    SCOPED_TRACE(LifeTrace(GetParam()));
    std::array<Process*, 4> users{};
    for (int i = 0; Process * &user : users) {
        user = &StartUser(std::to_wstring(i), [this, i] { Use(static_cast<unsigned>(i)); });
        ++i;
    }
    for (Process* user : users) pc.RunUntilEnd(*user);
    pc.Settle();
    EXPECT_EQ(module.locks, 0);
    Process* const server = Server();
    StopServer();
    EXPECT_TRUE(server->left_open().empty());
}

INSTANTIATE_TEST_SUITE_P(Lives, AgentStorm, ::testing::ValuesIn(LivesOf({.seeds = 8, .free = 3})),
                         [](const auto& life) { return std::to_string(life.index); });

}  // namespace
