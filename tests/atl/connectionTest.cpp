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
        s_events.clear();
        EXPECT_EQ(CComObject<CSampleObject>::CreateInstance(&m_object), S_OK);
        m_object->AddRef();
        EXPECT_EQ(m_object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&m_container)), S_OK);
        EXPECT_EQ(m_container->FindConnectionPoint(DIID__IJavaManagerEvents, &m_point), S_OK);
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
        EXPECT_EQ(m_point->Advise(&sink, &cookie), S_OK);
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
        EXPECT_EQ(fetched, 1u);
        result.emplace_back(data.pUnk, data.dwCookie);
        data.pUnk->Release();
    }
    EXPECT_EQ(fetched, 0u);
    return result;
}

} // namespace

TEST_F(ConnectionTest, CookiesAreSlotsAndEmptySlotsAreTakenAgain)
{
    CSink& a = newSink();
    CSink& b = newSink();
    CSink& c = newSink();
    CSink& d = newSink();
    EXPECT_EQ(advise(a), 1u);
    EXPECT_EQ(advise(b), 2u);
    EXPECT_EQ(advise(c), 3u);
    EXPECT_THAT(slots(), ElementsAre(&a, &b, &c));
    EXPECT_EQ(m_point->Unadvise(2), S_OK);
    EXPECT_THAT(slots(), ElementsAre(&a, nullptr, &c));
    EXPECT_EQ(b.m_references, 0);
    EXPECT_EQ(advise(d), 2u);
    EXPECT_THAT(slots(), ElementsAre(&a, &d, &c));
    EXPECT_EQ(m_point->Unadvise(3), S_OK);
    EXPECT_EQ(m_point->Unadvise(1), S_OK);
    EXPECT_THAT(slots(), ElementsAre(nullptr, &d, nullptr));
    EXPECT_EQ(advise(b), 1u);
    EXPECT_EQ(advise(b), 3u);
    EXPECT_EQ(b.m_references, 2);
    EXPECT_THAT(slots(), ElementsAre(&b, &d, &b));
}

TEST_F(ConnectionTest, SlotsOutOfRangeReadAsEmpty)
{
    CSink& sink = newSink();
    advise(sink);
    EXPECT_EQ(&sink, m_object->sinks().GetAt(0));
    EXPECT_EQ(m_object->sinks().GetAt(1), nullptr);
    EXPECT_EQ(m_object->sinks().GetAt(-1), nullptr);
    EXPECT_EQ(sink.m_references, 1);
}

TEST_F(ConnectionTest, ASinkIsAskedForTheEventInterface)
{
    CSink& sink = newSink();
    advise(sink);
    EXPECT_THAT(sink.m_queried, ElementsAre(DIID__IJavaManagerEvents));
    EXPECT_EQ(sink.m_references, 1);
}

TEST_F(ConnectionTest, ASinkWithoutTheEventInterfaceCannotConnect)
{
    CSink& other = newSink(IID_IDispatch);
    DWORD cookie = 7;
    EXPECT_EQ(m_point->Advise(&other, &cookie), CONNECT_E_CANNOTCONNECT);
    EXPECT_EQ(cookie, 0u);
    EXPECT_EQ(other.m_references, 0);
    EXPECT_THAT(slots(), ElementsAre());
    CSink& dead = newSink();
    dead.m_queryResult = RPC_E_DISCONNECTED;
    EXPECT_EQ(m_point->Advise(&dead, &cookie), RPC_E_DISCONNECTED);
}

TEST_F(ConnectionTest, BadPointersAndCookiesAreRefused)
{
    CSink& sink = newSink();
    DWORD cookie = 7;
    EXPECT_EQ(m_point->Advise(nullptr, &cookie), E_POINTER);
    EXPECT_EQ(cookie, 0u);
    EXPECT_EQ(m_point->Advise(&sink, nullptr), E_POINTER);
    EXPECT_EQ(m_point->Unadvise(1), CONNECT_E_NOCONNECTION);
    advise(sink);
    EXPECT_EQ(m_point->Unadvise(0), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(m_point->Unadvise(2), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(m_point->Unadvise(1), S_OK);
    EXPECT_EQ(m_point->Unadvise(1), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(m_point->GetConnectionInterface(nullptr), E_POINTER);
    EXPECT_EQ(m_point->GetConnectionPointContainer(nullptr), E_POINTER);
    EXPECT_EQ(m_point->EnumConnections(nullptr), E_POINTER);
    EXPECT_EQ(m_container->EnumConnectionPoints(nullptr), E_POINTER);
    EXPECT_EQ(m_container->FindConnectionPoint(DIID__IJavaManagerEvents, nullptr), E_POINTER);
}

TEST_F(ConnectionTest, ASlotIsEmptyWhenItsSinkIsReleased)
{
    CSink& sink = newSink();
    const DWORD cookie = advise(sink);
    std::vector<IUnknown*> seen;
    sink.m_whenReleased = [&] { seen = slots(); };
    m_point->Unadvise(cookie);
    sink.m_whenReleased = nullptr;
    EXPECT_THAT(seen, ElementsAre(nullptr));
}

TEST_F(ConnectionTest, TheSinksThatAreLeftGoWithTheObject)
{
    CSink& a = newSink();
    CSink& b = newSink();
    advise(a);
    advise(b);
    b.m_whenReleased = [] { s_events.push_back("sink released"); };
    s_events.clear();
    end();
    EXPECT_EQ(a.m_references, 0);
    EXPECT_EQ(b.m_references, 0);
    EXPECT_THAT(s_events, ElementsAre("FinalRelease", "~CSampleObject", "sink released", "~CVirtualBase", "Unlock"));
}

TEST_F(ConnectionTest, ThePointKnowsItsInterfaceAndItsContainer)
{
    IID iid = {};
    EXPECT_EQ(m_point->GetConnectionInterface(&iid), S_OK);
    EXPECT_EQ(DIID__IJavaManagerEvents, iid);
    CComPtr<IConnectionPointContainer> container;
    EXPECT_EQ(m_point->GetConnectionPointContainer(&container), S_OK);
    EXPECT_EQ(m_container.p, container.p);
}

TEST_F(ConnectionTest, ThePointHasAnIdentityOfItsOwnAndTheObjectsCount)
{
    CComPtr<IUnknown> pointUnknown;
    CComPtr<IUnknown> objectUnknown;
    EXPECT_EQ(m_point.QueryInterface(&pointUnknown), S_OK);
    EXPECT_EQ(m_container.QueryInterface(&objectUnknown), S_OK);
    EXPECT_NE(pointUnknown.p, objectUnknown.p);
    void* other = nullptr;
    EXPECT_EQ(m_point->QueryInterface(IID_IConnectionPointContainer, &other), E_NOINTERFACE);
    pointUnknown.Release();
    objectUnknown.Release();
    m_container.Release();
    std::exchange(m_object, nullptr)->Release();
    s_events.clear();
    m_point.Release();
    EXPECT_THAT(s_events, ElementsAre("FinalRelease", "~CSampleObject", "~CVirtualBase", "Unlock"));
}

TEST_F(ConnectionTest, AnUnknownEventInterfaceHasNoPoint)
{
    CComPtr<IConnectionPoint> point;
    EXPECT_EQ(m_container->FindConnectionPoint(IID_IPropertyNotifySink, &point), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point.p, nullptr);
}

TEST_F(ConnectionTest, EnumeratesTheSinglePoint)
{
    CComPtr<IEnumConnectionPoints> enumerator;
    EXPECT_EQ(m_container->EnumConnectionPoints(&enumerator), S_OK);
    IConnectionPoint* points[2] = {};
    ULONG fetched = 7;
    EXPECT_EQ(enumerator->Next(2, points, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(m_point.p, points[0]);
    EXPECT_EQ(points[1], nullptr);
    points[0]->Release();
    EXPECT_EQ(enumerator->Next(1, points, nullptr), S_FALSE);
}

TEST_F(ConnectionTest, EnumeratesOccupiedSlotsWithTheirCookies)
{
    CSink& a = newSink();
    CSink& b = newSink();
    CSink& c = newSink();
    advise(a);
    advise(b);
    advise(c);
    m_point->Unadvise(2);
    CComPtr<IEnumConnections> enumerator;
    EXPECT_EQ(m_point->EnumConnections(&enumerator), S_OK);
    EXPECT_EQ(a.m_references, 2);
    EXPECT_THAT(connections(enumerator), ElementsAre(std::pair<IUnknown*, DWORD>(&a, 1), std::pair<IUnknown*, DWORD>(&c, 3)));
    enumerator.Release();
    EXPECT_EQ(a.m_references, 1);
    EXPECT_EQ(c.m_references, 1);
}

TEST_F(ConnectionTest, AnEnumerationIsOfTheMomentItWasMade)
{
    CSink& a = newSink();
    CSink& b = newSink();
    advise(a);
    CComPtr<IEnumConnections> enumerator;
    EXPECT_EQ(m_point->EnumConnections(&enumerator), S_OK);
    m_point->Unadvise(1);
    advise(b);
    EXPECT_THAT(connections(enumerator), ElementsAre(std::pair<IUnknown*, DWORD>(&a, 1)));
    enumerator.Release();
    EXPECT_EQ(a.m_references, 0);
}

TEST_F(ConnectionTest, EnumeratorsReadManySkipResetAndClone)
{
    for (int i = 0; i < 5; ++i) {
        advise(newSink());
    }
    CComPtr<IEnumConnections> enumerator;
    EXPECT_EQ(m_point->EnumConnections(&enumerator), S_OK);
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
    EXPECT_EQ(enumerator->Next(2, data, &fetched), S_OK);
    EXPECT_THAT(cookies(), ElementsAre(1u, 2u));
    EXPECT_EQ(enumerator->Skip(1), S_OK);
    CComPtr<IEnumConnections> clone;
    EXPECT_EQ(enumerator->Clone(&clone), S_OK);
    EXPECT_EQ(enumerator->Next(5, data, &fetched), S_FALSE);
    EXPECT_THAT(cookies(), ElementsAre(4u, 5u));
    EXPECT_EQ(enumerator->Next(5, data, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(clone->Next(1, data, &fetched), S_OK);
    EXPECT_THAT(cookies(), ElementsAre(4u));
    EXPECT_EQ(enumerator->Reset(), S_OK);
    EXPECT_EQ(enumerator->Skip(5), S_OK);
    EXPECT_EQ(enumerator->Skip(0), S_OK);
    EXPECT_EQ(enumerator->Skip(1), S_FALSE);
    EXPECT_EQ(enumerator->Reset(), S_OK);
    EXPECT_EQ(enumerator->Skip(6), S_FALSE);
    EXPECT_EQ(enumerator->Skip(1), S_FALSE);
    EXPECT_EQ(enumerator->Next(1, data, &fetched), S_FALSE);
    EXPECT_EQ(enumerator->Next(0, data, &fetched), S_OK);
    EXPECT_EQ(enumerator->Next(1, nullptr, &fetched), E_POINTER);
    EXPECT_EQ(enumerator->Next(2, data, nullptr), E_POINTER);
    EXPECT_EQ(enumerator->Clone(nullptr), E_POINTER);
    enumerator.Release();
    clone.Release();
    for (const CSink& sink : m_sinks) {
        EXPECT_EQ(sink.m_references, 1);
    }
}

TEST_F(ConnectionTest, EveryLivingEnumeratorIsDisconnectedOnceAndStaysTheClients)
{
    static std::vector<IUnknown*> s_disconnected;
    s_disconnected.clear();
    CSink& sink = newSink();
    advise(sink);
    CComPtr<IEnumConnections> connectionsOfThePoint;
    CComPtr<IEnumConnections> gone;
    CComPtr<IEnumConnectionPoints> points;
    EXPECT_EQ(m_point->EnumConnections(&gone), S_OK);
    EXPECT_EQ(m_point->EnumConnections(&connectionsOfThePoint), S_OK);
    EXPECT_EQ(m_container->EnumConnectionPoints(&points), S_OK);
    gone.Release();

    const ImportHook<decltype(&CoDisconnectObject)> hook("CoDisconnectObject", [](LPUNKNOWN object, DWORD reserved) -> HRESULT {
        EXPECT_EQ(reserved, 0u);
        s_disconnected.push_back(object);
        return S_OK;
    });
    AtlDisconnectEnumerators();
    CComPtr<IUnknown> first;
    CComPtr<IUnknown> second;
    EXPECT_EQ(connectionsOfThePoint.QueryInterface(&first), S_OK);
    EXPECT_EQ(points.QueryInterface(&second), S_OK);
    EXPECT_THAT(s_disconnected, ElementsAre(first.p, second.p));
    first.Release();
    second.Release();
    EXPECT_THAT(connections(connectionsOfThePoint), ElementsAre(std::pair<IUnknown*, DWORD>(&sink, 1)));
    IUnknown* const enumerator = connectionsOfThePoint.Detach();
    EXPECT_EQ(enumerator->Release(), 0u);
    s_disconnected.clear();
    points.Release();
    AtlDisconnectEnumerators();
    EXPECT_THAT(s_disconnected, ElementsAre());
}
