// The control interface's events: which sinks receive them, which may refuse them, and what happens
// when a client or the server ends during an event.

#include "tests/agent_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

TEST_F(AgentTest, SinksGetTheFirstFreeSlotAndItsNumberAsCookie)
{
    AgentClient& client = Client();
    for (const wchar_t* sink : {L"A", L"B", L"C", L"D", L"E"}) {
        EXPECT_EQ(client.Advise(sink, SinkReaction::none).Words(),
                  std::to_wstring(sink[0] - L'A' + 1));
    }
    EXPECT_EQ(client.Unadvise(L"B").Words(), L"ok");
    EXPECT_EQ(client.Unadvise(L"D").Words(), L"ok");
    EXPECT_EQ(client.Advise(L"F", SinkReaction::none).Words(), L"2");
    EXPECT_EQ(client.Advise(L"G", SinkReaction::none).Words(), L"4");
    EXPECT_EQ(client.Advise(L"H", SinkReaction::none).Words(), L"6");
    client.PutProperty(L"NeverSleepEventCode", 1);
    EXPECT_EQ(client.Heard(L"B"), L"");
    EXPECT_EQ(client.Heard(L"H"), L"1");
}

TEST_F(AgentTest, AConnectionPointListsItsSinksAndRefusesWhatIsNone)
{
    RunInApartment([&] {
        OwnedInterface<IConnectionPointContainer> container;
        ASSERT_EQ(CoCreateInstance(CLSID_HOLVAgentApi, nullptr, CLSCTX_LOCAL_SERVER,
                                   IID_IConnectionPointContainer,
                                   reinterpret_cast<void**>(container.Receive())),
                  S_OK);
        OwnedInterface<IConnectionPoint> point;
        EXPECT_EQ(container.Get()->FindConnectionPoint(IID_IDispatch, point.Receive()),
                  CONNECT_E_NOCONNECTION);
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

        DWORD cookie = 7;
        EXPECT_EQ(point.Get()->Advise(container.Get(), &cookie), CONNECT_E_CANNOTCONNECT);
        EXPECT_EQ(cookie, 0u);
        EXPECT_EQ(point.Get()->Unadvise(1), CONNECT_E_NOCONNECTION);
        OwnedInterface<IEnumConnections> connections;
        EXPECT_EQ(point.Get()->EnumConnections(connections.Receive()), S_OK);
        CONNECTDATA connection{};
        EXPECT_EQ(connections.Get()->Next(1, &connection, nullptr), S_FALSE);
    });
}

TEST_F(AgentTest, AnEventCodeIsTakenUnlessASinkCancelsIt)
{
    AgentClient& client = Client();
    const auto code = [&] { return client.GetProperty(L"NeverSleepEventCode").Words(); };
    const auto put = [&](LONG value) {
        return client.PutProperty(L"NeverSleepEventCode", value).Words();
    };
    EXPECT_EQ(code(), L"0") << "before the first";
    EXPECT_EQ(put(1), L"ok");
    EXPECT_EQ(code(), L"1") << "with nobody to ask";
    client.Advise(L"listens", SinkReaction::none);
    EXPECT_EQ(put(-5), L"ok");
    EXPECT_EQ(code(), L"-5") << "any number";
    client.Advise(L"cancels", SinkReaction::cancel);
    client.Advise(L"after", SinkReaction::none);
    EXPECT_EQ(put(2), L"ok");
    EXPECT_EQ(code(), L"-5");
    EXPECT_EQ(client.Heard(L"after"), L"2") << "those after it still hear";
    client.Advise(L"clears", SinkReaction::clear);
    put(3);
    EXPECT_EQ(code(), L"3") << "what one refuses another may let pass";
    client.Unadvise(L"cancels");
    client.Advise(L"fails", SinkReaction::fail);
    client.Advise(L"calls back", SinkReaction::call_back);
    client.Advise(L"leaves", SinkReaction::leave);
    EXPECT_EQ(put(4), L"ok");
    EXPECT_EQ(code(), L"4") << "a failing sink stops nobody";
    EXPECT_EQ(put(5), L"ok");
    EXPECT_EQ(client.Heard(L"calls back"), L"4 5");
    EXPECT_EQ(client.Heard(L"leaves"), L"4");
    EXPECT_EQ(client.Heard(L"listens"), L"-5 2 3 4 5");
    EXPECT_EQ(client.Unadvise(L"leaves").Words(), L"0x80040200");
}

TEST_F(AgentTest, EachClientHearsItsOwnObjectAndAllShareTheSettings)
{
    Client(L"One").Advise(L"A", SinkReaction::none);
    Client(L"Two").Advise(L"A", SinkReaction::none);
    Client(L"One").PutProperty(L"NeverSleepEventCode", 1);
    EXPECT_EQ(Client(L"One").Heard(L"A"), L"1");
    EXPECT_EQ(Client(L"Two").Heard(L"A"), L"");
    EXPECT_EQ(Client(L"Two").GetProperty(L"NeverSleepEventCode").Words(), L"0");
    Client(L"One").Call(L"SetNeverSleepParam", {1, 1});
    EXPECT_EQ(Client(L"Two").Call(L"GetNeverSleepParam", {1}, {VT_I4}).Words(), L"1");
    EXPECT_EQ(module.locks, 2);
}

// --- Ends in the middle ---

TEST_F(AgentTest, AClientThatGoesAwayLeavesNothingBehind)
{
    left_open_is_expected = true;  // in the program that is ended
    module.ends_with_clients = true;
    Client(L"Goes").Advise(L"A", SinkReaction::none);
    Process* const server = Server();
    ASSERT_TRUE(server);
    Client(L"Stays").Advise(L"A", SinkReaction::none);
    clients[L"Goes"]->End();
    EXPECT_EQ(module.locks, 1) << "its object is gone";
    EXPECT_EQ(Client(L"Stays").PutProperty(L"NeverSleepEventCode", 1).Words(), L"ok");
    EXPECT_EQ(Client(L"Stays").Heard(L"A"), L"1");
    Client(L"Stays").Release();
    pc.RunUntilEnd(*server);
    EXPECT_TRUE(server->left_open().empty());
    EXPECT_EQ(Client(L"Stays").GetProperty(L"NeverSleepEventCode").Words(), L"0")
        << "the next call starts the program anew";
    EXPECT_NE(Server(), server);
}

TEST_F(AgentTest, AServerThatGoesAwayIsAnErrorForItsClients)
{
    left_open_is_expected = true;  // in the server that is ended
    Client().GetProperty(L"NeverSleepEventCode");
    {
        const Hold hold(pc);
        Server()->Terminate(1);
    }
    pc.Settle();
    EXPECT_EQ(Client().PutProperty(L"NeverSleepEventCode", 1).Words(), L"0x800706BA");
    module.locks = 0;  // the objects went with the process, as its memory does
    EXPECT_EQ(Client().PutProperty(L"NeverSleepEventCode", 1).Words(), L"ok");
    StopServer();  // this one in good order
    EXPECT_EQ(module.locks, 0);
    EXPECT_EQ(Client().PutProperty(L"NeverSleepEventCode", 1).Words(), L"0x800706BA");
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

// The journal is read until the last program has ended.

}  // namespace
