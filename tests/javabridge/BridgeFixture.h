// A client on a recording Java virtual machine, and a transcript: its JNI calls and log lines in one order.
#pragma once

#include "javabridge/JavaManagerJNIClient.h"
#include "javabridge/ListenerNatives.h"
#include "tests/javabridge/RecordingJni.h"
#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Strings = std::vector<std::string>;

// Compares two lists line by line. The expected one may be a text, whose lines may be indented and may begin with an empty line.
// In it "{pid}" is the id of this process, "{check}" a check for an exception that finds none, and "{checked}" one that tells so.
#define EXPECT_LINES(actual, ...) EXPECT_EQ(joined(actual), joined(__VA_ARGS__))
std::string joined(const Strings& lines);
Strings linesOf(std::string text);
inline std::string joined(const std::string& text)
{
    return joined(linesOf(text));
}

Strings operator+(Strings left, const Strings& right);

inline const std::string BEAN = "a/b/Bean";
inline const std::string FRAME = "com/velmora/tq/kesta/KESTAFrame";
inline const std::string LISTENER = "com/velmora/tq/kesta/KESTAListener";
inline const Strings CLASSES = {"class " + BEAN, "class " + FRAME, "class " + LISTENER};
inline const std::string PREFERENCES = "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";
inline const std::string RUNTIMES = "SOFTWARE\\JavaSoft\\Java Runtime Environment";
inline const std::string RUNTIMES_NEW = "SOFTWARE\\JavaSoft\\JRE";

// The JNI calls and errors of a transcript.
Strings callsOf(Strings transcript);
// The transcript of a frame's setter that succeeds.
std::string setterTranscript(const std::string& object, const std::string& operation, const std::string& method, bool value);
// The transcript of a forwarded call. Parameters: S for each text, I for each number. Texts are "first" and "second", numbers 42.
std::string forwardedTranscript(const std::string& object, const std::string& className, const std::string& method,
                                const std::string& parameters, const std::string& check, bool hasAnswer = true);
// How a pending exception is captured, the check included.
Strings capture(const std::string& exceptionClass, const std::string& message);

// What makes the machine fail, and the capture of the exception that it leaves, if any.
struct SFailure
{
    static SFailure missingClass(const std::string& name)
    {
        return {{name}, {}, {}, capture("java.lang.NoClassDefFoundError", name)};
    }
    // "METHOD" or "CLASS.METHOD", as for the following one.
    static SFailure missingMethod(const std::string& name)
    {
        return {{name}, {}, {}, capture("java.lang.NoSuchMethodError", name.substr(name.rfind('.') + 1))};
    }
    static SFailure throwing(const std::string& name)
    {
        return {{}, {{name, RecordingJni::throws("java.lang.Error", "said why")}}, {}, capture("java.lang.Error", "said why")};
    }
    // From that call on.
    static SFailure noObject(int call) { return {{}, {}, {{"NewObject", call}}, {}}; }
    static SFailure noText(int call)
    {
        return {{}, {}, {{"NewStringUTF", call}}, capture("java.lang.OutOfMemoryError", "Java heap space")};
    }

    std::set<std::string> missing;
    std::map<std::string, RecordingJni::Outcome> outcomes;
    std::map<std::string, int> nullFrom;
    Strings captured;
};

// The calls of the listener's natives since the last call: "NAME TEXT[, DELAY] on thread ID".
Strings takeReceivedEvents();

// Makes protected members public.
class CBridgeClient : public CJavaManagerJNIClient
{
public:
    explicit CBridgeClient(const char* basisControlPath)
        : CJavaManagerJNIClient(basisControlPath)
    {
    }
    ~CBridgeClient() override = default;

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

// The process's log at the highest level, with the calls of the recording machine between the lines. Its end is printed when the
// test fails.
//
// A line is "LEVEL text", the entry of a scope "LEVEL -> text" without the blank at its end. Lines of the client itself come
// without its class name, those of its static members as "LEVEL static: text", those of other modules as "LEVEL MODULE: text".
// Line feeds in a text are written "\n". Exits of scopes and backtraces are left out.
class ClientLog
{
public:
    ClientLog();
    ~ClientLog();
    ClientLog(const ClientLog&) = delete;
    ClientLog& operator=(const ClientLog&) = delete;

    // Everything since the last take.
    Strings take();
    // Only the statements of a level, without the level.
    Strings take(const std::string& level);
    Strings takeErrors() { return take("ERROR"); }
    const fixtures::DebugStream& stream() const { return m_stream; }

private:
    fixtures::DebugStream m_stream;
};

class BridgeTest : public testing::Test
{
protected:
    BridgeTest();
    ~BridgeTest() override;

    // Puts the client into its state after startBean and regEventListener, without a record of their calls.
    void haveControl();
    // Puts the client into its state after a failed start of the virtual machine.
    void haveNoMachine();
    // Discards log and record.
    void forget();
    // The same, and makes the machine fail in this way only.
    void arrange(const SFailure& failure);

    RecordingJni java;
    CBridgeClient client{"C:\\basis\\Control.jar"};
    jobject bean;
    jobject frame;
    jobject listener;
    ClientLog log;
};
