// The control interface's connection points, and what happens when a client or the server ends.
// scenarios/sinks.pc tells which sinks receive an event, and which may refuse it.

#include "tests/agent_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

TEST_F(AgentTest, AConnectionPointListsItsSinksAndRefusesWhatIsNone)
{
    RunInApartment([&] {
        OwnedInterface<IConnectionPointContainer> container;
        ASSERT_EQ(CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_LOCAL_SERVER,
                                   IID_IConnectionPointContainer,
                                   reinterpret_cast<void**>(container.Receive())),
                  S_OK);
        OwnedInterface<IConnectionPoint> point;
        OwnedInterface<IEnumConnectionPoints> points;
        ASSERT_EQ(container.Get()->EnumConnectionPoints(points.Receive()), S_OK);
        IConnectionPoint* listed[2] = {};
        ULONG given = 0;
        EXPECT_EQ(points.Get()->Next(2, listed, &given), S_FALSE);
        ASSERT_EQ(given, 1u);
        point.Reset(listed[0]);
        IID id{};
        EXPECT_EQ(point.Get()->GetConnectionInterface(&id), S_OK);
        EXPECT_TRUE(id == DIID__HOLVAgentSinkEvent);
        OwnedInterface<IConnectionPointContainer> whose;
        EXPECT_EQ(point.Get()->GetConnectionPointContainer(whose.Receive()), S_OK);
        EXPECT_EQ(whose.Get(), container.Get());

        DWORD cookie = 0;
        EXPECT_EQ(point.Get()->Advise(container.Get(), &cookie), CONNECT_E_CANNOTCONNECT);
        OwnedInterface<IEnumConnections> connections;
        EXPECT_EQ(point.Get()->EnumConnections(connections.Receive()), S_OK);
        CONNECTDATA connection{};
        EXPECT_EQ(connections.Get()->Next(1, &connection, nullptr), S_FALSE);
    });
}

// Called directly: on the way between apartments, every place is cleared in any case.
TEST_F(AgentTest, WhatIsRefusedClearsItsPlaceAndSinksAreListedByTheirCookies)
{
    RunInApartment([&] {
        const OwnedInterface<IHOLVAgent> object = MakeObject();
        OwnedInterface<IConnectionPointContainer> container, whose;
        object.Get()->QueryInterface(IID_IConnectionPointContainer,
                                     reinterpret_cast<void**>(container.Receive()));
        ConnectionPoint point(*container.Get(), IID_IDispatch);  // the object may be its sink
        void* places[] = {&pc, &pc, &pc, &pc};
        EXPECT_EQ(object.Get()->QueryInterface(IID_IClassFactory, &places[0]), E_NOINTERFACE);
        EXPECT_EQ(point.QueryInterface(IID_IClassFactory, &places[1]), E_NOINTERFACE);
        EXPECT_EQ(container.Get()->FindConnectionPoint(
                      IID_IDispatch, reinterpret_cast<IConnectionPoint**>(&places[2])),
                  CONNECT_E_NOCONNECTION);
        pc.faults.Set("LoadRegTypeLib", {});
        EXPECT_EQ(object.Get()->GetTypeInfo(0, 0, reinterpret_cast<ITypeInfo**>(&places[3])),
                  E_FAIL);
        for (const void* place : places) EXPECT_EQ(place, nullptr);
        DWORD cookie = 7;
        EXPECT_EQ(point.Advise(nullptr, &cookie), E_POINTER);
        EXPECT_EQ(cookie, 0u);
        EXPECT_EQ(point.Advise(container.Get(), nullptr), E_POINTER);
        EXPECT_EQ(point.GetConnectionPointContainer(whose.Receive()), S_OK);
        EXPECT_EQ(whose.Detach()->Release(), 2u) << "it was a reference of the caller's own";

        for (int i = 0; i < 5; ++i) EXPECT_EQ(point.Advise(object.Get(), &cookie), S_OK);
        EXPECT_EQ(point.slots(), 8u);
        EXPECT_EQ(point.Unadvise(0), CONNECT_E_NOCONNECTION);
        for (const DWORD leaves : {1, 3}) EXPECT_EQ(point.Unadvise(leaves), S_OK);
        EXPECT_EQ(point.Unadvise(3), CONNECT_E_NOCONNECTION) << "it has left";
        EXPECT_EQ(point.Advise(object.Get(), &cookie), S_OK);
        OwnedInterface<IEnumConnections> connections;
        EXPECT_EQ(point.EnumConnections(connections.Receive()), S_OK);
        std::vector<DWORD> cookies;
        for (CONNECTDATA listed{}; connections.Get()->Next(1, &listed, nullptr) == S_OK;) {
            listed.pUnk->Release();
            cookies.push_back(listed.dwCookie);
        }
        EXPECT_EQ(cookies, (std::vector<DWORD>{1, 2, 4, 5}));
    });
}

TEST_F(AgentTest, ASinkWhoseProgramIsGoneFailsAndStopsNobody)
{
    left_open_is_expected = true;
    // A sink of one program, connected to an object that another one holds as well.
    AgentClient& client = Client();
    client.Advise(L"A", SinkReaction::none);
    OwnedInterface<IHOLVAgent> own;
    RunInApartment([&] {
        OwnedInterface<IDispatch> object;
        ASSERT_EQ(CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_ALL, IID_IDispatch,
                                   reinterpret_cast<void**>(object.Receive())),
                  S_OK);
        pc.faults.Set("IDispatch::Invoke", {.error = 0x800706BE, .first = 2});
        EXPECT_EQ(Call(*object.Get(), 5, DISPATCH_PROPERTYPUT, {Number(1)}, nullptr,
                       {DISPID_PROPERTYPUT}),
                  S_OK);
    });
    pc.faults.Set("IDispatch::Invoke", {.error = 0x800706BE, .first = 2});
    EXPECT_EQ(client.PutProperty(L"NeverSleepEventCode", 1).Words(), L"ok");
    EXPECT_EQ(client.Heard(L"A"), L"") << "it could not be reached";
    EXPECT_EQ(client.GetProperty(L"NeverSleepEventCode").Words(), L"1");
}

}  // namespace
