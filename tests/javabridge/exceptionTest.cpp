// Capture of Java exceptions, and the conversions between client strings and Java strings.
#include "tests/javabridge/BridgeFixture.h"

#include "atl/atl.h"
#include "javabridge/JNIHelper.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/ImportHook.h"

#include <functional>

namespace {

class ExceptionTest : public BridgeTest
{
};

TEST_F(ExceptionTest, WithoutExceptionNothingIsLogged)
{
    EXPECT_TRUE(client.checkNoJNIException());
    EXPECT_STRINGS(java.takeCalls(), Strings{"ExceptionCheck()"});
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE checkNoJNIException "});
    EXPECT_STRINGS(log.takeStatements(), Strings{});
}

TEST_F(ExceptionTest, ExceptionIsLoggedAndClearedAtTheEnd)
{
    java.raise("com.example.Failure", "the reason");
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_STRINGS(java.takeCalls(), captureCalls("com.example.Failure", "the reason"));
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR Exception: com.example.Failure: the reason\n"});
    EXPECT_FALSE(java.isPending());
    EXPECT_STRINGS(java.liveLocals(), Strings{"class com.example.Failure", "class java/lang/Class"});
}

TEST_F(ExceptionTest, ExceptionWithoutMessage)
{
    java.raise("com.example.Failure", {});
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR Exception: com.example.Failure: \n"});
    EXPECT_STRINGS(java.takeCalls(), Strings{
                                         "ExceptionCheck() [pending]",
                                         "ExceptionOccurred() [pending]",
                                         "GetObjectClass(throwable com.example.Failure) [pending]",
                                         "FindClass(java/lang/Class) [pending]",
                                         "GetMethodID(class java/lang/Class, getName, ()Ljava/lang/String;) [pending]",
                                         "CallObjectMethod(class com.example.Failure, getName) [pending]",
                                         "GetStringUTFChars(\"com.example.Failure\") [pending]",
                                         "GetMethodID(class com.example.Failure, getMessage, ()Ljava/lang/String;) [pending]",
                                         "CallObjectMethod(throwable com.example.Failure, getMessage) [pending]",
                                         "ReleaseStringUTFChars(\"com.example.Failure\") [pending]",
                                         "DeleteLocalRef(\"com.example.Failure\") [pending]",
                                         "DeleteLocalRef(throwable com.example.Failure) [pending]",
                                         "ExceptionClear() [pending]",
                                     });
}

TEST_F(ExceptionTest, ExceptionWhoseNameIsNull)
{
    java.raise("com.example.Failure", "the reason");
    java.outcomes["getName"] = RecordingJni::answersNull();
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR Exception: (null name): the reason\n"});
    EXPECT_FALSE(java.isPending());
    EXPECT_STRINGS(java.takeCalls(), Strings{
                                         "ExceptionCheck() [pending]",
                                         "ExceptionOccurred() [pending]",
                                         "GetObjectClass(throwable com.example.Failure) [pending]",
                                         "FindClass(java/lang/Class) [pending]",
                                         "GetMethodID(class java/lang/Class, getName, ()Ljava/lang/String;) [pending]",
                                         "CallObjectMethod(class com.example.Failure, getName) [pending]",
                                         "GetMethodID(class com.example.Failure, getMessage, ()Ljava/lang/String;) [pending]",
                                         "CallObjectMethod(throwable com.example.Failure, getMessage) [pending]",
                                         "GetStringUTFChars(\"the reason\") [pending]",
                                         "ReleaseStringUTFChars(\"the reason\") [pending]",
                                         "DeleteLocalRef(\"the reason\") [pending]",
                                         "DeleteLocalRef(throwable com.example.Failure) [pending]",
                                         "ExceptionClear() [pending]",
                                     });
}

TEST_F(ExceptionTest, ExceptionThatFailsToExplainItself)
{
    java.raise("com.example.Failure", "the reason");
    java.outcomes["getName"] = RecordingJni::throws("java.lang.Error", "no name");
    java.outcomes["getMessage"] = RecordingJni::throws("java.lang.Error", "no message");
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR Exception: (null name): \n"});
    EXPECT_EQ(java.takeCalls().back(), "ExceptionClear() [pending]");
    EXPECT_FALSE(java.isPending());
    EXPECT_STRINGS(java.liveLocals(), Strings{"class com.example.Failure", "class java/lang/Class"});
}

TEST_F(ExceptionTest, MissingMethodsOfTheExceptionGiveDefaults)
{
    java.raise("com.example.Failure", "the reason");
    java.missing = {"getName", "getMessage"};
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR Exception: (null name): \n"});
    EXPECT_STRINGS(java.takeCalls(), Strings{
                                         "ExceptionCheck() [pending]",
                                         "ExceptionOccurred() [pending]",
                                         "GetObjectClass(throwable com.example.Failure) [pending]",
                                         "FindClass(java/lang/Class) [pending]",
                                         "GetMethodID(class java/lang/Class, getName, ()Ljava/lang/String;) [pending]",
                                         "GetMethodID(class com.example.Failure, getMessage, ()Ljava/lang/String;) [pending]",
                                         "DeleteLocalRef(throwable com.example.Failure) [pending]",
                                         "ExceptionClear() [pending]",
                                     });
    EXPECT_TRUE(client.checkNoJNIException()) << "nothing is left pending";
    EXPECT_STRINGS(java.takeCalls(), Strings{"ExceptionCheck()"}) << "and nothing more is cleared";
}

TEST_F(ExceptionTest, ExceptionWithoutThrowableStaysPending)
{
    java.raise("com.example.Failure", "the reason");
    java.nullFrom["ExceptionOccurred"] = 1;
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_STRINGS(java.takeCalls(), Strings{"ExceptionCheck() [pending]", "ExceptionOccurred() [pending]"});
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR Exception: Could not get throwable object for details!"});
    EXPECT_TRUE(java.isPending());
}

TEST_F(ExceptionTest, ExceptionWithoutClassIsUnknown)
{
    java.raise("com.example.Failure", "the reason");
    java.nullFrom["GetObjectClass"] = 1;
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"ExceptionCheck() [pending]", "ExceptionOccurred() [pending]",
                           "GetObjectClass(throwable com.example.Failure) [pending]", "FindClass(java/lang/Class) [pending]",
                           "DeleteLocalRef(throwable com.example.Failure) [pending]", "ExceptionClear() [pending]"});
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR Exception: unknown"});
}

TEST_F(ExceptionTest, ExceptionIsUnknownWithoutTheClassOfClasses)
{
    java.raise("com.example.Failure", "the reason");
    java.missing = {"java/lang/Class"};
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR Exception: unknown"});
    EXPECT_FALSE(java.isPending());
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"ExceptionCheck() [pending]", "ExceptionOccurred() [pending]",
                           "GetObjectClass(throwable com.example.Failure) [pending]", "FindClass(java/lang/Class) [pending]",
                           "DeleteLocalRef(throwable com.example.Failure) [pending]", "ExceptionClear() [pending]"});
    EXPECT_STRINGS(java.liveLocals(), Strings{"class com.example.Failure"});
}

TEST_F(ExceptionTest, ExceptionLineEndsInItsOwnLineFeedBesidesTheEntrys)
{
    java.raise("com.example.Failure", "the reason");
    client.checkNoJNIException();
    const Strings texts = log.stream().texts();
    EXPECT_EQ(std::count_if(texts.begin(), texts.end(),
                            [](const std::string& text) { return text.ends_with("com.example.Failure: the reason\n\n"); }),
              1);
}

TEST_F(ExceptionTest, ErrorOfAFailedLookUpIsNoException)
{
    java.missing = {"setVisible"};
    haveControl();
    client.setFrameVisible(frame, true);
    EXPECT_TRUE(java.isPending());
    EXPECT_TRUE(client.checkNoJNIException());
    EXPECT_FALSE(java.isPending());
    java.raise("com.example.Failure", "raised by a call");
    EXPECT_FALSE(client.checkNoJNIException()) << "a noted look-up is forgiven once, nothing else is";
}

const std::string UMLAUTS_ANSI = "\xE4\xF6\xFC \x80";      // in Windows-1252
const std::wstring UMLAUTS = L"\u00E4\u00F6\u00FC \u20AC"; // the same text
const std::string UMLAUT_UTF = "\xC3\xA4";                 // what Java calls a-umlaut
const std::wstring UMLAUT_UTF_AS_ANSI = L"\u00C3\u00A4";   // those two bytes as two letters
const std::wstring WITH_ZERO = {L'a', L'\0', L'b'};

class StringTest : public BridgeTest
{
protected:
    StringTest() { EXPECT_EQ(GetACP(), 1252u) << "the texts of these tests are in Windows-1252"; }
};

TEST_F(StringTest, BstrReachesJavaInTheAnsiCodePage)
{
    EXPECT_NE(JNIHelper::bstrToJavaString(java.env(), CComBSTR(L"plain")), nullptr);
    EXPECT_NE(JNIHelper::bstrToJavaString(java.env(), CComBSTR(UMLAUTS.c_str())), nullptr);
    EXPECT_STRINGS(java.takeCalls(), Strings{"NewStringUTF(plain)", "NewStringUTF(" + UMLAUTS_ANSI + ")"});
    EXPECT_STRINGS(log.takeStatements(), Strings{});
}

TEST_F(StringTest, CharactersOutsideTheCodePageBecomeQuestionMarks)
{
    JNIHelper::bstrToJavaString(java.env(), CComBSTR(L"\u4E2D\u6587!"));
    EXPECT_STRINGS(java.takeCalls(), Strings{"NewStringUTF(\?\?!)"});
    JNIHelper::bstrToJavaString(java.env(), CComBSTR(L"\u0100"));
    EXPECT_STRINGS(java.takeCalls(), Strings{"NewStringUTF(A)"}) << "or the letter that comes closest";
}

TEST_F(StringTest, NullAndEmptyBstrReachJavaAsEmptyText)
{
    JNIHelper::bstrToJavaString(java.env(), nullptr);
    JNIHelper::bstrToJavaString(java.env(), CComBSTR(L""));
    EXPECT_STRINGS(java.takeCalls(), Strings{"NewStringUTF()", "NewStringUTF()"});
}

TEST_F(StringTest, BstrIsConvertedWholeAndJavaStopsAtItsFirstZero)
{
    EXPECT_EQ(narrowText(CComBSTR(WITH_ZERO.data(), WITH_ZERO.size())), std::string("a\0b", 3));
    JNIHelper::bstrToJavaString(java.env(), CComBSTR(WITH_ZERO.data(), WITH_ZERO.size()));
    EXPECT_STRINGS(java.takeCalls(), Strings{"NewStringUTF(a)"});
}

TEST_F(StringTest, JavaStringBecomesANewBstr)
{
    CComBSTR result;
    const jstring text = java.localString("from Java");
    JNIHelper::javaStringToBstr(&result, java.env(), text);
    EXPECT_STREQ(result, L"from Java");
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetStringUTFChars(\"from Java\")", "ReleaseStringUTFChars(\"from Java\")"});
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE result!=NULL: true", "TRACE env!=NULL: true"});
    EXPECT_STRINGS(java.liveLocals(), Strings{"\"from Java\""}) << "the reference stays the caller's";
}

TEST_F(StringTest, BytesOfJavaTextAreTakenAsAnsiText)
{
    CComBSTR result;
    JNIHelper::javaStringToBstr(&result, java.env(), java.localString(UMLAUT_UTF));
    EXPECT_STREQ(result, UMLAUT_UTF_AS_ANSI.c_str());
    JNIHelper::javaStringToBstr(&result, java.env(), java.localString("\x81"));
    EXPECT_STREQ(result, L"\u0081") << "also a byte that stands for no letter";
}

TEST_F(StringTest, NullAndEmptyJavaStringsBecomeEmptyBstrs)
{
    CComBSTR result;
    JNIHelper::javaStringToBstr(&result, java.env(), nullptr);
    ASSERT_NE(result.m_str, nullptr);
    EXPECT_EQ(result.Length(), 0u);
    EXPECT_STRINGS(java.takeCalls(), Strings{});
    JNIHelper::javaStringToBstr(&result, java.env(), java.localString(""));
    ASSERT_NE(result.m_str, nullptr);
    EXPECT_EQ(result.Length(), 0u);
}

TEST_F(StringTest, MissingOutputOrEnvironmentEndsTheConversion)
{
    JNIHelper::javaStringToBstr(nullptr, java.env(), nullptr);
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR result!=NULL: false"});
    BSTR result = reinterpret_cast<BSTR>(-1);
    JNIHelper::javaStringToBstr(&result, nullptr, nullptr);
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE result!=NULL: true", "ERROR env!=NULL: false"});
    EXPECT_EQ(result, reinterpret_cast<BSTR>(-1));
    JNIHelper::javaStringToText(nullptr, java.env(), nullptr);
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR _bstr!=NULL: false"});
    SharedText text("before");
    JNIHelper::javaStringToText(&text, nullptr, nullptr);
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE _bstr!=NULL: true", "ERROR env!=NULL: false"});
    EXPECT_STREQ(text.narrow(), "before");
    EXPECT_STRINGS(java.takeCalls(), Strings{});
}

TEST_F(StringTest, CharactersThatJavaCannotGiveAreAnAllocationFailure)
{
    java.nullFrom["GetStringUTFChars"] = 1;
    CComBSTR result;
    SharedText text;
    for (const auto& convert :
         {+[](BSTR* to, SharedText*, JNIEnv* env, jstring from) { JNIHelper::javaStringToBstr(to, env, from); },
          +[](BSTR*, SharedText* to, JNIEnv* env, jstring from) { JNIHelper::javaStringToText(to, env, from); }}) {
        try {
            convert(&result, &text, java.env(), java.localString("x"));
            ADD_FAILURE() << "no exception";
        } catch (const CAtlException& exception) {
            EXPECT_EQ(exception.m_hr, E_OUTOFMEMORY);
        }
    }
}

TEST_F(StringTest, JavaStringBecomesASharedText)
{
    SharedText text;
    JNIHelper::javaStringToText(&text, java.env(), java.localString(UMLAUT_UTF));
    EXPECT_STREQ(text.bstr(), UMLAUT_UTF_AS_ANSI.c_str());
    EXPECT_STREQ(text.narrow(), UMLAUT_UTF.c_str());
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"GetStringUTFChars(\"" + UMLAUT_UTF + "\")", "ReleaseStringUTFChars(\"" + UMLAUT_UTF + "\")"});
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE _bstr!=NULL: true", "TRACE env!=NULL: true"});
}

TEST_F(StringTest, NullJavaStringOfACallbackGoesToTheMachineAsItIs)
{
    SharedText text("before");
    JNIHelper::javaStringToText(&text, java.env(), nullptr);
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetStringUTFChars(null)"});
    EXPECT_EQ(text.bstr(), nullptr);
}

TEST_F(StringTest, ConversionsOpenScopes)
{
    CComBSTR result;
    SharedText text;
    JNIHelper::bstrToJavaString(java.env(), nullptr);
    JNIHelper::javaStringToBstr(&result, java.env(), nullptr);
    JNIHelper::javaStringToText(&text, java.env(), java.localString(""));
    Strings entries;
    for (const fixtures::LogLine& line : log.stream().lines()) {
        if (line.body.find("-> ") != std::string::npos) {
            entries.push_back(line.level + " " + line.source + line.body);
        }
    }
    EXPECT_STRINGS(entries,
                   Strings{"FINE JNIHelper           -> bstrToJavaString ", "FINE JNIHelper           -> javaStringToBstr ",
                           "FINE JNIHelper           -> javaStringToText "});
}

TEST_F(StringTest, ExhaustedMemoryIsAnAllocationFailure)
{
    const std::string narrow(FailingAllocations::LARGE, 'x');
    const std::wstring wide(FailingAllocations::LARGE, L'x');
    const CComBSTR bstr(wide.c_str());
    SharedText text(bstr.m_str);
    const FailingAllocations failing(FailingAllocations::Kind::Large);
    const ImportHook<decltype(&SysAllocStringLen)> hook("SysAllocStringLen",
                                                        [](const OLECHAR*, UINT) { return static_cast<BSTR>(nullptr); });
    const std::function<void()> conversions[] = {
        [&] { narrowText(bstr); },           [&] { const CComBSTR copy(narrow.c_str()); },
        [&] { SharedText(narrow.c_str()); }, [&] { text.narrow(); },
        [&] { text.append("x"); },           [&] { JNIHelper::bstrToJavaString(java.env(), bstr); },
    };
    for (const auto& convert : conversions) {
        try {
            convert();
            ADD_FAILURE() << "no exception";
        } catch (const CAtlException& exception) {
            EXPECT_EQ(exception.m_hr, E_OUTOFMEMORY);
        }
    }
    EXPECT_EQ(SysStringLen(text.bstr()), FailingAllocations::LARGE) << "the text is what it was";
}

TEST_F(StringTest, ConvertingNothingIsNoError)
{
    EXPECT_EQ(narrowText(nullptr), "");
    EXPECT_EQ(narrowText(L"", 0), "");
}

TEST(SharedTextTest, EmptyTextIsABstrAndNoTextIsNull)
{
    EXPECT_EQ(SharedText().bstr(), nullptr);
    EXPECT_STREQ(SharedText().narrow(), "");
    EXPECT_EQ(SharedText(static_cast<BSTR>(nullptr)).bstr(), nullptr);
    EXPECT_EQ(SharedText(static_cast<const char*>(nullptr)).bstr(), nullptr);
    const SharedText empty("");
    ASSERT_NE(empty.bstr(), nullptr);
    EXPECT_EQ(SysStringLen(empty.bstr()), 0u);
    EXPECT_STREQ(empty.narrow(), "");
    const SharedText emptyBstr(CComBSTR(L"").m_str);
    EXPECT_NE(emptyBstr.bstr(), nullptr);
}

TEST(SharedTextTest, CopiesShareOneRecordUntilOneIsChanged)
{
    CComBSTR source(L"abc");
    SharedText first(source.m_str);
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
    SharedText longer = text;
    longer.append("!");
    EXPECT_EQ(SysStringLen(longer.bstr()), 4u);
    EXPECT_EQ(longer.bstr()[3], L'!');
}

} // namespace
