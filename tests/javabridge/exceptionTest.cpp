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
    EXPECT_TRUE(std::ranges::any_of(log.stream().texts(), [](const std::string& text) {
        return text.ends_with("com.example.Failure: the reason\n\n") && !text.ends_with("\n\n\n");
    })) << "one line feed is the text's, the other one ends every entry";
    EXPECT_LINES(log.take(), Strings{"FINE -> checkNoJNIException"} + capture("com.example.Failure", "the reason"));
    EXPECT_LINES(java.liveLocals(), Strings{"class com.example.Failure", "class java/lang/Class"});
    EXPECT_TRUE(client.checkNoJNIException());
    EXPECT_LINES(log.take(), Strings{"FINE -> checkNoJNIException", "ExceptionCheck()"});
}

TEST_F(ExceptionTest, WithoutAnswersAndMethodsIsLoggedWithWhatThereIs)
{
    const auto null = RecordingJni::answersNull();
    const auto thrown = RecordingJni::throws("java.lang.Error", "no answer");
    const std::string name = "(\"com.example.Failure\")";
    const std::string message = "(\"the reason\")";
    const struct
    {
        SFailure failure;
        std::string error;
        Strings calls; // that are not made
    } cases[] = {
        {{{}, {{"getMessage", null}}, {}, {}}, "com.example.Failure: ", {message}},
        {{{}, {{"getName", null}}, {}, {}}, "(null name): the reason", {name}},
        {{{}, {{"getName", thrown}, {"getMessage", thrown}}, {}, {}}, "(null name): ", {name, message}},
        {{{"getName", "getMessage"}, {}, {}, {}}, "(null name): ", {name, message, "CallObjectMethod("}},
        {{{}, {}, {{"GetStringUTFChars", 1}}, {}}, "(null name): ", {"ReleaseStringUTFChars("}},
    };
    for (const auto& one : cases) {
        arrange(one.failure);
        java.raise("com.example.Failure", "the reason");
        EXPECT_FALSE(client.checkNoJNIException());
        Strings expected = capture("com.example.Failure", "the reason");
        std::erase_if(expected, [&](const std::string& call) {
            return std::ranges::any_of(one.calls, [&](const std::string& part) { return call.find(part) != std::string::npos; });
        });
        *std::ranges::find(expected, "ERROR Exception: com.example.Failure: the reason\\n") =
            "ERROR Exception: " + one.error + "\\n";
        EXPECT_LINES(callsOf(log.take()), expected);
        EXPECT_FALSE(java.isPending());
    }
}

TEST_F(ExceptionTest, WithoutClassesIsUnknown)
{
    for (const SFailure& failure : {SFailure{{}, {}, {{"GetObjectClass", 1}}, {}}, SFailure::missingClass("java/lang/Class")}) {
        arrange(failure);
        java.raise("com.example.Failure", "the reason");
        EXPECT_FALSE(client.checkNoJNIException());
        EXPECT_LINES(callsOf(log.take()), R"(
            ExceptionCheck() [pending]
            ExceptionOccurred() [pending]
            GetObjectClass(throwable com.example.Failure) [pending]
            FindClass(java/lang/Class) [pending]
            ERROR Exception: unknown
            DeleteLocalRef(throwable com.example.Failure) [pending]
            ExceptionClear() [pending]
        )");
    }
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

} // namespace
