// What is left behind, in JNI calls and references, when the creation of frame, bean and listener fails half-way.
#include "tests/javabridge/FrameCalls.h"

namespace {

class FrameFailureTest : public FrameTest
{
protected:
    const std::string addListener = "GetMethodID(class a/b/Bean, addORVANEControlListener, " + LISTENER_SETTER + ")";
    const Strings frameAttempt = {FRAME_CREATION[0], FRAME_CREATION[1], FRAME_CREATION[2], FRAME_CREATION[3]};
    const std::string frameName = "\"kesta_frame_" + PID + "\"";
};

TEST_F(FrameFailureTest, FrameThatIsNotCreatedLeavesTheBean)
{
    java.nullFrom["NewObject"] = 2;
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), BEAN_CREATION + frameAttempt);
    EXPECT_STRINGS(java.liveLocals(), Strings{frameName, "class a/b/Bean", "class " + FRAME});
    EXPECT_STRINGS(java.liveGlobals(), Strings{"global a/b/Bean", "global bean", "global frame", "global listener"});
    EXPECT_EQ(newFrame, nullptr);
    EXPECT_EQ(frameID, static_cast<int>(GetCurrentProcessId()));
    EXPECT_STRINGS(log.takeStatements(), Strings{
                                             "TRACE beanObject!=NULL: true",
                                             "TRACE frameObject!=NULL: true",
                                             "TRACE frameID!=NULL: true",
                                             "TRACE bean_package!=NULL: true",
                                             "TRACE bean_class!=NULL: true",
                                             "TRACE m_BeanClass!=NULL: true",
                                             "TRACE constructID!=NULL: true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE localReference != NULL: true",
                                             "INFO Unique Window ID was not initialized yet (-1)",
                                             "INFO Unique Window ID=" + PID,
                                             "ERROR localReference!=NULL: false",
                                         });
}

TEST_F(FrameFailureTest, FrameConstructorThatThrowsIsNotAskedAbout)
{
    java.outcomes[FRAME + ".<init>"] = RecordingJni::throws("java.awt.HeadlessException", "no screen");
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), BEAN_CREATION + frameAttempt);
}

TEST_F(FrameFailureTest, FrameNameThatCannotBeMadeGoesToTheConstructorAsItIs)
{
    java.nullFrom["NewStringUTF"] = 1;
    EXPECT_EQ(startBean(), S_OK);
    const Strings calls = java.takeCalls();
    ASSERT_GT(calls.size(), 9u);
    EXPECT_EQ(calls[9], "NewObject(class " + FRAME + ", <init>, null)");
}

TEST_F(FrameFailureTest, FailedStartsReleaseNothing)
{
    java.missing = {BEAN + ".<init>"};
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(java.liveLocals(), Strings{"class a/b/Bean"});
    java.missing = {};
    java.outcomes[BEAN + ".<init>"] = RecordingJni::throws("java.lang.Error", "x");
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(java.liveLocals(),
                   Strings{"class a/b/Bean", "class a/b/Bean", "class java.lang.Error", "class java/lang/Class"});
    EXPECT_STRINGS(java.liveGlobals(), Strings{"global bean", "global frame", "global listener"});
}

TEST_F(FrameFailureTest, ClassesOfAnEarlierControlAreReplacedAndNotDeleted)
{
    EXPECT_EQ(startBean(), S_OK);
    EXPECT_EQ(client.regEventListener(&newListener, newFrame, newBean), S_OK);
    const jclass classes[] = {client.m_BeanClass, client.m_FrameClass, client.m_ListenerClass};
    EXPECT_EQ(client.stopBean(newBean, newFrame, newListener), S_OK);
    EXPECT_EQ(client.m_BeanClass, classes[0]) << "stopBean keeps the classes";
    EXPECT_EQ(client.m_FrameClass, classes[1]);
    EXPECT_EQ(client.m_ListenerClass, classes[2]);
    EXPECT_EQ(startBean(), S_OK);
    EXPECT_EQ(client.regEventListener(&newListener, newFrame, newBean), S_OK);
    EXPECT_NE(client.m_BeanClass, classes[0]);
    EXPECT_NE(client.m_FrameClass, classes[1]);
    EXPECT_NE(client.m_ListenerClass, classes[2]);
    EXPECT_STRINGS(java.liveLocals(),
                   Strings{frameName, "\"kesta_frame_" + std::to_string(GetCurrentProcessId() + 1) + "\"", "class a/b/Bean",
                           "class a/b/Bean", "class " + FRAME, "class " + FRAME, "class " + LISTENER, "class " + LISTENER});
}

TEST_F(FrameFailureTest, UniqueIdAroundItsLimits)
{
    client.m_UniqueWindowID = 1;
    EXPECT_EQ(client.createUniqueID(), 2) << "the process id follows numbers below 1 only";
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE createUniqueID "});
    EXPECT_STRINGS(log.takeStatements(), Strings{"INFO Unique Window ID was 1", "INFO Unique Window ID=2"});
    client.m_UniqueWindowID = -7;
    EXPECT_EQ(client.createUniqueID(), static_cast<int>(GetCurrentProcessId()));
    EXPECT_STRINGS(log.takeStatements(),
                   Strings{"INFO Unique Window ID was not initialized yet (-1)", "INFO Unique Window ID=" + PID})
        << "the text names -1 for every negative number";
}

TEST_F(FrameFailureTest, ListenerConstructorThatIsMissingIsFoundOutWhenTheListenerIsMissing)
{
    haveControl();
    java.missing = {LISTENER + ".<init>"};
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{LISTENER_CREATION[0], LISTENER_CREATION[1]});
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE listener!=NULL: true", "ERROR localReference!=NULL: false"});
    EXPECT_EQ(newListener, nullptr);
}

TEST_F(FrameFailureTest, ListenerThatIsNotCreatedIsNotAskedAbout)
{
    haveControl();
    java.outcomes[LISTENER + ".<init>"] = RecordingJni::throws("java.lang.Error", "x");
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{LISTENER_CREATION[0], LISTENER_CREATION[1], LISTENER_CREATION[2]});
    EXPECT_EQ(newListener, nullptr);
    java.outcomes.clear();
    java.nullFrom["NewObject"] = 1;
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"ExceptionClear() [pending]", LISTENER_CREATION[0], LISTENER_CREATION[1], LISTENER_CREATION[2]});
    EXPECT_EQ(newListener, nullptr);
}

TEST_F(FrameFailureTest, NativesAreAllRegisteredWhateverBecomesOfTheOthers)
{
    haveControl();
    java.missing = {"testBridgeEvent", "OnControlReady", "OnCustomEvent"};
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), S_OK);
    Strings expected = LISTENER_CREATION;
    for (size_t index = 0; index < NATIVES.size(); index += 2) {
        const std::string name = index == 0 ? "testBridgeEvent" : index == 2 ? "OnControlReady" : "OnCustomEvent";
        expected = expected + Strings{NATIVES[index]} + captureCalls("java.lang.NoSuchMethodError", name);
    }
    EXPECT_STRINGS(java.takeCalls(),
                   expected + Strings{addListener,
                                      "CallVoidMethod(global bean, addORVANEControlListener, global " + LISTENER + ")",
                                      "ExceptionCheck()", "DeleteLocalRef(local " + LISTENER + ")"});
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"Exception: java.lang.NoSuchMethodError: testBridgeEvent\n", "checkNoJNIException(): false",
                           "Exception: java.lang.NoSuchMethodError: OnControlReady\n", "checkNoJNIException(): false",
                           "Exception: java.lang.NoSuchMethodError: OnCustomEvent\n", "checkNoJNIException(): false"});
}

TEST_F(FrameFailureTest, RegisterNativeFailsOnAnExceptionOnly)
{
    haveControl();
    const std::string call = "RegisterNatives(class " + LISTENER + ", name (I)V unknown function)";
    EXPECT_EQ(client.registerNative(client.m_ListenerClass, "name", "(I)V", nullptr), S_OK);
    EXPECT_STRINGS(java.takeCalls(), Strings{call, "ExceptionCheck()"});
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE registerNative name, (I)V", "FINE checkNoJNIException "});
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE checkNoJNIException(): true"});
    java.registerResult = JNI_ERR;
    EXPECT_EQ(client.registerNative(client.m_ListenerClass, "name", "(I)V", nullptr), S_OK);
    EXPECT_STRINGS(java.takeCalls(), Strings{call, "ExceptionCheck()"});
    java.missing = {"name"};
    EXPECT_EQ(client.registerNative(client.m_ListenerClass, "name", "(I)V", nullptr), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{call} + captureCalls("java.lang.NoSuchMethodError", "name"));
}

TEST_F(FrameFailureTest, BeanThatRefusesTheListenerIsAskedOnce)
{
    haveControl();
    java.outcomes["addORVANEControlListener"] = RecordingJni::throws("java.lang.IllegalArgumentException", "no");
    forgetLog();
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(),
                   LISTENER_CREATION + NATIVES +
                       Strings{addListener, "CallVoidMethod(global bean, addORVANEControlListener, global " + LISTENER + ")"} +
                       captureCalls("java.lang.IllegalArgumentException", "no"));
    EXPECT_STRINGS(log.takeStatements(), Strings{
                                             "TRACE listener!=NULL: true",
                                             "TRACE localReference!=NULL: true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE addORVListenerID!=NULL: true",
                                             "TRACE call addORVANEControlListener method",
                                             "ERROR Exception: java.lang.IllegalArgumentException: no\n",
                                             "ERROR checkNoJNIException(): false",
                                         });
    java.takeCalls();
    EXPECT_EQ(client.stopBean(nullptr, nullptr, newListener), S_OK);
    EXPECT_STRINGS(java.takeCalls(), Strings{"DeleteGlobalRef(global " + LISTENER + ")"}) << "stopBean takes what is left";
}

TEST_F(FrameFailureTest, FrameOfTheRegistrationIsNotUsed)
{
    haveControl();
    EXPECT_EQ(client.regEventListener(&newListener, nullptr, bean), S_OK);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{});
}

} // namespace
