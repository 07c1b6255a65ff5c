// Connection points with their sinks and enumerators.
#include "atl/enumerator.h"
#include "tests/atl/sampleObject.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

// A client's sink that counts its references. The test sets the result of the query for its event interface, and who implements
// that.
class CSink final : public IDispatch
{
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        EXPECT_EQ(iid, DIID__IJavaManagerEvents);
        *object = FAILED(m_queryResult) ? nullptr : m_events;
        m_events->m_references += FAILED(m_queryResult) ? 0 : 1;
        return m_queryResult;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++m_references); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        --m_references;
        if (m_whenReleased) {
            m_whenReleased();
        }
        return static_cast<ULONG>(m_references);
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        return E_NOTIMPL;
    }

    HRESULT m_queryResult = S_OK;
    CSink* m_events = this;
    int m_references = 0;
    std::function<void()> m_whenReleased;
};

class ConnectionTest : public SampleTest
{
protected:
    ConnectionTest()
    {
        EXPECT_EQ(m_object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&m_container)), S_OK);
        EXPECT_EQ(m_container->FindConnectionPoint(DIID__IJavaManagerEvents, &m_point), S_OK);
    }

    DWORD advise(CSink& sink)
    {
        DWORD cookie = 0;
        EXPECT_EQ(m_point->Advise(&sink, &cookie), S_OK);
        return cookie;
    }
    // For each slot the index of its sink, or -1 when it is empty.
    std::vector<int> slots()
    {
        std::vector<int> slots;
        for (int i = 0; i < m_object->sinks().GetSize(); ++i) {
            slots.push_back(indexOf(m_object->sinks().GetAt(i)));
        }
        return slots;
    }
    CComPtr<IEnumConnections> enumerate()
    {
        CComPtr<IEnumConnections> enumerator;
        EXPECT_EQ(m_point->EnumConnections(&enumerator), S_OK);
        return enumerator;
    }
    // "result: sink=cookie ..." of a call of Next.
    std::string next(IEnumConnections* enumerator, ULONG count)
    {
        CONNECTDATA data[8] = {};
        ULONG fetched = 7;
        std::string text = std::to_string(enumerator->Next(count, data, &fetched)) + ":";
        for (ULONG i = 0; i < fetched; ++i) {
            text += std::format(" {}={}", indexOf(data[i].pUnk), data[i].dwCookie);
            data[i].pUnk->Release();
        }
        return text;
    }
    std::vector<int> references()
    {
        std::vector<int> references;
        for (const CSink& sink : m_sinks) {
            references.push_back(sink.m_references);
        }
        return references;
    }
    // Releases everything.
    void end()
    {
        m_point.Release();
        m_container.Release();
        m_object.Release();
    }

    CSink m_sinks[5];
    CComPtr<CComObject<CSampleObject>> m_object = create();
    CComPtr<IConnectionPointContainer> m_container;
    CComPtr<IConnectionPoint> m_point;

private:
    int indexOf(IUnknown* sink)
    {
        return sink == nullptr ? -1 : static_cast<int>(static_cast<CSink*>(static_cast<IDispatch*>(sink)) - m_sinks);
    }
};

} // namespace

TEST_F(ConnectionTest, CookiesAreSlotsAndEmptySlotsAreTakenAgain)
{
    EXPECT_EQ(advise(m_sinks[0]), 1u);
    EXPECT_EQ(advise(m_sinks[1]), 2u);
    EXPECT_EQ(advise(m_sinks[2]), 3u);
    EXPECT_EQ(m_point->Unadvise(2), S_OK);
    EXPECT_THAT(slots(), ElementsAre(0, -1, 2));
    EXPECT_EQ(m_point->Unadvise(2), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(advise(m_sinks[3]), 2u);
    EXPECT_THAT(slots(), ElementsAre(0, 3, 2));
    EXPECT_EQ(m_point->Unadvise(3), S_OK);
    EXPECT_EQ(m_point->Unadvise(1), S_OK);
    EXPECT_THAT(slots(), ElementsAre(-1, 3, -1));
    EXPECT_EQ(advise(m_sinks[1]), 1u);
    EXPECT_EQ(advise(m_sinks[1]), 3u);
    EXPECT_THAT(references(), ElementsAre(0, 2, 0, 1, 0));
    for (const DWORD unknown : {0u, 4u}) {
        EXPECT_EQ(m_point->Unadvise(unknown), CONNECT_E_NOCONNECTION);
    }
    for (const int outside : {-1, 3}) {
        EXPECT_EQ(m_object->sinks().GetAt(outside), nullptr);
    }
}

TEST_F(ConnectionTest, ASinkWithoutTheEventInterfaceCannotConnect)
{
    DWORD cookie = 7;
    m_sinks[0].m_queryResult = E_NOINTERFACE;
    EXPECT_EQ(m_point->Advise(&m_sinks[0], &cookie), CONNECT_E_CANNOTCONNECT);
    EXPECT_EQ(cookie, 0u);
    m_sinks[0].m_queryResult = RPC_E_DISCONNECTED;
    EXPECT_EQ(m_point->Advise(&m_sinks[0], &cookie), RPC_E_DISCONNECTED);
    EXPECT_THAT(slots(), ElementsAre());
}

TEST_F(ConnectionTest, ASlotHoldsWhatImplementsTheEventInterface)
{
    m_sinks[0].m_events = &m_sinks[1];
    advise(m_sinks[0]);
    EXPECT_THAT(slots(), ElementsAre(1));
    EXPECT_THAT(references(), ElementsAre(0, 1, 0, 0, 0));
}

TEST_F(ConnectionTest, BadPointersAreRefused)
{
    DWORD cookie = 7;
    EXPECT_EQ(m_point->Advise(nullptr, &cookie), E_POINTER);
    EXPECT_EQ(cookie, 0u);
    EXPECT_EQ(m_point->Advise(&m_sinks[0], nullptr), E_POINTER);
    EXPECT_EQ(m_point->GetConnectionInterface(nullptr), E_POINTER);
    EXPECT_EQ(m_point->GetConnectionPointContainer(nullptr), E_POINTER);
    EXPECT_EQ(m_point->EnumConnections(nullptr), E_POINTER);
    EXPECT_EQ(m_container->EnumConnectionPoints(nullptr), E_POINTER);
    EXPECT_EQ(m_container->FindConnectionPoint(DIID__IJavaManagerEvents, nullptr), E_POINTER);
}

TEST_F(ConnectionTest, ASlotIsEmptyWhenItsSinkIsReleasedAndTheOthersGoWithTheObject)
{
    advise(m_sinks[0]);
    advise(m_sinks[1]);
    std::vector<int> seen;
    m_sinks[0].m_whenReleased = [&] { seen = slots(); };
    m_point->Unadvise(1);
    EXPECT_THAT(seen, ElementsAre(-1, 1));
    m_sinks[1].m_whenReleased = [] { s_events.push_back("sink released"); };
    takeEvents();
    end();
    EXPECT_THAT(takeEvents(), ElementsAre("FinalRelease", "~CSampleObject", "sink released", "~CVirtualBase", "Unlock"));
    EXPECT_THAT(references(), ElementsAre(0, 0, 0, 0, 0));
}

TEST_F(ConnectionTest, APointKnowsItsInterfaceAndItsContainerHasItsOwnIdentityAndTheObjectsCount)
{
    IID iid = {};
    EXPECT_EQ(m_point->GetConnectionInterface(&iid), S_OK);
    EXPECT_EQ(iid, DIID__IJavaManagerEvents);
    CComPtr<IConnectionPointContainer> container;
    EXPECT_EQ(m_point->GetConnectionPointContainer(&container), S_OK);
    EXPECT_EQ(container.p, m_container.p);
    CComPtr<IUnknown> identity;
    EXPECT_EQ(m_point.QueryInterface(&identity), S_OK);
    EXPECT_EQ(identity.p, m_point.p);
    void* other = this;
    EXPECT_EQ(m_point->QueryInterface(IID_IConnectionPointContainer, &other), E_NOINTERFACE);
    identity.Release();
    container.Release();
    m_container.Release();
    m_object.Release();
    takeEvents();
    EXPECT_EQ(m_point.Detach()->Release(), 0u);
    EXPECT_THAT(takeEvents(), ElementsAre("FinalRelease", "~CSampleObject", "~CVirtualBase", "Unlock"));
}

TEST_F(ConnectionTest, TheContainerHasItsSinglePointOnly)
{
    CComPtr<IConnectionPoint> point = m_point;
    EXPECT_EQ(m_container->FindConnectionPoint(IID_IPropertyNotifySink, &point), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point.p, nullptr);
    CComPtr<IEnumConnectionPoints> enumerator;
    EXPECT_EQ(m_container->EnumConnectionPoints(&enumerator), S_OK);
    EXPECT_EQ(enumerator->Next(1, &point, nullptr), S_OK);
    EXPECT_EQ(point.p, m_point.p);
    EXPECT_EQ(enumerator->Next(1, &point, nullptr), S_FALSE);
}

TEST_F(ConnectionTest, AnEnumerationShowsTheOccupiedSlotsOfTheMomentItWasMade)
{
    advise(m_sinks[0]);
    advise(m_sinks[1]);
    advise(m_sinks[2]);
    m_point->Unadvise(2);
    CComPtr<IEnumConnections> enumerator = enumerate();
    m_point->Unadvise(1);
    advise(m_sinks[3]);
    EXPECT_EQ(next(enumerator, 8), "1: 0=1 2=3");
    EXPECT_THAT(references(), ElementsAre(1, 0, 2, 1, 0));
    enumerator.Release();
    EXPECT_THAT(references(), ElementsAre(0, 0, 1, 1, 0));
}

TEST_F(ConnectionTest, EnumeratorsReadSkipResetAndClone)
{
    for (CSink& sink : m_sinks) {
        advise(sink);
    }
    CComPtr<IEnumConnections> enumerator = enumerate();
    EXPECT_EQ(next(enumerator, 2), "0: 0=1 1=2");
    EXPECT_EQ(enumerator->Skip(1), S_OK);
    CComPtr<IEnumConnections> clone;
    EXPECT_EQ(enumerator->Clone(&clone), S_OK);
    EXPECT_EQ(next(enumerator, 5), "1: 3=4 4=5");
    EXPECT_EQ(next(enumerator, 5), "1:");
    EXPECT_EQ(next(clone, 1), "0: 3=4") << "where the other one stood";
    EXPECT_EQ(enumerator->Reset(), S_OK);
    EXPECT_EQ(enumerator->Skip(5), S_OK);
    EXPECT_EQ(enumerator->Skip(0), S_OK);
    EXPECT_EQ(enumerator->Skip(1), S_FALSE);
    EXPECT_EQ(enumerator->Reset(), S_OK);
    EXPECT_EQ(enumerator->Skip(6), S_FALSE);
    EXPECT_EQ(next(enumerator, 1), "1:");
    EXPECT_EQ(enumerator->Skip(1), S_FALSE);
    EXPECT_EQ(next(enumerator, 0), "0:");

    CONNECTDATA data[2] = {};
    ULONG fetched = 7;
    EXPECT_EQ(enumerator->Next(1, nullptr, &fetched), E_POINTER);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(enumerator->Next(2, data, nullptr), E_POINTER);
    EXPECT_EQ(enumerator->Clone(nullptr), E_POINTER);
    enumerator.Release();
    clone.Release();
    EXPECT_THAT(references(), ElementsAre(1, 1, 1, 1, 1));
}

TEST_F(ConnectionTest, EveryLivingEnumeratorIsDisconnectedOnceAndStaysTheClients)
{
    static std::vector<IUnknown*> s_disconnected;
    const ImportHook<decltype(&CoDisconnectObject)> hook("CoDisconnectObject", [](LPUNKNOWN object, DWORD reserved) -> HRESULT {
        EXPECT_EQ(reserved, 0u);
        s_disconnected.push_back(object);
        return S_OK;
    });
    advise(m_sinks[0]);
    CComPtr<IEnumConnections> gone = enumerate();
    CComPtr<IEnumConnections> connections = enumerate();
    CComPtr<IEnumConnectionPoints> points;
    EXPECT_EQ(m_container->EnumConnectionPoints(&points), S_OK);
    gone.Release();
    AtlDisconnectEnumerators();
    CComPtr<IUnknown> first;
    CComPtr<IUnknown> second;
    EXPECT_EQ(connections.QueryInterface(&first), S_OK);
    EXPECT_EQ(points.QueryInterface(&second), S_OK);
    EXPECT_THAT(std::exchange(s_disconnected, {}), ElementsAre(first.p, second.p));
    first.Release();
    second.Release();
    EXPECT_EQ(next(connections, 1), "0: 0=1");
    EXPECT_EQ(connections.Detach()->Release(), 0u);
    EXPECT_EQ(points.Detach()->Release(), 0u);
    AtlDisconnectEnumerators();
    EXPECT_THAT(s_disconnected, ElementsAre());
}

// The end of the first would release what its list owns while the second can still hand out new references.
TEST_F(ConnectionTest, EnumeratorsEndOnlyWhenAllAreDisconnected)
{
    static std::vector<CComPtr<IEnumConnections>> s_clients;
    static std::vector<ULONG> s_references;
    s_references.clear();
    const ImportHook<decltype(&CoDisconnectObject)> hook("CoDisconnectObject", [](LPUNKNOWN object, DWORD) -> HRESULT {
        s_clients.clear(); // as COM does when it drops its own references
        object->AddRef();
        s_references.push_back(object->Release());
        return S_OK;
    });
    advise(m_sinks[0]);
    s_clients = {enumerate(), enumerate(), enumerate()};
    AtlDisconnectEnumerators();
    EXPECT_THAT(s_references, ElementsAre(1, 1, 1)) << "only the disconnection holds them";
    EXPECT_THAT(references(), ElementsAre(1, 0, 0, 0, 0)) << "they are gone, the connection is not";
}
