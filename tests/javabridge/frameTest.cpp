// Creation and release of frame, bean and listener: every JNI call in order, what stays referenced, and what the log says.
#include "tests/javabridge/FrameCalls.h"

#include <climits>

namespace {

TEST_F(FrameTest, StartBeanCreatesBeanThenFrame)
{
    EXPECT_EQ(startBean(), S_OK);
    EXPECT_STRINGS(java.takeCalls(), BEAN_CREATION + FRAME_CREATION +
                                         setterCalls("global " + FRAME, "setFocusableWindowState", "false") +
                                         setterCalls("global " + FRAME, "setAlwaysOnTop", "false") +
                                         setterCalls("global " + FRAME, "setUndecorated", "true"));
    EXPECT_EQ(frameID, static_cast<int>(GetCurrentProcessId()));
    EXPECT_STRINGS(java.liveLocals(), Strings{"\"kesta_frame_" + PID + "\"", "class a/b/Bean", "class " + FRAME});
    EXPECT_STRINGS(java.liveGlobals(),
                   Strings{"global a/b/Bean", "global bean", "global " + FRAME, "global frame", "global listener"});
    EXPECT_STRINGS(log.takeScopes(), Strings{
                                         "FINE startBean a.b, Bean",
                                         "FINE checkNoJNIException ",
                                         "FINE createUniqueID ",
                                         "FINE setFrameFocusableWindowState 0",
                                         "FINE callBooleanSetterOnFrame setFocusableWindowState, 0",
                                         "FINE checkNoJNIException ",
                                         "FINE setFrameAlwaysOnTop 0",
                                         "FINE callBooleanSetterOnFrame setAlwaysOnTop, 0",
                                         "FINE checkNoJNIException ",
                                         "FINE setFrameUndecorated 1",
                                         "FINE callBooleanSetterOnFrame setUndecorated, 1",
                                         "FINE checkNoJNIException ",
                                     });
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
                                             "TRACE localReference!=NULL: true",
                                             "TRACE methodID!=NULL: true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE setFrameFocusableWindowState(*frameObject, false): success: 0",
                                             "TRACE methodID!=NULL: true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE setFrameAlwaysOnTop(*frameObject, false): success: 0",
                                             "TRACE methodID!=NULL: true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE setFrameUndecorated(*frameObject, true): success: 0",
                                             "TRACE CHECKPOINT: Successfully started bean.",
                                         });
}

TEST_F(FrameTest, StartBeanChecksItsArgumentsInOrder)
{
    EXPECT_EQ(client.startBean(nullptr, nullptr, nullptr, nullptr, nullptr), E_FAIL);
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR beanObject!=NULL: false"});
    EXPECT_EQ(client.startBean(&newBean, nullptr, nullptr, nullptr, nullptr), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"frameObject!=NULL: false"});
    EXPECT_EQ(client.startBean(&newBean, &newFrame, nullptr, nullptr, nullptr), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"frameID!=NULL: false"});
    EXPECT_EQ(client.startBean(&newBean, &newFrame, &frameID, nullptr, nullptr), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"bean_package!=NULL: false"});
    EXPECT_EQ(client.startBean(&newBean, &newFrame, &frameID, "", nullptr), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"bean_class!=NULL: false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{});
}

TEST_F(FrameTest, ClassNameJoinsPackageAndClassWithSlashes)
{
    java.missing = {"com/example/ui/MyControl", "x/y/Z", "Z"};
    client.startBean(&newBean, &newFrame, &frameID, "com.example.ui", "MyControl");
    EXPECT_STRINGS(java.takeCalls(), Strings{"FindClass(com/example/ui/MyControl)"});
    client.startBean(&newBean, &newFrame, &frameID, "", "x.y.Z");
    EXPECT_STRINGS(java.takeCalls(), Strings{"ExceptionClear() [pending]", "FindClass(x/y/Z)"});
    client.startBean(&newBean, &newFrame, &frameID, "", "Z");
    EXPECT_STRINGS(java.takeCalls(), Strings{"ExceptionClear() [pending]", "FindClass(Z)"});
}

TEST_F(FrameTest, MissingBeanClassEndsStartBean)
{
    java.missing = {BEAN};
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{"FindClass(a/b/Bean)"});
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"m_BeanClass!=NULL: false"});
    EXPECT_EQ(newBean, nullptr);
    EXPECT_EQ(newFrame, nullptr);
    EXPECT_EQ(frameID, -5);
    EXPECT_TRUE(java.isPending());
}

TEST_F(FrameTest, BeanWithoutPublicConstructorEndsStartBean)
{
    java.missing = {BEAN + ".<init>"};
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{"FindClass(a/b/Bean)", "GetMethodID(class a/b/Bean, <init>, ()V)"});
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"constructID!=NULL: false"});
    EXPECT_EQ(newFrame, nullptr);
}

TEST_F(FrameTest, BeanConstructorThatThrowsEndsStartBean)
{
    java.outcomes[BEAN + ".<init>"] = RecordingJni::throws("java.lang.IllegalStateException", "no toolkit");
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{"FindClass(a/b/Bean)", "GetMethodID(class a/b/Bean, <init>, ()V)",
                                             "NewObject(class a/b/Bean, <init>)"} +
                                         captureCalls("java.lang.IllegalStateException", "no toolkit"));
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"Exception: java.lang.IllegalStateException: no toolkit\n", "checkNoJNIException(): false"});
    EXPECT_EQ(newBean, nullptr);
}

TEST_F(FrameTest, BeanThatIsNotCreatedEndsStartBean)
{
    java.nullFrom["NewObject"] = 1;
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"localReference != NULL: false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{"FindClass(a/b/Bean)", "GetMethodID(class a/b/Bean, <init>, ()V)",
                                             "NewObject(class a/b/Bean, <init>)", "ExceptionCheck()"});
}

TEST_F(FrameTest, MissingFrameClassIsFoundOutWhenTheFrameIsMissing)
{
    java.missing = {FRAME};
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), BEAN_CREATION + Strings{
                                                         "FindClass(" + FRAME + ")",
                                                         "ExceptionClear() [pending]",
                                                         "NewStringUTF(kesta_frame_" + PID + ")",
                                                     });
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"localReference!=NULL: false"});
    EXPECT_NE(newBean, nullptr) << "what was created before stays for stopBean";
    EXPECT_EQ(newFrame, nullptr);
    EXPECT_EQ(frameID, static_cast<int>(GetCurrentProcessId()));
    EXPECT_FALSE(java.isPending());
}

TEST_F(FrameTest, MissingFrameConstructorIsFoundOutWhenTheFrameIsMissing)
{
    java.missing = {FRAME + ".<init>"};
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), BEAN_CREATION + Strings{
                                                         "FindClass(" + FRAME + ")",
                                                         "GetMethodID(class " + FRAME + ", <init>, (Ljava/lang/String;)V)",
                                                         "ExceptionClear() [pending]",
                                                         "NewStringUTF(kesta_frame_" + PID + ")",
                                                     });
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"localReference!=NULL: false"});
}

TEST_F(FrameTest, FrameConstructorThatThrowsFailsNoLaterStep)
{
    java.outcomes[FRAME + ".<init>"] = RecordingJni::throws("java.awt.HeadlessException", {});
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"localReference!=NULL: false"});
    EXPECT_TRUE(java.isPending());
    java.takeCalls();
    client.stopBean(newBean, newFrame, nullptr);
    EXPECT_EQ(java.takeCalls().front(), "ExceptionClear() [pending]");
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{});
}

TEST_F(FrameTest, FailedSettersAreLoggedOnly)
{
    java.missing = {"setFocusableWindowState", "setUndecorated"};
    java.outcomes["setAlwaysOnTop"] = RecordingJni::throws("java.lang.SecurityException", "no");
    EXPECT_EQ(startBean(), S_OK);
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"methodID!=NULL: false", "setFrameFocusableWindowState(*frameObject, false): failure: -2147467259",
                           "Exception: java.lang.SecurityException: no\n", "checkNoJNIException(): false",
                           "setFrameAlwaysOnTop(*frameObject, false): failure: -2147467259", "methodID!=NULL: false",
                           "setFrameUndecorated(*frameObject, true): failure: -2147467259"});
    EXPECT_STRINGS(java.takeCalls(),
                   BEAN_CREATION + FRAME_CREATION +
                       Strings{"GetMethodID(class " + FRAME + ", setFocusableWindowState, (Z)V)", "ExceptionClear() [pending]",
                               "GetMethodID(class " + FRAME + ", setAlwaysOnTop, (Z)V)",
                               "CallVoidMethod(global " + FRAME + ", setAlwaysOnTop, false)"} +
                       captureCalls("java.lang.SecurityException", "no") +
                       Strings{"GetMethodID(class " + FRAME + ", setUndecorated, (Z)V)"});
}

TEST_F(FrameTest, SecondFrameOfTheProcessIsNamedWithTheNextNumber)
{
    startBean();
    forgetLog();
    EXPECT_EQ(startBean(), S_OK);
    EXPECT_EQ(frameID, static_cast<int>(GetCurrentProcessId()) + 1);
    EXPECT_STRINGS(log.takeStatements("INFO"),
                   Strings{"Unique Window ID was " + PID, "Unique Window ID=" + std::to_string(frameID)});
}

TEST_F(FrameTest, UniqueIdGoesFromTheProcessIdToItsWrapAndBack)
{
    const int pid = static_cast<int>(GetCurrentProcessId());
    EXPECT_EQ(client.m_UniqueWindowID, -1);
    EXPECT_EQ(client.createUniqueID(), pid);
    EXPECT_EQ(client.createUniqueID(), pid + 1);
    client.m_UniqueWindowID = INT_MAX - 1;
    EXPECT_EQ(client.createUniqueID(), INT_MAX);
    forgetLog();
    EXPECT_EQ(client.createUniqueID(), 0);
    EXPECT_STRINGS(log.takeStatements(), Strings{"INFO Unique Window ID was 2147483647", "INFO Unique Window ID=0"});
    EXPECT_EQ(client.createUniqueID(), pid);
    EXPECT_STRINGS(log.takeStatements(), Strings{"INFO Unique Window ID was 0", "INFO Unique Window ID=" + PID});
    EXPECT_STRINGS(java.takeCalls(), Strings{});
}

TEST_F(FrameTest, RegEventListenerBindsTheNativesBeforeTheBeanHearsOfTheListener)
{
    haveControl();
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), S_OK);
    EXPECT_STRINGS(java.takeCalls(), LISTENER_CREATION + NATIVES +
                                         Strings{"GetMethodID(class a/b/Bean, addORVANEControlListener, " + LISTENER_SETTER + ")",
                                                 "CallVoidMethod(global bean, addORVANEControlListener, global " + LISTENER + ")",
                                                 "ExceptionCheck()", "DeleteLocalRef(local " + LISTENER + ")"});
    EXPECT_STRINGS(java.liveGlobals(), Strings{"global bean", "global " + LISTENER, "global frame", "global listener"});
    EXPECT_STRINGS(log.takeScopes(), Strings{
                                         "FINE regEventListener ",
                                         "FINE registerNative testBridgeEvent, (Ljava/lang/String;I)V",
                                         "FINE checkNoJNIException ",
                                         "FINE registerNative OnControlReady, (Ljava/lang/String;)V",
                                         "FINE checkNoJNIException ",
                                         "FINE registerNative OnCustomEvent, (Ljava/lang/String;)V",
                                         "FINE checkNoJNIException ",
                                         "FINE checkNoJNIException ",
                                     });
    EXPECT_STRINGS(log.takeStatements(), Strings{
                                             "TRACE listener!=NULL: true",
                                             "TRACE localReference!=NULL: true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE addORVListenerID!=NULL: true",
                                             "TRACE call addORVANEControlListener method",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE CHECKPOINT: Successfully registered event listener.",
                                         });
}

TEST_F(FrameTest, RegEventListenerNeedsItsOutput)
{
    haveControl();
    EXPECT_EQ(client.regEventListener(nullptr, frame, bean), E_FAIL);
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR listener!=NULL: false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{});
}

TEST_F(FrameTest, MissingListenerClassIsFoundOutWhenTheListenerIsMissing)
{
    haveControl();
    java.missing = {LISTENER};
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), Strings{"FindClass(" + LISTENER + ")"});
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"localReference!=NULL: false"});
    EXPECT_EQ(client.m_ListenerClass, nullptr);
    EXPECT_EQ(newListener, nullptr);
}

TEST_F(FrameTest, ListenerConstructorThatThrowsFailsNoLaterStep)
{
    haveControl();
    java.outcomes[LISTENER + ".<init>"] = RecordingJni::throws("java.lang.Error", "x");
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"localReference!=NULL: false"});
    EXPECT_EQ(client.setFrameVisible(frame, true), S_OK);
}

TEST_F(FrameTest, NativesThatAreNotFoundDoNotEndTheRegistration)
{
    haveControl();
    java.missing = {"OnControlReady"};
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), S_OK);
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"Exception: java.lang.NoSuchMethodError: OnControlReady\n", "checkNoJNIException(): false"});
}

TEST_F(FrameTest, BeanWithoutListenerMethodKeepsTheListenerForStopBean)
{
    haveControl();
    java.missing = {"addORVANEControlListener"};
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(),
                   LISTENER_CREATION + NATIVES +
                       Strings{"GetMethodID(class a/b/Bean, addORVANEControlListener, " + LISTENER_SETTER + ")"});
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"addORVListenerID!=NULL: false"});
    EXPECT_NE(newListener, nullptr);
    EXPECT_STRINGS(java.liveLocals(),
                   Strings{"class a/b/Bean", "class " + FRAME, "class " + LISTENER, "class " + LISTENER, "local " + LISTENER});
}

TEST_F(FrameTest, BeanThatRefusesTheListenerKeepsTheLocalReference)
{
    haveControl();
    java.outcomes["addORVANEControlListener"] = RecordingJni::throws("java.lang.IllegalArgumentException", "no");
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"Exception: java.lang.IllegalArgumentException: no\n", "checkNoJNIException(): false"});
    const Strings locals = java.liveLocals();
    EXPECT_EQ(std::count(locals.begin(), locals.end(), "local " + LISTENER), 1);
    EXPECT_NE(newListener, nullptr);
}

TEST_F(FrameTest, NullBeanGetsNoListener)
{
    haveControl();
    EXPECT_EQ(client.regEventListener(&newListener, frame, nullptr), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(), LISTENER_CREATION + NATIVES);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"addORVListenerID!=NULL: false"});
}

TEST_F(FrameTest, WithoutMachineNothingIsStarted)
{
    haveNoMachine();
    EXPECT_EQ(startBean(), E_FAIL);
    EXPECT_EQ(client.regEventListener(&newListener, frame, bean), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"m_BeanClass!=NULL: false", "localReference!=NULL: false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{});
}

} // namespace
