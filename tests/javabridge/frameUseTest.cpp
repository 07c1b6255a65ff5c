// What is done with frame, bean and listener once they exist, and their release.
#include "tests/javabridge/BridgeFixture.h"

namespace {

class FrameUseTest : public BridgeTest
{
protected:
    FrameUseTest() { haveControl(); }
};

TEST_F(FrameUseTest, AddBeanDropsTheReferenceThatComesBack)
{
    java.outcomes["add"] = RecordingJni::answers("component");
    EXPECT_EQ(client.addBean(frame, bean), S_OK);
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class " + FRAME + ", add, (Ljava/awt/Component;)Ljava/awt/Component;)",
                                             "CallObjectMethod(global frame, add, global bean)", "ExceptionCheck()",
                                             "DeleteLocalRef(local component)"});
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE addBean ", "FINE checkNoJNIException "});
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE addID!=NULL: true", "TRACE checkNoJNIException(): true",
                                                 "INFO Successfully added Bean to KESTAFrame!"});
}

TEST_F(FrameUseTest, AddBeanTakesNoReferenceToo)
{
    java.outcomes["add"] = RecordingJni::answersNull();
    EXPECT_EQ(client.addBean(frame, bean), S_OK);
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class " + FRAME + ", add, (Ljava/awt/Component;)Ljava/awt/Component;)",
                                             "CallObjectMethod(global frame, add, global bean)", "ExceptionCheck()"});
}

TEST_F(FrameUseTest, AddBeanFailures)
{
    java.outcomes["add"] = RecordingJni::throws("java.lang.IllegalArgumentException", "adding");
    EXPECT_EQ(client.addBean(frame, bean), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"Exception: java.lang.IllegalArgumentException: adding\n", "checkNoJNIException(): false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class " + FRAME + ", add, (Ljava/awt/Component;)Ljava/awt/Component;)",
                                             "CallObjectMethod(global frame, add, global bean)"} +
                                         captureCalls("java.lang.IllegalArgumentException", "adding"));
    java.missing = {"add"};
    EXPECT_EQ(client.addBean(frame, bean), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"addID!=NULL: false"});
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"GetMethodID(class " + FRAME + ", add, (Ljava/awt/Component;)Ljava/awt/Component;)"});
}

TEST_F(FrameUseTest, EveryFrameSetterCallsItsJavaMethod)
{
    const struct
    {
        HRESULT (CJavaManagerJNIClient::*operation)(jobject, bool);
        const char* operationName;
        const char* method;
    } setters[] = {
        {&CJavaManagerJNIClient::setFrameFocusableWindowState, "setFrameFocusableWindowState", "setFocusableWindowState"},
        {&CJavaManagerJNIClient::setFrameAlwaysOnTop, "setFrameAlwaysOnTop", "setAlwaysOnTop"},
        {&CJavaManagerJNIClient::setFrameUndecorated, "setFrameUndecorated", "setUndecorated"},
        {&CJavaManagerJNIClient::setFrameVisible, "setFrameVisible", "setVisible"},
        {&CJavaManagerJNIClient::setFrameEnabled, "setFrameEnabled", "setEnabled"},
    };
    for (const auto& setter : setters) {
        for (const bool value : {false, true}) {
            const std::string number = value ? "1" : "0";
            EXPECT_EQ((client.*setter.operation)(frame, value), S_OK);
            EXPECT_STRINGS(java.takeCalls(), setterCalls("global frame", setter.method, value ? "true" : "false"));
            EXPECT_STRINGS(log.takeScopes(),
                           Strings{std::string("FINE ") + setter.operationName + " " + number,
                                   std::string("FINE callBooleanSetterOnFrame ") + setter.method + ", " + number,
                                   "FINE checkNoJNIException "});
            EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE methodID!=NULL: true", "TRACE checkNoJNIException(): true"});
        }
    }
}

TEST_F(FrameUseTest, SetterFailures)
{
    java.outcomes["setVisible"] = RecordingJni::throws("java.lang.Error", "x");
    EXPECT_EQ(client.setFrameVisible(frame, true), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"Exception: java.lang.Error: x\n", "checkNoJNIException(): false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class " + FRAME + ", setVisible, (Z)V)",
                                             "CallVoidMethod(global frame, setVisible, true)"} +
                                         captureCalls("java.lang.Error", "x"));
    java.missing = {"setVisible"};
    EXPECT_EQ(client.setFrameVisible(frame, true), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"methodID!=NULL: false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class " + FRAME + ", setVisible, (Z)V)"});
}

TEST_F(FrameUseTest, BoundsAreLoggedAndNotPassed)
{
    EXPECT_EQ(client.setFrameBounds(frame, 1111, -2222, 3333, 4444), S_OK);
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class " + FRAME + ", setBounds, (IIII)V)",
                                             "CallVoidMethod(global frame, setBounds, ...)", "ExceptionCheck()"});
    EXPECT_NE(java.lastBounds, (std::vector<jint>{1111, -2222, 3333, 4444}));
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE setFrameBounds 1111, -2222, 3333, 4444", "FINE checkNoJNIException "});
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE setBoundsID!=NULL: true", "TRACE checkNoJNIException(): true"});
}

TEST_F(FrameUseTest, BoundsFailures)
{
    java.outcomes["setBounds"] = RecordingJni::throws("java.lang.Error", "x");
    EXPECT_EQ(client.setFrameBounds(frame, 1, 2, 3, 4), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"Exception: java.lang.Error: x\n", "checkNoJNIException(): false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class " + FRAME + ", setBounds, (IIII)V)",
                                             "CallVoidMethod(global frame, setBounds, ...)"} +
                                         captureCalls("java.lang.Error", "x"));
    java.missing = {"setBounds"};
    EXPECT_EQ(client.setFrameBounds(frame, 1, 2, 3, 4), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"setBoundsID!=NULL: false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class " + FRAME + ", setBounds, (IIII)V)"});
}

TEST_F(FrameUseTest, ValidateCallsTheFramesMethodOnBoth)
{
    EXPECT_EQ(client.validateFrameAndBean(frame, bean), S_OK);
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"GetMethodID(class " + FRAME + ", validate, ()V)", "CallVoidMethod(global frame, validate)",
                           "ExceptionCheck()", "CallVoidMethod(global bean, validate)", "ExceptionCheck()"});
    EXPECT_STRINGS(log.takeScopes(),
                   Strings{"FINE validateFrameAndBean ", "FINE checkNoJNIException ", "FINE checkNoJNIException "});
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE validateID!=NULL: true", "TRACE checkNoJNIException(): true",
                                                 "TRACE checkNoJNIException(): true"});
}

TEST_F(FrameUseTest, ValidateFailures)
{
    java.outcomes["validate"] = RecordingJni::throws("java.lang.Error", "x");
    EXPECT_EQ(client.validateFrameAndBean(frame, bean), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"GetMethodID(class " + FRAME + ", validate, ()V)", "CallVoidMethod(global frame, validate)"} +
                       captureCalls("java.lang.Error", "x"))
        << "the bean is not asked any more";
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"Exception: java.lang.Error: x\n", "checkNoJNIException(): false"});
    java.missing = {"validate"};
    EXPECT_EQ(client.validateFrameAndBean(frame, bean), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"validateID!=NULL: false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class " + FRAME + ", validate, ()V)"});
}

TEST_F(FrameUseTest, BeanThatDoesNotValidateFailsTheOperation)
{
    java.outcomes["global bean: validate"] = RecordingJni::throws("java.lang.Error", "x");
    EXPECT_EQ(client.validateFrameAndBean(frame, bean), E_FAIL);
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"GetMethodID(class " + FRAME + ", validate, ()V)", "CallVoidMethod(global frame, validate)",
                           "ExceptionCheck()", "CallVoidMethod(global bean, validate)"} +
                       captureCalls("java.lang.Error", "x"));
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE validateID!=NULL: true", "TRACE checkNoJNIException(): true",
                                                 "ERROR Exception: java.lang.Error: x\n", "ERROR checkNoJNIException(): false"});
}

TEST_F(FrameUseTest, NullObjectsFailAtTheOperationsOwnCheckWithoutJni)
{
    EXPECT_EQ(client.addBean(nullptr, bean), E_FAIL);
    EXPECT_EQ(client.addBean(frame, nullptr), E_FAIL);
    EXPECT_EQ(client.setFrameVisible(nullptr, true), E_FAIL);
    EXPECT_EQ(client.setFrameBounds(nullptr, 1, 2, 3, 4), E_FAIL);
    EXPECT_EQ(client.validateFrameAndBean(nullptr, bean), E_FAIL);
    EXPECT_EQ(client.validateFrameAndBean(frame, nullptr), E_FAIL);
    EXPECT_STRINGS(log.takeStatements(),
                   Strings{"ERROR addID!=NULL: false", "ERROR addID!=NULL: false", "ERROR methodID!=NULL: false",
                           "ERROR setBoundsID!=NULL: false", "ERROR validateID!=NULL: false", "ERROR validateID!=NULL: false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{});
}

TEST_F(FrameUseTest, WithoutMachineEveryOperationFailsAtItsOwnCheck)
{
    haveNoMachine();
    EXPECT_EQ(client.addBean(frame, bean), E_FAIL);
    EXPECT_EQ(client.setFrameEnabled(frame, true), E_FAIL);
    EXPECT_EQ(client.setFrameBounds(frame, 1, 2, 3, 4), E_FAIL);
    EXPECT_EQ(client.validateFrameAndBean(frame, bean), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"addID!=NULL: false", "methodID!=NULL: false", "setBoundsID!=NULL: false", "validateID!=NULL: false"});
    EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"freeID != NULL: false", "removeID!=NULL: false", "removeAllID!=NULL: false", "removeCID!=NULL: false",
                           "disposeID!=NULL: false"});
    EXPECT_STRINGS(java.takeCalls(), Strings{});
}

const Strings FREE_CALLS = {
    "GetMethodID(class a/b/Bean, free, ()Ljava/lang/String;)",
    "CallObjectMethod(global bean, free)",
    "ExceptionCheck()",
    "GetStringUTFChars(\"answer of free\")",
    "ReleaseStringUTFChars(\"answer of free\")",
    "DeleteLocalRef(\"answer of free\")",
};

TEST_F(FrameUseTest, StopBeanTakesEverythingApartInOrder)
{
    EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
    EXPECT_STRINGS(java.takeCalls(),
                   FREE_CALLS + Strings{
                                    "GetMethodID(class a/b/Bean, removeORVANEControlListener, " + LISTENER_SETTER + ")",
                                    "CallVoidMethod(global bean, removeORVANEControlListener, global listener)",
                                    "ExceptionCheck()",
                                    "GetMethodID(class a/b/Bean, removeAll, ()V)",
                                    "CallVoidMethod(global bean, removeAll)",
                                    "ExceptionCheck()",
                                    "GetMethodID(class " + FRAME + ", remove, (Ljava/awt/Component;)V)",
                                    "CallVoidMethod(global frame, remove, global bean)",
                                    "ExceptionCheck()",
                                    "DeleteGlobalRef(global bean)",
                                    "GetMethodID(class " + FRAME + ", dispose, ()V)",
                                    "CallVoidMethod(global frame, dispose)",
                                    "ExceptionCheck()",
                                    "DeleteGlobalRef(global frame)",
                                    "DeleteGlobalRef(global listener)",
                                });
    EXPECT_STRINGS(java.liveGlobals(), Strings{});
    EXPECT_STRINGS(java.liveLocals(), Strings{"class a/b/Bean", "class " + FRAME, "class " + LISTENER});
    EXPECT_NE(client.m_BeanClass, nullptr) << "the classes are kept";
    EXPECT_STRINGS(log.takeScopes(), Strings{
                                         "FINE stopBean ",
                                         "FINE free ",
                                         "FINE checkNoJNIException ",
                                         "FINE checkNoJNIException ",
                                         "FINE checkNoJNIException ",
                                         "FINE checkNoJNIException ",
                                         "FINE checkNoJNIException ",
                                     });
    EXPECT_STRINGS(log.takeStatements(), Strings{
                                             "TRACE freeID != NULL: true",
                                             "TRACE checkNoJNIException(): true",
                                             "TRACE result!=NULL: true",
                                             "TRACE env!=NULL: true",
                                             "TRACE removeID!=NULL: true",
                                             "TRACE removeAllID!=NULL: true",
                                             "TRACE removeCID!=NULL: true",
                                             "TRACE CHECKPOINT: Successfully freed bean.",
                                             "TRACE disposeID!=NULL: true",
                                             "TRACE CHECKPOINT: Successfully freed frame.",
                                             "TRACE CHECKPOINT: Successfully freed listener.",
                                         });
}

const Strings FREED = {"CHECKPOINT: Successfully freed bean.", "CHECKPOINT: Successfully freed frame.",
                       "CHECKPOINT: Successfully freed listener."};

TEST_F(FrameUseTest, StopBeanOfNothingLogsItsCheckpointsWithoutJni)
{
    EXPECT_EQ(client.stopBean(nullptr, nullptr, nullptr), S_OK);
    EXPECT_STRINGS(java.takeCalls(), Strings{});
    EXPECT_STRINGS(log.takeStatements("TRACE"), FREED);
}

TEST_F(FrameUseTest, StopBeanWithoutFrameSkipsRemoveAndDispose)
{
    EXPECT_EQ(client.stopBean(bean, nullptr, nullptr), S_OK);
    EXPECT_STRINGS(java.takeCalls(),
                   FREE_CALLS + Strings{
                                    "GetMethodID(class a/b/Bean, removeORVANEControlListener, " + LISTENER_SETTER + ")",
                                    "CallVoidMethod(global bean, removeORVANEControlListener, null)",
                                    "ExceptionCheck()",
                                    "GetMethodID(class a/b/Bean, removeAll, ()V)",
                                    "CallVoidMethod(global bean, removeAll)",
                                    "ExceptionCheck()",
                                    "DeleteGlobalRef(global bean)",
                                });
}

TEST_F(FrameUseTest, StopBeanWithoutBeanDisposesOfTheFrame)
{
    EXPECT_EQ(client.stopBean(nullptr, frame, listener), S_OK);
    EXPECT_STRINGS(java.takeCalls(),
                   Strings{"GetMethodID(class " + FRAME + ", dispose, ()V)", "CallVoidMethod(global frame, dispose)",
                           "ExceptionCheck()", "DeleteGlobalRef(global frame)", "DeleteGlobalRef(global listener)"});
}

TEST_F(FrameUseTest, StopBeanGoesOnAfterMissingMethods)
{
    java.missing = {"free", "removeORVANEControlListener", "removeAll", "remove", "dispose"};
    EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
    EXPECT_STRINGS(java.takeCalls(), Strings{
                                         "GetMethodID(class a/b/Bean, free, ()Ljava/lang/String;)",
                                         "ExceptionClear() [pending]",
                                         "GetMethodID(class a/b/Bean, removeORVANEControlListener, " + LISTENER_SETTER + ")",
                                         "ExceptionClear() [pending]",
                                         "GetMethodID(class a/b/Bean, removeAll, ()V)",
                                         "ExceptionClear() [pending]",
                                         "GetMethodID(class " + FRAME + ", remove, (Ljava/awt/Component;)V)",
                                         "ExceptionClear() [pending]",
                                         "DeleteGlobalRef(global bean)",
                                         "GetMethodID(class " + FRAME + ", dispose, ()V)",
                                         "ExceptionClear() [pending]",
                                         "DeleteGlobalRef(global frame)",
                                         "DeleteGlobalRef(global listener)",
                                     });
    EXPECT_STRINGS(log.takeStatements(), Strings{
                                             "ERROR freeID != NULL: false",
                                             "ERROR removeID!=NULL: false",
                                             "ERROR removeAllID!=NULL: false",
                                             "ERROR removeCID!=NULL: false",
                                             "TRACE CHECKPOINT: Successfully freed bean.",
                                             "ERROR disposeID!=NULL: false",
                                             "TRACE CHECKPOINT: Successfully freed frame.",
                                             "TRACE CHECKPOINT: Successfully freed listener.",
                                         });
}

TEST_F(FrameUseTest, StopBeanGoesOnAfterExceptions)
{
    for (const char* method : {"free", "removeORVANEControlListener", "removeAll", "remove", "dispose"}) {
        java.outcomes[method] = RecordingJni::throws("java.lang.Error", method);
    }
    EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
    const auto failing = [](const std::string& lookUp, const std::string& call, const std::string& method) {
        return Strings{lookUp, call} + captureCalls("java.lang.Error", method);
    };
    EXPECT_STRINGS(
        java.takeCalls(),
        failing(FREE_CALLS[0], FREE_CALLS[1], "free") +
            failing("GetMethodID(class a/b/Bean, removeORVANEControlListener, " + LISTENER_SETTER + ")",
                    "CallVoidMethod(global bean, removeORVANEControlListener, global listener)", "removeORVANEControlListener") +
            failing("GetMethodID(class a/b/Bean, removeAll, ()V)", "CallVoidMethod(global bean, removeAll)", "removeAll") +
            failing("GetMethodID(class " + FRAME + ", remove, (Ljava/awt/Component;)V)",
                    "CallVoidMethod(global frame, remove, global bean)", "remove") +
            Strings{"DeleteGlobalRef(global bean)"} +
            failing("GetMethodID(class " + FRAME + ", dispose, ()V)", "CallVoidMethod(global frame, dispose)", "dispose") +
            Strings{"DeleteGlobalRef(global frame)", "DeleteGlobalRef(global listener)"});
    EXPECT_STRINGS(java.liveGlobals(), Strings{});
    EXPECT_FALSE(java.isPending());
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"Exception: java.lang.Error: free\n", "checkNoJNIException(): false",
                           "Exception: java.lang.Error: removeORVANEControlListener\n", "Exception: java.lang.Error: removeAll\n",
                           "Exception: java.lang.Error: remove\n", "Exception: java.lang.Error: dispose\n"});
}

} // namespace
