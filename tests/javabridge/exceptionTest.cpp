// Capture of Java exceptions, from the check for one to its line in the log.
#include "tests/javabridge/BridgeFixture.h"

namespace {

class ExceptionTest : public BridgeTest
{
protected:
    ExceptionTest() { java.raise("com.example.Failure", "the reason"); }
};

TEST_F(ExceptionTest, IsLoggedWhileItIsPendingAndClearedLast)
{
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_LINES(log.take(), R"(
        FINE -> checkNoJNIException
        ExceptionCheck() [pending]
        ExceptionOccurred() [pending]
        GetObjectClass(throwable com.example.Failure) [pending]
        FindClass(java/lang/Class) [pending]
        GetMethodID(class java/lang/Class, getName, ()Ljava/lang/String;) [pending]
        CallObjectMethod(class com.example.Failure, getName) [pending]
        GetStringUTFChars("com.example.Failure") [pending]
        GetMethodID(class com.example.Failure, getMessage, ()Ljava/lang/String;) [pending]
        CallObjectMethod(throwable com.example.Failure, getMessage) [pending]
        GetStringUTFChars("the reason") [pending]
        ERROR Exception: com.example.Failure: the reason\n
        ReleaseStringUTFChars("the reason") [pending]
        DeleteLocalRef("the reason") [pending]
        ReleaseStringUTFChars("com.example.Failure") [pending]
        DeleteLocalRef("com.example.Failure") [pending]
        DeleteLocalRef(throwable com.example.Failure) [pending]
        ExceptionClear() [pending]
    )");
    EXPECT_LINES(java.liveLocals(), Strings{"class com.example.Failure", "class java/lang/Class"});
    EXPECT_TRUE(client.checkNoJNIException());
    EXPECT_LINES(log.take(), Strings{"FINE -> checkNoJNIException", "ExceptionCheck()"});
}

TEST_F(ExceptionTest, WithoutAnswersAndMethodsIsLoggedWithWhatThereIs)
{
    const auto null = RecordingJni::answersNull();
    const auto thrown = RecordingJni::throws("java.lang.Error", "no answer");
    const struct
    {
        std::map<std::string, RecordingJni::Outcome> outcomes;
        std::set<std::string> missing;
        std::map<std::string, int> nullFrom;
        std::string error;
        Strings calls; // that are not made
    } cases[] = {
        {{{"getMessage", null}}, {}, {}, "com.example.Failure: ", {"(\"the reason\")"}},
        {{{"getName", null}}, {}, {}, "(null name): the reason", {"(\"com.example.Failure\")"}},
        {{{"getName", thrown}, {"getMessage", thrown}},
         {},
         {},
         "(null name): ",
         {"(\"com.example.Failure\")", "(\"the reason\")"}},
        {{},
         {"getName", "getMessage"},
         {},
         "(null name): ",
         {"(\"com.example.Failure\")", "(\"the reason\")", "CallObjectMethod("}},
        {{}, {}, {{"GetStringUTFChars", 1}}, "(null name): ", {"ReleaseStringUTFChars("}},
    };
    for (const auto& one : cases) {
        java.outcomes = one.outcomes;
        java.missing = one.missing;
        java.nullFrom = one.nullFrom;
        java.raise("com.example.Failure", "the reason");
        EXPECT_FALSE(client.checkNoJNIException());
        EXPECT_LINES(log.takeErrors(), Strings{"Exception: " + one.error + "\\n"});
        Strings expected = captureCalls("com.example.Failure", "the reason");
        std::erase_if(expected, [&](const std::string& call) {
            return std::ranges::any_of(one.calls, [&](const std::string& part) { return call.find(part) != std::string::npos; });
        });
        EXPECT_LINES(java.takeCalls(), expected);
        EXPECT_FALSE(java.isPending());
    }
}

TEST_F(ExceptionTest, WithoutClassesIsUnknown)
{
    const Strings expected = linesOf(R"(
        FINE -> checkNoJNIException
        ExceptionCheck() [pending]
        ExceptionOccurred() [pending]
        GetObjectClass(throwable com.example.Failure) [pending]
        FindClass(java/lang/Class) [pending]
        ERROR Exception: unknown
        DeleteLocalRef(throwable com.example.Failure) [pending]
        ExceptionClear() [pending]
    )");
    java.nullFrom = {{"GetObjectClass", 1}};
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_LINES(log.take(), expected);
    java.raise("com.example.Failure", "the reason");
    java.nullFrom = {};
    java.missing = {"java/lang/Class"};
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_LINES(log.take(), expected);
}

TEST_F(ExceptionTest, WithoutObjectStaysPending)
{
    java.nullFrom = {{"ExceptionOccurred", 1}};
    EXPECT_FALSE(client.checkNoJNIException());
    EXPECT_LINES(log.take(), R"(
        FINE -> checkNoJNIException
        ExceptionCheck() [pending]
        ExceptionOccurred() [pending]
        ERROR Exception: Could not get throwable object for details!
    )");
    EXPECT_TRUE(java.isPending());
}

TEST_F(ExceptionTest, OfAFailedLookUpHasTheBacktraceOfItsOperation)
{
    client.checkNoJNIException();
    haveControl();
    java.missing = {"setVisible"};
    forget();
    EXPECT_EQ(client.setFrameVisible(frame, true), E_FAIL);
    Strings messages = log.stream().messages();
    const auto begin = std::ranges::find(messages, fixtures::BEGIN_BANNER);
    const auto end = std::find(begin, messages.end(), fixtures::END_BANNER);
    ASSERT_NE(end, messages.end());
    EXPECT_LINES(Strings(begin + 1, end), Strings{
                                              "ERROR CBridgeClient  Exception: java.lang.NoSuchMethodError: setVisible\n",
                                              "FINE CBridgeClient  checkNoJNIException ",
                                              "FINE CBridgeClient  callBooleanSetterOnFrame setVisible, 1",
                                              "FINE CBridgeClient  setFrameVisible 1",
                                          });
}

// One line feed is the text's, the other one ends every entry.
TEST_F(ExceptionTest, LineEndsInTwoLineFeeds)
{
    client.checkNoJNIException();
    EXPECT_TRUE(std::ranges::any_of(log.stream().texts(), [](const std::string& text) {
        return text.ends_with("com.example.Failure: the reason\n\n") && !text.ends_with("\n\n\n");
    }));
}

} // namespace
