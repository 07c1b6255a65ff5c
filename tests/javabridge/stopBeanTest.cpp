// Release of bean, frame and listener, which continues after any failure.
#include "tests/javabridge/BridgeFixture.h"

namespace {

const std::string FREE = R"(
    FINE -> stopBean
    FINE -> free
    GetMethodID(class a/b/Bean, free, ()Ljava/lang/String;)
    TRACE freeID != NULL: true
    CallObjectMethod(global bean, free)
    {checked}
    FINE -> JNIHelper: javaStringToBstr
    TRACE JNIHelper: result!=NULL: true
    TRACE JNIHelper: env!=NULL: true
    GetStringUTFChars("answer of free")
    ReleaseStringUTFChars("answer of free")
    DeleteLocalRef("answer of free")
    GetMethodID(class a/b/Bean, removeORVANEControlListener, (Lcom/orvane/tech/client/qmrt/QMRTControlListenerI;)V)
    TRACE removeID!=NULL: true
)";
const std::string REMOVE_ALL = R"(
    FINE -> checkNoJNIException
    ExceptionCheck()
    GetMethodID(class a/b/Bean, removeAll, ()V)
    TRACE removeAllID!=NULL: true
    CallVoidMethod(global bean, removeAll)
    FINE -> checkNoJNIException
    ExceptionCheck()
)";
const std::string DISPOSE = R"(
    TRACE CHECKPOINT: Successfully freed bean.
    GetMethodID(class com/velmora/tq/kesta/KESTAFrame, dispose, ()V)
    TRACE disposeID!=NULL: true
    CallVoidMethod(global frame, dispose)
    FINE -> checkNoJNIException
    ExceptionCheck()
    DeleteGlobalRef(global frame)
    TRACE CHECKPOINT: Successfully freed frame.
)";

class StopBeanTest : public BridgeTest
{
protected:
    StopBeanTest() { haveControl(); }
};

TEST_F(StopBeanTest, TakesEveryControlApartInOrder)
{
    for (int control = 1; control <= 2; control++) {
        SCOPED_TRACE(control);
        EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
        EXPECT_LINES(log.take(), FREE + "CallVoidMethod(global bean, removeORVANEControlListener, global listener)" + REMOVE_ALL +
                                     R"(
            GetMethodID(class com/velmora/tq/kesta/KESTAFrame, remove, (Ljava/awt/Component;)V)
            TRACE removeCID!=NULL: true
            CallVoidMethod(global frame, remove, global bean)
            FINE -> checkNoJNIException
            ExceptionCheck()
            DeleteGlobalRef(global bean))" +
                                     DISPOSE + R"(
            DeleteGlobalRef(global listener)
            TRACE CHECKPOINT: Successfully freed listener.
        )");
        EXPECT_LINES(java.liveGlobals(), Strings{});
        EXPECT_LINES(java.liveLocals(), Strings{"class a/b/Bean", "class " + FRAME, "class " + LISTENER});
        bean = java.global("bean");
        frame = java.global("frame");
        listener = java.global("listener");
    }
}

TEST_F(StopBeanTest, ReleasesWhateverThereIs)
{
    EXPECT_EQ(client.stopBean(bean, nullptr, nullptr), S_OK);
    EXPECT_LINES(log.take(), FREE + "CallVoidMethod(global bean, removeORVANEControlListener, null)" + REMOVE_ALL + R"(
        DeleteGlobalRef(global bean)
        TRACE CHECKPOINT: Successfully freed bean.
        TRACE CHECKPOINT: Successfully freed frame.
        TRACE CHECKPOINT: Successfully freed listener.
    )");
    EXPECT_EQ(client.stopBean(nullptr, frame, listener), S_OK);
    EXPECT_LINES(log.take(), "FINE -> stopBean" + DISPOSE + R"(
        DeleteGlobalRef(global listener)
        TRACE CHECKPOINT: Successfully freed listener.
    )");
    EXPECT_EQ(client.stopBean(nullptr, nullptr, nullptr), S_OK);
    EXPECT_LINES(log.take(), R"(
        FINE -> stopBean
        TRACE CHECKPOINT: Successfully freed bean.
        TRACE CHECKPOINT: Successfully freed frame.
        TRACE CHECKPOINT: Successfully freed listener.
    )");
}

TEST_F(StopBeanTest, GoesOnAfterMissingMethods)
{
    java.missing = {"free", "removeORVANEControlListener", "removeAll", "remove", "dispose"};
    EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
    EXPECT_LINES(log.takeErrors(), R"(
        Exception: java.lang.NoSuchMethodError: free\n
        freeID != NULL: false
        Exception: java.lang.NoSuchMethodError: removeORVANEControlListener\n
        removeID!=NULL: false
        Exception: java.lang.NoSuchMethodError: removeAll\n
        removeAllID!=NULL: false
        Exception: java.lang.NoSuchMethodError: remove\n
        removeCID!=NULL: false
        Exception: java.lang.NoSuchMethodError: dispose\n
        disposeID!=NULL: false
    )");
    EXPECT_LINES(java.liveGlobals(), Strings{});
}

TEST_F(StopBeanTest, GoesOnAfterExceptions)
{
    for (const char* method : {"free", "removeORVANEControlListener", "removeAll", "remove", "dispose"}) {
        java.outcomes[method] = RecordingJni::throws("java.lang.Error", method);
    }
    EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
    EXPECT_LINES(log.takeErrors(), R"(
        Exception: java.lang.Error: free\n
        checkNoJNIException(): false
        Exception: java.lang.Error: removeORVANEControlListener\n
        Exception: java.lang.Error: removeAll\n
        Exception: java.lang.Error: remove\n
        Exception: java.lang.Error: dispose\n
    )");
    EXPECT_LINES(java.liveGlobals(), Strings{});
    EXPECT_FALSE(java.isPending());
}

TEST_F(StopBeanTest, WithoutMachineLogsItsFailedChecks)
{
    haveNoMachine();
    EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
    EXPECT_LINES(log.takeErrors(), R"(
        freeID != NULL: false
        removeID!=NULL: false
        removeAllID!=NULL: false
        removeCID!=NULL: false
        disposeID!=NULL: false
    )");
    EXPECT_LINES(java.takeCalls(), Strings{});
}

} // namespace
