// Release of bean, frame and listener, which continues after any failure.
#include "tests/javabridge/BridgeFixture.h"

namespace {

const std::string FREE = "FINE -> stopBean\n" + forwardedTranscript("bean", BEAN, "free", "", "freeID != NULL") + R"(
    GetMethodID(class a/b/Bean, removeORVANEControlListener, (Lcom/orvane/tech/client/qmrt/QMRTControlListenerI;)V)
    TRACE removeID!=NULL: true
)";
const std::string REMOVE_ALL = R"(
    {check}
    GetMethodID(class a/b/Bean, removeAll, ()V)
    TRACE removeAllID!=NULL: true
    CallVoidMethod(global bean, removeAll)
    {check}
)";
const std::string DISPOSE = R"(
    TRACE CHECKPOINT: Successfully freed bean.
    GetMethodID(class com/velmora/tq/kesta/KESTAFrame, dispose, ()V)
    TRACE disposeID!=NULL: true
    CallVoidMethod(global frame, dispose)
    {check}
    DeleteGlobalRef(global frame)
    TRACE CHECKPOINT: Successfully freed frame.
)";

// The methods that are called, and the checks of their look-ups.
const std::pair<std::string, std::string> STEPS[] = {{"free", "freeID != NULL: false"},
                                                     {"removeORVANEControlListener", "removeID!=NULL: false"},
                                                     {"removeAll", "removeAllID!=NULL: false"},
                                                     {"remove", "removeCID!=NULL: false"},
                                                     {"dispose", "disposeID!=NULL: false"}};

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
            {check}
            DeleteGlobalRef(global bean))" +
                                     DISPOSE + R"(
            DeleteGlobalRef(global listener)
            TRACE CHECKPOINT: Successfully freed listener.
        )");
        EXPECT_LINES(java.liveGlobals(), Strings{});
        EXPECT_LINES(java.liveLocals(), CLASSES);
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
    Strings errors;
    for (const auto& [method, check] : STEPS) {
        java.missing.insert(method);
        errors = errors + Strings{"Exception: java.lang.NoSuchMethodError: " + method + "\\n", check};
    }
    EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
    EXPECT_LINES(log.takeErrors(), errors);
    EXPECT_LINES(java.liveGlobals(), Strings{});
}

TEST_F(StopBeanTest, GoesOnAfterExceptions)
{
    Strings errors;
    for (const auto& [method, check] : STEPS) {
        java.outcomes[method] = RecordingJni::throws("java.lang.Error", method);
        errors.push_back("Exception: java.lang.Error: " + method + "\\n");
    }
    errors.insert(errors.begin() + 1, "checkNoJNIException(): false");
    EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
    EXPECT_LINES(log.takeErrors(), errors);
    EXPECT_LINES(java.liveGlobals(), Strings{});
    EXPECT_FALSE(java.isPending());
}

TEST_F(StopBeanTest, WithoutMachineLogsItsFailedChecks)
{
    Strings errors;
    for (const auto& [method, check] : STEPS) {
        errors.push_back("ERROR " + check);
    }
    haveNoMachine();
    EXPECT_EQ(client.stopBean(bean, frame, listener), S_OK);
    EXPECT_LINES(callsOf(log.take()), errors);
}

} // namespace
