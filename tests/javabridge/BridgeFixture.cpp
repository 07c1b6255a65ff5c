#include "tests/javabridge/BridgeFixture.h"

#include "javabridge/JNIHelper.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <utility>

namespace {

std::mutex s_eventsMutex;
Strings s_events;

void receive(const std::string& event)
{
    const std::lock_guard lock(s_eventsMutex);
    s_events.push_back(event + " on thread " + std::to_string(GetCurrentThreadId()));
}

std::string narrow(JNIEnv* env, jstring text)
{
    SharedText shared;
    JNIHelper::javaStringToText(&shared, env, text);
    return shared.narrow();
}

void JNICALL testBridgeEvent(JNIEnv* env, jobject, jstring text, jint delay)
{
    receive("testBridgeEvent " + narrow(env, text) + ", " + std::to_string(delay));
}

void JNICALL onControlReady(JNIEnv* env, jobject, jstring text)
{
    receive("OnControlReady " + narrow(env, text));
}

void JNICALL onCustomEvent(JNIEnv* env, jobject, jstring text)
{
    receive("OnCustomEvent " + narrow(env, text));
}

const std::string CLASS_NAMES[] = {"CBridgeClient  ", "CJavaManagerJNIClient  "};

} // namespace

const ListenerNatives& listenerNatives()
{
    static const ListenerNatives NATIVES = {testBridgeEvent, onControlReady, onCustomEvent};
    return NATIVES;
}

Strings operator+(Strings left, const Strings& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Strings setterCalls(const std::string& object, const std::string& method, const std::string& value)
{
    return {"GetMethodID(class " + FRAME + ", " + method + ", (Z)V)",
            "CallVoidMethod(" + object + ", " + method + ", " + value + ")", "ExceptionCheck()"};
}

Strings captureCalls(const std::string& exceptionClass, const std::string& message)
{
    return {
        "ExceptionCheck() [pending]",
        "ExceptionOccurred() [pending]",
        "GetObjectClass(throwable " + exceptionClass + ") [pending]",
        "FindClass(java/lang/Class) [pending]",
        "GetMethodID(class java/lang/Class, getName, ()Ljava/lang/String;) [pending]",
        "CallObjectMethod(class " + exceptionClass + ", getName) [pending]",
        "GetStringUTFChars(\"" + exceptionClass + "\") [pending]",
        "GetMethodID(class " + exceptionClass + ", getMessage, ()Ljava/lang/String;) [pending]",
        "CallObjectMethod(throwable " + exceptionClass + ", getMessage) [pending]",
        "GetStringUTFChars(\"" + message + "\") [pending]",
        "ReleaseStringUTFChars(\"" + message + "\") [pending]",
        "DeleteLocalRef(\"" + message + "\") [pending]",
        "ReleaseStringUTFChars(\"" + exceptionClass + "\") [pending]",
        "DeleteLocalRef(\"" + exceptionClass + "\") [pending]",
        "DeleteLocalRef(throwable " + exceptionClass + ") [pending]",
        "ExceptionClear() [pending]",
    };
}

testing::AssertionResult sameStrings(const Strings& actual, const Strings& expected)
{
    if (actual == expected) {
        return testing::AssertionSuccess();
    }
    testing::AssertionResult result = testing::AssertionFailure();
    result << "the lists differ (= same, - expected, + actual):\n";
    for (size_t index = 0; index < std::max(actual.size(), expected.size()); index++) {
        if (index < actual.size() && index < expected.size() && actual[index] == expected[index]) {
            result << "= " << actual[index] << "\n";
            continue;
        }
        if (index < expected.size()) {
            result << "- " << expected[index] << "\n";
        }
        if (index < actual.size()) {
            result << "+ " << actual[index] << "\n";
        }
    }
    return result;
}

Strings takeReceivedEvents()
{
    const std::lock_guard lock(s_eventsMutex);
    return std::exchange(s_events, {});
}

ClientLog::ClientLog()
{
    Logger::setMaxLogLevel(LOGLEVEL_TRACE);
    m_stream.clear();
}

ClientLog::~ClientLog()
{
    if (testing::Test::HasFailure()) {
        const std::vector<fixtures::LogLine> lines = m_stream.lines();
        for (size_t index = lines.size() - std::min<size_t>(lines.size(), 60); index < lines.size(); index++) {
            std::printf("log: %s %s\n", lines[index].level.c_str(), lines[index].body.c_str());
        }
    }
    Logger::setMaxLogLevel(LOGLEVEL_WARN);
}

Strings ClientLog::take(bool wantScopes)
{
    Strings result;
    bool isBacktrace = false;
    for (const fixtures::LogLine& line : m_stream.lines()) {
        isBacktrace = line.body == fixtures::BEGIN_BANNER || (isBacktrace && line.body != fixtures::END_BANNER);
        const size_t begin = line.body.find_first_not_of(' ');
        const std::string marker = begin == std::string::npos ? "" : line.body.substr(begin, 3);
        const bool isScope = marker == "-> " || marker == "<- ";
        if (line.level.empty() || isScope != wantScopes || marker == "<- " || (isBacktrace && isScope)) {
            continue;
        }
        const std::string text = withoutClassName(line.text());
        if (wantScopes && text == line.text()) {
            continue;
        }
        result.push_back(line.level + " " + text);
    }
    return result;
}

std::string ClientLog::withoutClassName(const std::string& text)
{
    const auto* const className = std::find_if(std::begin(CLASS_NAMES), std::end(CLASS_NAMES),
                                               [&](const std::string& name) { return text.starts_with(name); });
    return className == std::end(CLASS_NAMES) ? text : text.substr(className->size());
}

Strings ClientLog::takeSteps()
{
    Strings steps;
    bool isBacktrace = false;
    size_t destructorDepth = std::string::npos;
    for (const fixtures::LogLine& line : m_stream.lines()) {
        isBacktrace = line.body == fixtures::BEGIN_BANNER || (isBacktrace && line.body != fixtures::END_BANNER);
        const size_t depth = line.body.find_first_not_of(' ');
        if (line.level.empty() || isBacktrace || (destructorDepth != std::string::npos && depth > destructorDepth)) {
            continue;
        }
        const bool isEntry = line.body.compare(depth, 3, "-> ") == 0;
        destructorDepth = isEntry && line.body.find("  ~") != std::string::npos ? depth : std::string::npos;
        if (destructorDepth == std::string::npos && line.body.compare(depth, 3, "<- ") != 0) {
            steps.push_back(line.level + " " + withoutClassName(line.text()));
        }
    }
    m_stream.clear();
    return steps;
}

Strings ClientLog::takeScopes()
{
    return take(true);
}

Strings ClientLog::takeStatements()
{
    const Strings result = take(false);
    m_stream.clear();
    return result;
}

Strings ClientLog::takeStatements(const std::string& level)
{
    Strings result;
    for (const std::string& statement : takeStatements()) {
        if (statement.starts_with(level + " ")) {
            result.push_back(statement.substr(level.size() + 1));
        }
    }
    return result;
}

BridgeTest::BridgeTest()
    : bean(java.global("bean"))
    , frame(java.global("frame"))
    , listener(java.global("listener"))
{
    client.m_ENV = java.env();
    client.m_JVM = java.vm();
    java.nameFunction(reinterpret_cast<void*>(testBridgeEvent), "testBridgeEvent");
    java.nameFunction(reinterpret_cast<void*>(onControlReady), "onControlReady");
    java.nameFunction(reinterpret_cast<void*>(onCustomEvent), "onCustomEvent");
}

BridgeTest::~BridgeTest()
{
    EXPECT_EQ(java.heldCharacters(), 0);
}

void BridgeTest::haveControl()
{
    client.m_BeanClass = java.localClass(BEAN);
    client.m_FrameClass = java.localClass(FRAME);
    client.m_ListenerClass = java.localClass(LISTENER);
}

void BridgeTest::haveNoMachine()
{
    client.m_ENV = nullptr;
    client.m_JVM = nullptr;
}
