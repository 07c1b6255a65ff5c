// Conversions between client strings and Java strings, the shared text, and operations in which a conversion fails.
#include "tests/javabridge/BridgeFixture.h"

#include "atl/atl.h"
#include "javabridge/JNIHelper.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/ImportHook.h"

#include <format>
#include <functional>

namespace {

using NarrowHook = ImportHook<decltype(&WideCharToMultiByte)>;
using WideHook = ImportHook<decltype(&MultiByteToWideChar)>;
using AllocateHook = ImportHook<decltype(&SysAllocStringLen)>;
using FreeHook = ImportHook<decltype(&SysFreeString)>;

const BSTR UNTOUCHED = reinterpret_cast<BSTR>(-1);
const std::wstring WITH_ZERO = {L'a', L'\0', L'b'};

HRESULT errorOf(const std::function<void()>& convert)
{
    try {
        convert();
    } catch (const CAtlException& exception) {
        return exception.m_hr;
    }
    return S_OK;
}

const HRESULT REFUSED = HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION);

class StringTest : public BridgeTest
{
protected:
    StringTest() { EXPECT_EQ(GetACP(), 1252u) << "the texts of these tests are in Windows-1252"; }

    std::string reaches(BSTR text)
    {
        java.takeCalls();
        EXPECT_NE(JNIHelper::bstrToJavaString(java.env(), text), nullptr);
        return java.takeCalls().front();
    }
};

TEST_F(StringTest, BstrReachesJavaInTheAnsiCodePageUpToItsFirstZero)
{
    EXPECT_EQ(reaches(nullptr), "NewStringUTF()");
    EXPECT_EQ(reaches(CComBSTR(L"")), "NewStringUTF()");
    EXPECT_EQ(reaches(CComBSTR(L"\u00E4\u00F6\u00FC \u20AC")), "NewStringUTF(\xE4\xF6\xFC \x80)");
    EXPECT_EQ(reaches(CComBSTR(L"\u4E2D\u6587!")), "NewStringUTF(\?\?!)");
    EXPECT_EQ(reaches(CComBSTR(L"\u0100")), "NewStringUTF(A)") << "the letter that comes closest";
    EXPECT_EQ(reaches(CComBSTR(WITH_ZERO.data(), WITH_ZERO.size())), "NewStringUTF(a)");
}

TEST_F(StringTest, JavaStringBecomesANewBstrOfItsBytesAsAnsiText)
{
    for (const auto& [text, expected] : {std::pair{java.localString("\xC3\xA4"), L"\u00C3\u00A4"},
                                         {java.localString("\x81"), L"\u0081"}, // also a byte that stands for no letter
                                         {java.localString(""), L""},
                                         {nullptr, L""}}) {
        CComBSTR result;
        java.takeCalls();
        JNIHelper::javaStringToBstr(&result, java.env(), text);
        EXPECT_STREQ(result, expected);
        EXPECT_EQ(java.takeCalls().size(), text == nullptr ? 0u : 2u);
    }
}

TEST_F(StringTest, JavaStringBecomesASharedText)
{
    SharedText text;
    JNIHelper::javaStringToText(&text, java.env(), java.localString("\xC3\xA4"));
    EXPECT_STREQ(text.bstr(), L"\u00C3\u00A4");
    EXPECT_STREQ(text.narrow(), "\xC3\xA4");
    EXPECT_LINES(log.take(), Strings{
                                 "FINE -> JNIHelper: javaStringToText",
                                 "TRACE JNIHelper: _bstr!=NULL: true",
                                 "TRACE JNIHelper: env!=NULL: true",
                                 "GetStringUTFChars(\"\xC3\xA4\")",
                                 "ReleaseStringUTFChars(\"\xC3\xA4\")",
                             });
    JNIHelper::javaStringToText(&text, java.env(), nullptr);
    EXPECT_EQ(java.takeCalls().back(), "GetStringUTFChars(null)") << "a null string goes to the machine as it is";
    EXPECT_EQ(text.bstr(), nullptr);
}

TEST_F(StringTest, MissingOutputOrEnvironmentEndsTheConversion)
{
    BSTR result = UNTOUCHED;
    SharedText text("before");
    JNIHelper::javaStringToBstr(nullptr, java.env(), nullptr);
    JNIHelper::javaStringToBstr(&result, nullptr, nullptr);
    JNIHelper::javaStringToText(nullptr, java.env(), nullptr);
    JNIHelper::javaStringToText(&text, nullptr, nullptr);
    EXPECT_LINES(log.takeErrors(), R"(
        JNIHelper: result!=NULL: false
        JNIHelper: env!=NULL: false
        JNIHelper: _bstr!=NULL: false
        JNIHelper: env!=NULL: false
    )");
    EXPECT_EQ(result, UNTOUCHED);
    EXPECT_STREQ(text.narrow(), "before");
    EXPECT_LINES(java.takeCalls(), Strings{});
}

TEST_F(StringTest, ExhaustedMemoryIsAnAllocationFailure)
{
    const std::string narrow(FailingAllocations::LARGE, 'x');
    const CComBSTR bstr(std::wstring(FailingAllocations::LARGE, L'x').c_str());
    SharedText text(bstr.m_str);
    SharedText other("before");
    BSTR result = UNTOUCHED;
    const FailingAllocations failing(FailingAllocations::Kind::Large);
    const AllocateHook hook("SysAllocStringLen", [](const OLECHAR*, UINT) { return static_cast<BSTR>(nullptr); });
    EXPECT_EQ(errorOf([&] { SharedText(narrow.c_str()); }), E_OUTOFMEMORY);
    EXPECT_EQ(errorOf([&] { text.narrow(); }), E_OUTOFMEMORY);
    EXPECT_EQ(errorOf([&] { text.append("x"); }), E_OUTOFMEMORY);
    EXPECT_EQ(errorOf([&] { JNIHelper::bstrToJavaString(java.env(), bstr); }), E_OUTOFMEMORY);
    for (const int nullFrom : {2, 1}) { // for a BSTR, then also for the characters that it is made of
        java.takeCalls();
        java.nullFrom = {{"GetStringUTFChars", nullFrom}};
        EXPECT_EQ(errorOf([&] { JNIHelper::javaStringToBstr(&result, java.env(), java.localString("x")); }), E_OUTOFMEMORY);
        java.takeCalls();
        EXPECT_EQ(errorOf([&] { JNIHelper::javaStringToText(&other, java.env(), java.localString("x")); }), E_OUTOFMEMORY);
    }
    EXPECT_EQ(result, UNTOUCHED);
    EXPECT_STREQ(other.narrow(), "before");
    EXPECT_EQ(SysStringLen(text.bstr()), FailingAllocations::LARGE) << "the text is what it was";
}

class ConversionTest : public BridgeTest
{
protected:
    ConversionTest()
    {
        haveControl();
        Logger::setMaxLogLevel(LOGLEVEL_WARN); // the log converts texts too
    }
    // Runs an operation whose conversions fail after so many calls, two for each text; negative: never.
    HRESULT refuse(int callsUntilRefusal, const std::function<void()>& operation)
    {
        const auto isRefused = [&](const std::string& conversion) {
            conversions.push_back(conversion);
            if (callsUntilRefusal == 0) {
                SetLastError(ERROR_NO_UNICODE_TRANSLATION);
                return true;
            }
            callsUntilRefusal--;
            return false;
        };
        const NarrowHook narrow("WideCharToMultiByte", [&](UINT page, DWORD flags, auto from, int length, LPSTR to, int size,
                                                           LPCCH fallback, LPBOOL used) {
            const char* const added = fallback == nullptr && used == nullptr ? "" : " with a default";
            return isRefused(std::format("{} {}{}", page, flags, added))
                       ? 0
                       : NarrowHook::s_original(page, flags, from, length, to, size, fallback, used);
        });
        const WideHook wide("MultiByteToWideChar", [&](UINT page, DWORD flags, auto... rest) {
            return isRefused(std::format("{} {}", page, flags)) ? 0 : WideHook::s_original(page, flags, rest...);
        });
        return errorOf(operation);
    }
    void noteFree(BSTR text)
    {
        if (text != nullptr) {
            java.note("SysFreeString(" + narrowText(text) + ")");
        }
        FreeHook::s_original(text);
    }

    Strings conversions; // "PAGE FLAGS" of every one
    const CComBSTR text{L"text"};
};

TEST_F(ConversionTest, GoesThroughTheAnsiCodePageWithoutFlagsAndItsRefusalIsTheErrorThatWindowsGave)
{
    static_assert(CP_ACP == 0);
    BSTR result = UNTOUCHED;
    SharedText shared("before");
    const std::function<void()> operations[] = {
        [&] { JNIHelper::bstrToJavaString(java.env(), text); },
        [&] { JNIHelper::javaStringToBstr(&result, java.env(), java.localString("text")); },
        [&] { JNIHelper::javaStringToText(&shared, java.env(), java.localString("text")); },
        [&] { SharedText(text.m_str).narrow(); },
        [&] { shared.append("text"); },
    };
    for (const auto& convert : operations) {
        result = UNTOUCHED;
        for (const int callsUntilRefusal : {0, 1}) { // the first one asks for the size
            const SharedText before = shared;
            EXPECT_EQ(refuse(callsUntilRefusal, convert), REFUSED);
            EXPECT_EQ(result, UNTOUCHED);
            EXPECT_EQ(shared.bstr(), before.bstr());
        }
        conversions.clear();
        EXPECT_EQ(refuse(-1, convert), S_OK);
        EXPECT_LINES(conversions, Strings(2, "0 0"));
        if (result != UNTOUCHED) {
            SysFreeString(result);
        }
    }
}

TEST_F(ConversionTest, RefusalInAForwardedCallReleasesItsReferences)
{
    BSTR result = UNTOUCHED;
    Strings ends;
    for (const int callsUntilRefusal : {0, 2, 4}) {
        EXPECT_EQ(refuse(callsUntilRefusal, [&] { client.setProperty(bean, text, text, &result); }), REFUSED);
        const Strings calls = java.takeCalls();
        ends.push_back(std::to_string(calls.size()) + " calls, the last one is " + calls.back());
    }
    EXPECT_LINES(ends, R"(
        1 calls, the last one is GetMethodID(class a/b/Bean, setProperty, (Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;)
        3 calls, the last one is DeleteLocalRef("text")
        10 calls, the last one is DeleteLocalRef("answer of setProperty")
    )");
    EXPECT_EQ(result, UNTOUCHED);
    EXPECT_LINES(java.liveLocals(), CLASSES);
}

TEST_F(ConversionTest, AnswerOfTheBeansCleanUpThatIsRefusedDoesNotEndTheRelease)
{
    log.take();
    EXPECT_EQ(refuse(0, [&] { EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK); }), S_OK);
    EXPECT_LINES(log.take("WARN"), "The answer of free was not converted: 80070459");
    EXPECT_LINES(java.liveGlobals(), Strings{});
    EXPECT_LINES(java.liveLocals(), CLASSES);
    EXPECT_EQ(java.takeCalls().back(), "DeleteGlobalRef(global listener)");
}

TEST_F(ConversionTest, AnswerOfTheBeansCleanUpIsFreedAtOnce)
{
    {
        const FreeHook hook("SysFreeString", [this](BSTR text) { noteFree(text); });
        EXPECT_EQ(client.stopBean(bean, nullptr, nullptr), S_OK);
    }
    const Strings calls = java.takeCalls();
    EXPECT_EQ(calls.at(5), "DeleteLocalRef(\"answer of free\")");
    EXPECT_EQ(calls.at(6), "SysFreeString(answer of free)");
    EXPECT_EQ(std::ranges::count_if(calls, [](const std::string& call) { return call.starts_with("SysFree"); }), 1);
}

TEST_F(ConversionTest, FormerContentOfAResultIsLeftAlone)
{
    const CComBSTR before(L"before");
    BSTR results[] = {before.m_str, before.m_str, before.m_str};
    {
        const FreeHook hook("SysFreeString", [this](BSTR text) { noteFree(text); });
        EXPECT_EQ(client.free(bean, &results[0]), S_OK);
        java.outcomes["free"] = RecordingJni::answersNull();
        EXPECT_EQ(client.free(bean, &results[1]), S_OK);
        java.outcomes["free"] = RecordingJni::throws("java.lang.Error", "x");
        EXPECT_EQ(client.free(bean, &results[2]), E_FAIL);
    }
    for (const std::string& call : java.takeCalls()) {
        EXPECT_FALSE(call.starts_with("SysFreeString")) << call;
    }
    EXPECT_STREQ(results[0], L"answer of free");
    EXPECT_STREQ(results[1], L"");
    EXPECT_EQ(results[2], before.m_str);
    SysFreeString(results[0]);
    SysFreeString(results[1]);
}

TEST(SharedTextTest, EmptyTextIsABstrAndNoTextIsNull)
{
    for (const SharedText& none :
         {SharedText(), SharedText(static_cast<BSTR>(nullptr)), SharedText(static_cast<const char*>(nullptr))}) {
        EXPECT_EQ(none.bstr(), nullptr);
        EXPECT_STREQ(none.narrow(), "");
    }
    for (const SharedText& empty : {SharedText(""), SharedText(CComBSTR(L"").m_str)}) {
        ASSERT_NE(empty.bstr(), nullptr);
        EXPECT_EQ(SysStringLen(empty.bstr()), 0u);
        EXPECT_STREQ(empty.narrow(), "");
    }
}

TEST(SharedTextTest, CopiesShareOneRecordUntilOneIsChanged)
{
    const CComBSTR source(L"abc");
    const SharedText first(source.m_str);
    EXPECT_NE(first.bstr(), source.m_str) << "the BSTR is copied";
    SharedText second = first;
    EXPECT_EQ(first.bstr(), second.bstr());
    EXPECT_STREQ(second.narrow(), "abc");
    second.append("js");
    EXPECT_STREQ(second.bstr(), L"abcjs");
    EXPECT_STREQ(second.narrow(), "abcjs");
    EXPECT_STREQ(first.bstr(), L"abc");
    EXPECT_STREQ(first.narrow(), "abc");
}

TEST(SharedTextTest, AppendingToNothing)
{
    SharedText text;
    text.append(nullptr);
    EXPECT_EQ(text.bstr(), nullptr);
    text.append("");
    ASSERT_NE(text.bstr(), nullptr);
    text.append("js");
    EXPECT_STREQ(text.bstr(), L"js");
}

TEST(SharedTextTest, EmbeddedZerosAreKept)
{
    const SharedText text(CComBSTR(WITH_ZERO.data(), WITH_ZERO.size()).m_str);
    EXPECT_EQ(SysStringLen(text.bstr()), 3u);
    EXPECT_EQ(std::string(text.narrow(), 3), std::string("a\0b", 3));
    SharedText longer = text;
    longer.append("!");
    EXPECT_EQ(SysStringLen(longer.bstr()), 4u);
    EXPECT_EQ(longer.bstr()[3], L'!');
}

} // namespace
