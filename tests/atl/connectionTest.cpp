#include "atl/enumerator.h"
#include "tests/atl/sampleObject.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <deque>

using testing::ElementsAre;

namespace {

class ConnectionTest : public testing::Test
{
protected:
    ConnectionTest()
    {
        g_events.clear();
        EXPECT_EQ(S_OK, CComObject<CSampleObject>::CreateInstance(&m_object));
        m_object->AddRef();
        EXPECT_EQ(S_OK, m_object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&m_container)));
        EXPECT_EQ(S_OK, m_container->FindConnectionPoint(DIID__IJavaManagerEvents, &m_point));
    }
    ~ConnectionTest() override { end(); }

    void end()
    {
        m_point.Release();
        m_container.Release();
        if (m_object != nullptr) {
            std::exchange(m_object, nullptr)->Release();
        }
    }
    // A sink that lives as long as the object may hold it.
    CSink& newSink(const IID& answers = DIID__IJavaManagerEvents) { return m_sinks.emplace_back(answers); }
    DWORD advise(CSink& sink)
    {
        DWORD cookie = 0;
        EXPECT_EQ(S_OK, m_point->Advise(&sink, &cookie));
        return cookie;
    }
    // The slots as they are: null for an empty one.
    std::vector<IUnknown*> slots()
    {
        std::vector<IUnknown*> slots;
        for (int i = 0; i < m_object->sinks().GetSize(); ++i) {
            slots.push_back(m_object->sinks().GetAt(i));
        }
        return slots;
    }

    std::deque<CSink> m_sinks;
    CCountingModule m_module;
    CComObject<CSampleObject>* m_object = nullptr;
    CComPtr<IConnectionPointContainer> m_container;
    CComPtr<IConnectionPoint> m_point;
};

// (sink, cookie) pairs in the order of the enumeration.
std::vector<std::pair<IUnknown*, DWORD>> connections(IEnumConnections* enumerator)
{
    std::vector<std::pair<IUnknown*, DWORD>> result;
    CONNECTDATA data;
    ULONG fetched = 0;
    while (enumerator->Next(1, &data, &fetched) == S_OK) {
        EXPECT_EQ(1u, fetched);
        result.emplace_back(data.pUnk, data.dwCookie);
        data.pUnk->Release();
    }
    EXPECT_EQ(0u, fetched);
    return result;
}

} // namespace

TEST_F(ConnectionTest, cookiesAreSlotsAndEmptySlotsAreTakenAgain)
{
    CSink& a = newSink();
    CSink& b = newSink();
    CSink& c = newSink();
    CSink& d = newSink();
    EXPECT_EQ(1u, advise(a));
    EXPECT_EQ(2u, advise(b));
    EXPECT_EQ(3u, advise(c));
    EXPECT_THAT(slots(), ElementsAre(&a, &b, &c));
    EXPECT_EQ(S_OK, m_point->Unadvise(2));
    EXPECT_THAT(slots(), ElementsAre(&a, nullptr, &c));
    EXPECT_EQ(0, b.m_references);
    EXPECT_EQ(2u, advise(d));
    EXPECT_THAT(slots(), ElementsAre(&a, &d, &c));
    EXPECT_EQ(S_OK, m_point->Unadvise(3));
    EXPECT_EQ(S_OK, m_point->Unadvise(1));
    EXPECT_THAT(slots(), ElementsAre(nullptr, &d, nullptr));
    EXPECT_EQ(1u, advise(b));
    EXPECT_EQ(3u, advise(b));
    EXPECT_EQ(2, b.m_references);
    EXPECT_THAT(slots(), ElementsAre(&b, &d, &b));
}

TEST_F(ConnectionTest, slotsOutOfRangeReadAsEmpty)
{
    CSink& sink = newSink();
    advise(sink);
    EXPECT_EQ(&sink, m_object->sinks().GetAt(0));
    EXPECT_EQ(nullptr, m_object->sinks().GetAt(1));
    EXPECT_EQ(nullptr, m_object->sinks().GetAt(-1));
    EXPECT_EQ(1, sink.m_references);
}

TEST_F(ConnectionTest, aSinkIsAskedForTheEventInterface)
{
    CSink& sink = newSink();
    advise(sink);
    EXPECT_THAT(sink.m_queried, ElementsAre(DIID__IJavaManagerEvents));
    EXPECT_EQ(1, sink.m_references);
}

TEST_F(ConnectionTest, aSinkWithoutTheEventInterfaceCannotConnect)
{
    CSink& other = newSink(IID_IDispatch);
    DWORD cookie = 7;
    EXPECT_EQ(CONNECT_E_CANNOTCONNECT, m_point->Advise(&other, &cookie));
    EXPECT_EQ(0u, cookie);
    EXPECT_EQ(0, other.m_references);
    EXPECT_THAT(slots(), ElementsAre());
    CSink& dead = newSink();
    dead.m_queryResult = RPC_E_DISCONNECTED;
    EXPECT_EQ(RPC_E_DISCONNECTED, m_point->Advise(&dead, &cookie));
}

TEST_F(ConnectionTest, badPointersAndCookiesAreRefused)
{
    CSink& sink = newSink();
    DWORD cookie = 7;
    EXPECT_EQ(E_POINTER, m_point->Advise(nullptr, &cookie));
    EXPECT_EQ(0u, cookie);
    EXPECT_EQ(E_POINTER, m_point->Advise(&sink, nullptr));
    EXPECT_EQ(CONNECT_E_NOCONNECTION, m_point->Unadvise(1));
    advise(sink);
    EXPECT_EQ(CONNECT_E_NOCONNECTION, m_point->Unadvise(0));
    EXPECT_EQ(CONNECT_E_NOCONNECTION, m_point->Unadvise(2));
    EXPECT_EQ(S_OK, m_point->Unadvise(1));
    EXPECT_EQ(CONNECT_E_NOCONNECTION, m_point->Unadvise(1));
    EXPECT_EQ(E_POINTER, m_point->GetConnectionInterface(nullptr));
    EXPECT_EQ(E_POINTER, m_point->GetConnectionPointContainer(nullptr));
    EXPECT_EQ(E_POINTER, m_point->EnumConnections(nullptr));
    EXPECT_EQ(E_POINTER, m_container->EnumConnectionPoints(nullptr));
    EXPECT_EQ(E_POINTER, m_container->FindConnectionPoint(DIID__IJavaManagerEvents, nullptr));
}

TEST_F(ConnectionTest, aSlotIsEmptyWhenItsSinkIsReleased)
{
    CSink& sink = newSink();
    const DWORD cookie = advise(sink);
    std::vector<IUnknown*> seen;
    sink.m_whenReleased = [&] { seen = slots(); };
    m_point->Unadvise(cookie);
    sink.m_whenReleased = nullptr;
    EXPECT_THAT(seen, ElementsAre(nullptr));
}

TEST_F(ConnectionTest, theSinksThatAreLeftGoWithTheObject)
{
    CSink& a = newSink();
    CSink& b = newSink();
    advise(a);
    advise(b);
    b.m_whenReleased = [] { g_events.push_back("sink released"); };
    g_events.clear();
    end();
    EXPECT_EQ(0, a.m_references);
    EXPECT_EQ(0, b.m_references);
    EXPECT_THAT(g_events, ElementsAre("FinalRelease", "~CSampleObject", "sink released", "~CVirtualBase", "Unlock"));
}

TEST_F(ConnectionTest, thePointKnowsItsInterfaceAndItsContainer)
{
    IID iid = {};
    EXPECT_EQ(S_OK, m_point->GetConnectionInterface(&iid));
    EXPECT_EQ(DIID__IJavaManagerEvents, iid);
    CComPtr<IConnectionPointContainer> container;
    EXPECT_EQ(S_OK, m_point->GetConnectionPointContainer(&container));
    EXPECT_EQ(m_container.p, container.p);
}

TEST_F(ConnectionTest, thePointHasAnIdentityOfItsOwnAndTheObjectsCount)
{
    CComPtr<IUnknown> pointUnknown;
    CComPtr<IUnknown> objectUnknown;
    EXPECT_EQ(S_OK, m_point.QueryInterface(&pointUnknown));
    EXPECT_EQ(S_OK, m_container.QueryInterface(&objectUnknown));
    EXPECT_NE(pointUnknown.p, objectUnknown.p);
    void* other = nullptr;
    EXPECT_EQ(E_NOINTERFACE, m_point->QueryInterface(IID_IConnectionPointContainer, &other));
    pointUnknown.Release();
    objectUnknown.Release();
    m_container.Release();
    std::exchange(m_object, nullptr)->Release();
    g_events.clear();
    m_point.Release();
    EXPECT_THAT(g_events, ElementsAre("FinalRelease", "~CSampleObject", "~CVirtualBase", "Unlock"));
}

TEST_F(ConnectionTest, anUnknownEventInterfaceHasNoPoint)
{
    CComPtr<IConnectionPoint> point;
    EXPECT_EQ(CONNECT_E_NOCONNECTION, m_container->FindConnectionPoint(IID_IPropertyNotifySink, &point));
    EXPECT_EQ(nullptr, point.p);
}

TEST_F(ConnectionTest, enumeratesTheSinglePoint)
{
    CComPtr<IEnumConnectionPoints> enumerator;
    EXPECT_EQ(S_OK, m_container->EnumConnectionPoints(&enumerator));
    IConnectionPoint* points[2] = {};
    ULONG fetched = 7;
    EXPECT_EQ(S_FALSE, enumerator->Next(2, points, &fetched));
    EXPECT_EQ(1u, fetched);
    EXPECT_EQ(m_point.p, points[0]);
    EXPECT_EQ(nullptr, points[1]);
    points[0]->Release();
    EXPECT_EQ(S_FALSE, enumerator->Next(1, points, nullptr));
}

TEST_F(ConnectionTest, enumeratesOccupiedSlotsWithTheirCookies)
{
    CSink& a = newSink();
    CSink& b = newSink();
    CSink& c = newSink();
    advise(a);
    advise(b);
    advise(c);
    m_point->Unadvise(2);
    CComPtr<IEnumConnections> enumerator;
    EXPECT_EQ(S_OK, m_point->EnumConnections(&enumerator));
    EXPECT_EQ(2, a.m_references);
    EXPECT_THAT(connections(enumerator), ElementsAre(std::pair<IUnknown*, DWORD>(&a, 1), std::pair<IUnknown*, DWORD>(&c, 3)));
    enumerator.Release();
    EXPECT_EQ(1, a.m_references);
    EXPECT_EQ(1, c.m_references);
}

TEST_F(ConnectionTest, anEnumerationIsOfTheMomentItWasMade)
{
    CSink& a = newSink();
    CSink& b = newSink();
    advise(a);
    CComPtr<IEnumConnections> enumerator;
    EXPECT_EQ(S_OK, m_point->EnumConnections(&enumerator));
    m_point->Unadvise(1);
    advise(b);
    EXPECT_THAT(connections(enumerator), ElementsAre(std::pair<IUnknown*, DWORD>(&a, 1)));
    enumerator.Release();
    EXPECT_EQ(0, a.m_references);
}

TEST_F(ConnectionTest, enumeratorsReadManySkipResetAndClone)
{
    for (int i = 0; i < 5; ++i) {
        advise(newSink());
    }
    CComPtr<IEnumConnections> enumerator;
    EXPECT_EQ(S_OK, m_point->EnumConnections(&enumerator));
    CONNECTDATA data[5] = {};
    ULONG fetched = 0;
    const auto cookies = [&] {
        std::vector<DWORD> result;
        for (ULONG i = 0; i < fetched; ++i) {
            result.push_back(data[i].dwCookie);
            data[i].pUnk->Release();
        }
        return result;
    };
    EXPECT_EQ(S_OK, enumerator->Next(2, data, &fetched));
    EXPECT_THAT(cookies(), ElementsAre(1u, 2u));
    EXPECT_EQ(S_OK, enumerator->Skip(1));
    CComPtr<IEnumConnections> clone;
    EXPECT_EQ(S_OK, enumerator->Clone(&clone));
    EXPECT_EQ(S_FALSE, enumerator->Next(5, data, &fetched));
    EXPECT_THAT(cookies(), ElementsAre(4u, 5u));
    EXPECT_EQ(S_FALSE, enumerator->Next(5, data, &fetched));
    EXPECT_EQ(0u, fetched);
    EXPECT_EQ(S_OK, clone->Next(1, data, &fetched));
    EXPECT_THAT(cookies(), ElementsAre(4u));
    EXPECT_EQ(S_OK, enumerator->Reset());
    EXPECT_EQ(S_OK, enumerator->Skip(5));
    EXPECT_EQ(S_OK, enumerator->Skip(0));
    EXPECT_EQ(S_FALSE, enumerator->Skip(1));
    EXPECT_EQ(S_OK, enumerator->Reset());
    EXPECT_EQ(S_FALSE, enumerator->Skip(6));
    EXPECT_EQ(S_FALSE, enumerator->Skip(1));
    EXPECT_EQ(S_FALSE, enumerator->Next(1, data, &fetched));
    EXPECT_EQ(S_OK, enumerator->Next(0, data, &fetched));
    EXPECT_EQ(E_POINTER, enumerator->Next(1, nullptr, &fetched));
    EXPECT_EQ(E_POINTER, enumerator->Next(2, data, nullptr));
    EXPECT_EQ(E_POINTER, enumerator->Clone(nullptr));
    enumerator.Release();
    clone.Release();
    for (const CSink& sink : m_sinks) {
        EXPECT_EQ(1, sink.m_references);
    }
}

TEST_F(ConnectionTest, everyLivingEnumeratorIsDisconnectedOnceAndStaysTheClients)
{
    static std::vector<IUnknown*> s_disconnected;
    s_disconnected.clear();
    CSink& sink = newSink();
    advise(sink);
    CComPtr<IEnumConnections> connectionsOfThePoint;
    CComPtr<IEnumConnections> gone;
    CComPtr<IEnumConnectionPoints> points;
    EXPECT_EQ(S_OK, m_point->EnumConnections(&gone));
    EXPECT_EQ(S_OK, m_point->EnumConnections(&connectionsOfThePoint));
    EXPECT_EQ(S_OK, m_container->EnumConnectionPoints(&points));
    gone.Release();

    const ImportHook<decltype(&CoDisconnectObject)> hook("CoDisconnectObject", [](LPUNKNOWN object, DWORD reserved) -> HRESULT {
        EXPECT_EQ(0u, reserved);
        s_disconnected.push_back(object);
        return S_OK;
    });
    AtlDisconnectEnumerators();
    CComPtr<IUnknown> first;
    CComPtr<IUnknown> second;
    EXPECT_EQ(S_OK, connectionsOfThePoint.QueryInterface(&first));
    EXPECT_EQ(S_OK, points.QueryInterface(&second));
    EXPECT_THAT(s_disconnected, ElementsAre(first.p, second.p));
    first.Release();
    second.Release();
    EXPECT_THAT(connections(connectionsOfThePoint), ElementsAre(std::pair<IUnknown*, DWORD>(&sink, 1)));
    IUnknown* const enumerator = connectionsOfThePoint.Detach();
    EXPECT_EQ(0u, enumerator->Release());
    s_disconnected.clear();
    points.Release();
    AtlDisconnectEnumerators();
    EXPECT_THAT(s_disconnected, ElementsAre());
}
