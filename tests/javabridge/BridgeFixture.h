// A client whose Java virtual machine is a recording, and the log that it writes meanwhile.
#pragma once

#include "javabridge/JavaManagerJNIClient.h"
#include "javabridge/ListenerNatives.h"
#include "tests/javabridge/RecordingJni.h"
#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Strings = std::vector<std::string>;

// Compares two lists line by line. The expected one may hold commas.
#define EXPECT_STRINGS(actual, ...) EXPECT_TRUE(sameStrings(actual, __VA_ARGS__))
testing::AssertionResult sameStrings(const Strings& actual, const Strings& expected);

Strings operator+(Strings left, const Strings& right);

inline const std::string BEAN = "a/b/Bean";
inline const std::string FRAME = "com/velmora/tq/kesta/KESTAFrame";
inline const std::string LISTENER = "com/velmora/tq/kesta/KESTAListener";
inline const std::string LISTENER_SETTER = "(Lcom/orvane/tech/client/qmrt/QMRTControlListenerI;)V";

// The record of one frame setter that succeeds.
Strings setterCalls(const std::string& object, const std::string& method, const std::string& value);
// The record of an exception's capture, from the check on.
Strings captureCalls(const std::string& exceptionClass, const std::string& message);

// What the listener's natives were given since the last call of this: "NAME TEXT[, DELAY] on thread ID".
Strings takeReceivedEvents();

// Opens what the room keeps to itself.
class CBridgeClient : public CJavaManagerJNIClient
{
public:
    explicit CBridgeClient(const char* basisControlPath)
        : CJavaManagerJNIClient(basisControlPath)
    {
    }
    ~CBridgeClient() override = default;

    using CJavaManagerJNIClient::callBooleanSetterOnFrame;
    using CJavaManagerJNIClient::checkNoJNIException;
    using CJavaManagerJNIClient::createJVM;
    using CJavaManagerJNIClient::createUniqueID;
    using CJavaManagerJNIClient::destroyJVM;
    using CJavaManagerJNIClient::findJVM;
    using CJavaManagerJNIClient::findORVControls;
    using CJavaManagerJNIClient::loadJVMlibrary;
    using CJavaManagerJNIClient::m_BeanClass;
    using CJavaManagerJNIClient::m_DLLHandle;
    using CJavaManagerJNIClient::m_ENV;
    using CJavaManagerJNIClient::m_FrameClass;
    using CJavaManagerJNIClient::m_JVM;
    using CJavaManagerJNIClient::m_JVMArguments;
    using CJavaManagerJNIClient::m_ListenerClass;
    using CJavaManagerJNIClient::m_UniqueWindowID;
    using CJavaManagerJNIClient::registerNative;
};

// What the client logged at the highest level, without the class name in front. The end of it is printed when the test failed.
class ClientLog
{
public:
    ClientLog();
    ~ClientLog();
    ClientLog(const ClientLog&) = delete;
    ClientLog& operator=(const ClientLog&) = delete;

    // "LEVEL text" of every statement since the last call of this, without scopes and backtraces.
    Strings takeStatements();
    // The statements of a level: "text".
    Strings takeStatements(const std::string& level);
    // "LEVEL text" of every scope that the client itself opened.
    Strings takeScopes();
    // "LEVEL text" of every entry and statement since the last call of one of these, the registry's classes included. What
    // destructors do, and backtraces, are left out.
    Strings takeSteps();
    const fixtures::DebugStream& stream() const { return m_stream; }

private:
    Strings take(bool wantScopes);
    static std::string withoutClassName(const std::string& text);

    fixtures::DebugStream m_stream;
};

class BridgeTest : public testing::Test
{
protected:
    BridgeTest();
    ~BridgeTest() override;

    // The client as it is after startBean and regEventListener. Their calls are not in the record.
    void haveControl();
    // The client as it is when no virtual machine could be started.
    void haveNoMachine();
    // The client's scopes and statements up to here are of no interest.
    void forgetLog() { log.takeStatements(); }

    RecordingJni java;
    CBridgeClient client{"C:\\basis\\Control.jar"};
    jobject bean;
    jobject frame;
    jobject listener;
    ClientLog log;
};
