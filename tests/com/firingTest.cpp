// The event proxy and the client's sinks.
#include "tests/com/ComWorld.h"

#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using ClearHook = ImportHook<decltype(&VariantClear)>;

std::function<void(const VARIANT&)> s_onClear;

} // namespace

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
    EXPECT_EQ(point(object)->Unadvise(advise(object, first)), S_OK);
    EXPECT_EQ(fire(), S_OK) << "nothing but empty slots";
    EXPECT_THAT(stream.lines(), SizeIs(0));
}

// Through the interface that the bean frame uses.
TEST_F(FiringTest, EachEventHasItsNumberItsTextAndTheResultOfTheSink)
{
    advise(object, first);
    EventTarget* const target = eventTarget();
    ASSERT_NE(target, nullptr);
    EXPECT_EQ(target->targetUnknown(), static_cast<IJavaManager*>(object.p));
    for (const HRESULT answer : {S_OK, S_FALSE, E_ABORT}) {
        first.calls.clear();
        first.answer = answer;
        EXPECT_EQ(target->Fire_testBridgeEvent(CComBSTR(L"bridge")), answer);
        EXPECT_EQ(target->Fire_controlReady(CComBSTR(L"")), answer);
        EXPECT_EQ(target->Fire_customEvent(nullptr), answer);
        EXPECT_THAT(first.calls, ElementsAre("2 bridge", "3 ", "4 "));
    }
}

TEST_F(FiringTest, EachSinkGetsACopyOfTheText)
{
    advise(object, first);
    advise(object, second);
    const CComBSTR text(L"shared");
    first.onCall = [&] {
        EXPECT_NE(first.lastText, text.m_str);
        first.lastText[0] = L'X'; // the next sink does not see what this one does to its copy
    };
    EXPECT_EQ(object->Fire_customEvent(text), S_OK);
    EXPECT_THAT(second.calls, ElementsAre("4 shared"));
    EXPECT_STREQ(text.m_str, L"shared");
}

TEST_F(FiringTest, CopyIsClearedBeforeItsSinkIsReleasedAndTheNextCalled)
{
    advise(object, first);
    advise(object, second);
    const ULONG references = first.references;
    int cleared = 0;
    s_onClear = [&](const VARIANT& variant) {
        const RecordingSink& sink = cleared == 0 ? first : second;
        EXPECT_EQ(variant.bstrVal, sink.lastText);
        EXPECT_EQ(sink.references, references + 1) << "still held";
        EXPECT_THAT(second.calls, SizeIs(cleared));
        ++cleared;
    };
    {
        const ClearHook hook("VariantClear", [](VARIANT* variant) {
            s_onClear(*variant);
            return ClearHook::s_original(variant);
        });
        EXPECT_EQ(fire(), S_OK);
    }
    EXPECT_EQ(cleared, 2);
    EXPECT_EQ(first.referencesInCall, references + 1);
    EXPECT_EQ(first.references, references);
    EXPECT_EQ(second.references, references);
}

TEST_F(FiringTest, ExhaustedMemoryForTheCopyIsRaised)
{
    advise(object, first);
    const ULONG references = first.references;
    const CComBSTR text(L"text");
    const ImportHook<decltype(&SysAllocStringByteLen)> hook("SysAllocStringByteLen",
                                                            [](LPCSTR, UINT) -> BSTR { return nullptr; });
    EXPECT_EQ(AtlGuard([&] { return object->Fire_customEvent(text); }), E_OUTOFMEMORY);
    EXPECT_EQ(first.references, references);
    EXPECT_THAT(first.calls, IsEmpty());
}

TEST_F(FiringTest, FailingSinkDoesNotStopTheNextAndTheLastResultCounts)
{
    first.answer = E_ACCESSDENIED;
    advise(object, first);
    advise(object, second);
    EXPECT_EQ(fire(), S_OK);
    second.answer = RPC_E_DISCONNECTED;
    EXPECT_EQ(fire(), RPC_E_DISCONNECTED);
    EXPECT_EQ(fire(), RPC_E_DISCONNECTED);
    EXPECT_THAT(second.calls, SizeIs(3)) << "it stays connected";
    EXPECT_THAT(stream.lines(), SizeIs(0)) << "nothing is logged";
}

TEST_F(FiringTest, SinkThatUnadvisesItselfLeavesTheOthers)
{
    advise(object, first);
    const DWORD cookie = advise(object, second);
    advise(object, third);
    second.onCall = [&] { EXPECT_EQ(point(object)->Unadvise(cookie), S_OK); };
    EXPECT_EQ(fire(L"one"), S_OK);
    EXPECT_EQ(second.references, 0u);
    EXPECT_EQ(point(object)->Unadvise(cookie), CONNECT_E_NOCONNECTION) << "its slot is empty";
    EXPECT_EQ(fire(L"two"), S_OK);
    EXPECT_THAT(first.calls, ElementsAre("4 one", "4 two"));
    EXPECT_THAT(second.calls, ElementsAre("4 one"));
    EXPECT_THAT(third.calls, ElementsAre("4 one", "4 two"));
}

TEST_F(FiringTest, SinkThatUnadvisesALaterOneIsTheLastToBeCalled)
{
    advise(object, first);
    const DWORD cookie = advise(object, second);
    first.answer = E_ABORT;
    first.onCall = [&] { point(object)->Unadvise(cookie); };
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
    EXPECT_THAT(second.calls, ElementsAre("4 two"));
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
    EXPECT_THAT(second.calls, ElementsAre("4 inner", "4 outer"));
}

// Events of Java go to the sinks of the first object, testBridge's own answers to those of the object that was called.
TEST_F(FiringTest, EachObjectHasItsOwnSinks)
{
    NativeEnvironment environment;
    const CComPtr<Object> other = create();
    advise(object, first);
    advise(other, second);
    EXPECT_EQ(other->testBridge(CComBSTR(L"abc"), 1, 0), S_OK);
    CBeanFrame::NativeOnCustomEvent(environment.env(), nullptr, NativeEnvironment::text("raised"));
    EXPECT_EQ(CBeanFrame::processEventQueue(), S_OK);
    EXPECT_THAT(first.calls, ElementsAre("4 raised"));
    EXPECT_THAT(second.calls, ElementsAre("2 abcSs"));
}

// The queue holds the object while it fires: the client may release its last reference inside its sink.
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
    EXPECT_THAT(first.calls, ElementsAre("4 last"));
    EXPECT_THAT(second.calls, ElementsAre("4 last")) << "the round goes on to its end";
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_EQ(first.references + second.references, 0u);
    EXPECT_EQ(module.locks, 0);
}
