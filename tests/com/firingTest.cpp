// The event proxy and the client's sinks.
#include "tests/com/ComWorld.h"

#include "beanframe/BeanFrame.h"

#include <gmock/gmock.h>

#include <array>

using testing::ElementsAre;
using testing::IsEmpty;

using Call = RecordingSink::Call;

class FiringTest : public ComWorld
{
protected:
    void SetUp() override
    {
        object = create();
        stream.clear();
    }
    void TearDown() override { object.Release(); }

    HRESULT fire(const wchar_t* text = L"text") { return object->Fire_customEvent(CComBSTR(text)); }

    // Before the object: they outlive it.
    RecordingSink first;
    RecordingSink second;
    RecordingSink third;
    CComPtr<Object> object;
};

TEST_F(FiringTest, WithoutSinkIsNothing)
{
    EXPECT_EQ(fire(), S_OK);
    EXPECT_THAT(stream.lines(), testing::SizeIs(0));
}

TEST_F(FiringTest, EachEventHasItsNumberAndOneText)
{
    advise(object, first);
    EXPECT_EQ(object->Fire_testBridgeEvent(CComBSTR(L"bridge")), S_OK);
    EXPECT_EQ(object->Fire_controlReady(CComBSTR(L"ready")), S_OK);
    EXPECT_EQ(object->Fire_customEvent(CComBSTR(L"custom")), S_OK);
    EXPECT_THAT(first.calls, ElementsAre(Call{2, "bridge"}, Call{3, "ready"}, Call{4, "custom"}));
}

TEST_F(FiringTest, EachSinkGetsACopyOfTheText)
{
    advise(object, first);
    advise(object, second);
    const CComBSTR text(L"shared");
    BSTR seenByFirst = nullptr;
    first.onCall = [&] {
        seenByFirst = first.lastText;
        EXPECT_NE(first.lastText, text.m_str);
        first.lastText[0] = L'X'; // what one sink does to its copy, the next does not see
    };
    EXPECT_EQ(object->Fire_customEvent(text), S_OK);
    EXPECT_NE(seenByFirst, nullptr);
    EXPECT_THAT(second.calls, ElementsAre(Call{4, "shared"}));
    EXPECT_STREQ(text.m_str, L"shared");
}

TEST_F(FiringTest, NullAndEmptyTextsAreStrings)
{
    advise(object, first);
    EXPECT_EQ(object->Fire_customEvent(nullptr), S_OK);
    EXPECT_EQ(object->Fire_customEvent(CComBSTR(L"")), S_OK);
    EXPECT_THAT(first.calls, ElementsAre(Call{4, ""}, Call{4, ""}));
}

TEST_F(FiringTest, SinkIsHeldDuringItsCall)
{
    advise(object, first);
    const ULONG before = first.references;
    EXPECT_EQ(fire(), S_OK);
    EXPECT_EQ(first.referencesInCall, before + 1);
    EXPECT_EQ(first.references, before);
}

TEST_F(FiringTest, FailingSinkDoesNotStopTheNextAndTheLastResultCounts)
{
    first.answer = E_ACCESSDENIED;
    advise(object, first);
    advise(object, second);
    EXPECT_EQ(fire(), S_OK);
    EXPECT_THAT(second.calls, ElementsAre(Call{4, "text"}));
    EXPECT_THAT(stream.lines(), testing::SizeIs(0)) << "nothing is logged";

    second.answer = S_FALSE;
    EXPECT_EQ(fire(), S_FALSE);
    second.answer = RPC_E_DISCONNECTED;
    EXPECT_EQ(fire(), RPC_E_DISCONNECTED);
    EXPECT_THAT(second.calls, testing::SizeIs(3)) << "it stays connected";
}

TEST_F(FiringTest, ResultOfTheLastSinkIsThatOfEveryEvent)
{
    advise(object, first);
    const CComBSTR text(L"text");
    for (const HRESULT answer : {S_OK, S_FALSE, E_ABORT, DISP_E_MEMBERNOTFOUND}) {
        first.answer = answer;
        EXPECT_EQ(object->Fire_testBridgeEvent(text), answer);
        EXPECT_EQ(object->Fire_controlReady(text), answer);
        EXPECT_EQ(object->Fire_customEvent(text), answer);
        EventTarget* const target = eventTarget();
        EXPECT_EQ(target->fireTestBridgeEvent(text), answer);
        EXPECT_EQ(target->fireControlReady(text), answer);
        EXPECT_EQ(target->fireCustomEvent(text), answer);
    }
}

TEST_F(FiringTest, EmptySlotsArePassedOver)
{
    const DWORD cookie = advise(object, first);
    advise(object, second);
    EXPECT_EQ(unadvise(object, cookie), S_OK);
    EXPECT_EQ(fire(), S_OK);
    EXPECT_THAT(first.calls, IsEmpty());
    EXPECT_THAT(second.calls, ElementsAre(Call{4, "text"}));
    EXPECT_EQ(unadvise(object, 2), S_OK);
    EXPECT_EQ(fire(), S_OK) << "nothing but empty slots";
}

TEST_F(FiringTest, CookiesArePositions)
{
    EXPECT_EQ(advise(object, first), 1u);
    EXPECT_EQ(advise(object, second), 2u);
    EXPECT_EQ(unadvise(object, 1), S_OK);
    EXPECT_EQ(unadvise(object, 1), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(advise(object, third), 1u);
}

TEST_F(FiringTest, ManySinksAreCalledInTheOrderOfTheirCookies)
{
    std::array<RecordingSink, 20> sinks;
    std::vector<DWORD> order;
    for (DWORD number = 1; number <= sinks.size(); ++number) {
        RecordingSink& sink = sinks[number - 1];
        EXPECT_EQ(advise(object, sink), number);
        sink.onCall = [&order, number] { order.push_back(number); };
        sink.answer = static_cast<HRESULT>(number);
    }
    EXPECT_EQ(fire(), 20);
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20));
    object.Release(); // the sinks go before it otherwise
    EXPECT_EQ(sinks.back().references, 0u);
}

TEST_F(FiringTest, ConnectionsAreTheOccupiedSlotsWithTheirCookies)
{
    advise(object, first);
    advise(object, second);
    advise(object, third);
    EXPECT_EQ(unadvise(object, 2), S_OK);
    CComPtr<IConnectionPoint> point;
    ASSERT_EQ(object->FindConnectionPoint(DIID__IJavaManagerEvents, &point), S_OK);
    CComPtr<IEnumConnections> connections;
    ASSERT_EQ(point->EnumConnections(&connections), S_OK);
    CONNECTDATA data[3] = {};
    ULONG fetched = 0;
    EXPECT_EQ(connections->Next(3, data, &fetched), S_FALSE);
    ASSERT_EQ(fetched, 2u);
    EXPECT_EQ(data[0].pUnk, static_cast<IUnknown*>(&first));
    EXPECT_EQ(data[0].dwCookie, 1u);
    EXPECT_EQ(data[1].pUnk, static_cast<IUnknown*>(&third));
    EXPECT_EQ(data[1].dwCookie, 3u);
    data[0].pUnk->Release();
    data[1].pUnk->Release();
}

TEST_F(FiringTest, SinkThatUnadvisesItselfLeavesTheOthers)
{
    advise(object, first);
    const DWORD cookie = advise(object, second);
    advise(object, third);
    second.onCall = [&] { EXPECT_EQ(unadvise(object, cookie), S_OK); };
    EXPECT_EQ(fire(L"one"), S_OK);
    EXPECT_EQ(second.references, 0u);
    EXPECT_EQ(unadvise(object, cookie), CONNECT_E_NOCONNECTION) << "its slot is empty";
    EXPECT_EQ(fire(L"two"), S_OK);
    EXPECT_THAT(first.calls, ElementsAre(Call{4, "one"}, Call{4, "two"}));
    EXPECT_THAT(second.calls, ElementsAre(Call{4, "one"}));
    EXPECT_THAT(third.calls, ElementsAre(Call{4, "one"}, Call{4, "two"}));
}

TEST_F(FiringTest, SinkThatUnadvisesALaterOneIsTheLastToBeCalled)
{
    advise(object, first);
    const DWORD cookie = advise(object, second);
    first.answer = E_ABORT;
    first.onCall = [&] { unadvise(object, cookie); };
    EXPECT_EQ(fire(), E_ABORT);
    EXPECT_THAT(second.calls, IsEmpty());
}

TEST_F(FiringTest, SinkAdvisedDuringTheCallIsCalledFromTheNextOn)
{
    advise(object, first);
    first.onCall = [&] {
        first.onCall = nullptr;
        advise(object, second);
    };
    EXPECT_EQ(fire(L"one"), S_OK);
    EXPECT_THAT(second.calls, IsEmpty());
    EXPECT_EQ(fire(L"two"), S_OK);
    EXPECT_THAT(second.calls, ElementsAre(Call{4, "two"}));
}

TEST_F(FiringTest, SinkMayFireAnew)
{
    advise(object, first);
    advise(object, second);
    first.onCall = [&] {
        first.onCall = nullptr;
        fire(L"inner");
    };
    EXPECT_EQ(fire(L"outer"), S_OK);
    EXPECT_THAT(first.calls, ElementsAre(Call{4, "outer"}, Call{4, "inner"}));
    EXPECT_THAT(second.calls, ElementsAre(Call{4, "inner"}, Call{4, "outer"}));
}

TEST_F(FiringTest, SinksGoWithTheObject)
{
    advise(object, first);
    advise(object, second);
    object.Release();
    EXPECT_EQ(first.references, 0u);
    EXPECT_EQ(second.references, 0u);
}

TEST_F(FiringTest, ReachesTheObjectsOwnSinksThroughTheEventTarget)
{
    advise(object, first);
    EventTarget* const target = eventTarget();
    ASSERT_NE(target, nullptr);
    EXPECT_EQ(target->targetUnknown(), static_cast<IJavaManager*>(object.p));
    EXPECT_EQ(target->fireControlReady(CComBSTR(L"a")), S_OK);
    EXPECT_EQ(target->fireCustomEvent(CComBSTR(L"b")), S_OK);
    EXPECT_EQ(target->fireTestBridgeEvent(CComBSTR(L"c")), S_OK);
    EXPECT_THAT(first.calls, ElementsAre(Call{3, "a"}, Call{4, "b"}, Call{2, "c"}));
}

// The queue holds the object while it fires: the client may give up its last reference inside its sink.
TEST_F(FiringTest, ClientMayReleaseTheObjectInsideItsSink)
{
    NativeEnvironment environment;
    advise(object, first);
    advise(object, second);
    first.onCall = [&] {
        CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("too late"));
        object.Release();
    };
    CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("last"));
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(first.calls, ElementsAre(Call{4, "last"}));
    EXPECT_THAT(second.calls, ElementsAre(Call{4, "last"})) << "the round goes on to its end";
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_EQ(first.references + second.references, 0u);
    EXPECT_EQ(module.locks, 0);
}
