#include "tests/javabridge/BridgeFixture.h"

#include "javabridge/JNIHelper.h"

#include <algorithm>
#include <cstdio>
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

// As EXPECT_LINES compares it.
std::string render(const fixtures::LogLine& line)
{
    if (line.level.empty()) {
        return line.body;
    }
    const std::string source = line.source.substr(0, line.source.find_last_not_of(' ') + 1);
    const bool isEntry = line.marker() == "-> ";
    std::string text = line.text();
    std::string owner = source + ": ";
    if (source == "JavaManagerJNIClient") {
        owner = "static: ";
        for (const std::string className : {"CBridgeClient  ", "CJavaManagerJNIClient  "}) {
            if (text.starts_with(className)) {
                owner.clear();
                text.erase(0, className.size());
            }
        }
    }
    if (isEntry && text.ends_with(' ')) {
        text.pop_back();
    }
    for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at++) {
        text.replace(at, 1, "\\n");
    }
    return line.level + " " + (isEntry ? "-> " : "") + owner + text;
}

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

std::string setterTranscript(const std::string& object, const std::string& operation, const std::string& method, bool value)
{
    const std::string number = value ? "1" : "0";
    return "FINE -> " + operation + " " + number + "\nFINE -> callBooleanSetterOnFrame " + method + ", " + number +
           "\nGetMethodID(class " + FRAME + ", " + method + ", (Z)V)\nTRACE methodID!=NULL: true\nCallVoidMethod(" + object +
           ", " + method + ", " + (value ? "true" : "false") + ")\n{checked}\n";
}

std::string forwardedTranscript(const std::string& object, const std::string& className, const std::string& method,
                                const std::string& parameters, const std::string& check, bool hasAnswer)
{
    std::string scope;
    std::string passed;
    std::string signature;
    std::string conversions;
    std::string deletions;
    for (const char parameter : parameters) {
        const std::string text = parameter == 'I' ? "42" : conversions.empty() ? "first" : "second";
        scope += (scope.empty() ? "" : ", ") + text;
        passed += ", " + (parameter == 'I' ? text : "\"" + text + "\"");
        signature += parameter == 'I' ? "I" : "Ljava/lang/String;";
        if (parameter == 'S') {
            conversions += "FINE -> JNIHelper: bstrToJavaString\nNewStringUTF(" + text + ")\n";
            deletions += "DeleteLocalRef(\"" + text + "\")\n";
        }
    }
    const std::string result = hasAnswer ? "Ljava/lang/String;" : "V";
    const std::string answer = "\"answer of " + method + "\"";
    return "FINE -> " + method + (scope.empty() ? "" : " ") + scope + "\nGetMethodID(class " + className + ", " + method + ", (" +
           signature + ")" + result + ")\nTRACE " + check + ": true\n" + conversions +
           (hasAnswer ? "CallObjectMethod(global " : "CallVoidMethod(global ") + object + ", " + method + passed +
           ")\n{checked}\n" + deletions +
           (hasAnswer ? "FINE -> JNIHelper: javaStringToBstr\nTRACE JNIHelper: result!=NULL: true\nTRACE JNIHelper: env!=NULL: "
                        "true\nGetStringUTFChars(" +
                            answer + ")\nReleaseStringUTFChars(" + answer + ")\nDeleteLocalRef(" + answer + ")\n"
                      : "");
}

Strings capture(const std::string& exceptionClass, const std::string& message)
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
        "ERROR Exception: " + exceptionClass + ": " + message + "\\n",
        "ReleaseStringUTFChars(\"" + message + "\") [pending]",
        "DeleteLocalRef(\"" + message + "\") [pending]",
        "ReleaseStringUTFChars(\"" + exceptionClass + "\") [pending]",
        "DeleteLocalRef(\"" + exceptionClass + "\") [pending]",
        "DeleteLocalRef(throwable " + exceptionClass + ") [pending]",
        "ExceptionClear() [pending]",
    };
}

std::string joined(const Strings& lines)
{
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

Strings linesOf(std::string text)
{
    const std::pair<std::string, std::string> abbreviations[] = {
        {"{pid}", std::to_string(GetCurrentProcessId())},
        {"{checked}", "{check}\nTRACE checkNoJNIException(): true"},
        {"{check}", "FINE -> checkNoJNIException\nExceptionCheck()"},
    };
    for (const auto& [name, meaning] : abbreviations) {
        for (size_t at = 0; (at = text.find(name, at)) != std::string::npos;) {
            text.replace(at, name.size(), meaning);
        }
    }
    Strings lines;
    for (const std::string& line : fixtures::splitLines(text)) {
        if (const size_t begin = line.find_first_not_of(' '); begin != std::string::npos) {
            lines.push_back(line.substr(begin));
        }
    }
    return lines;
}

Strings callsOf(Strings transcript)
{
    std::erase_if(transcript, [](const std::string& line) {
        return line.starts_with("FINE ") || line.starts_with("TRACE ") || line.starts_with("INFO ");
    });
    return transcript;
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

Strings ClientLog::take()
{
    Strings result;
    bool isBacktrace = false;
    for (const fixtures::LogLine& line : m_stream.lines()) {
        const std::string marker = line.marker();
        if (line.body == fixtures::BEGIN_BANNER || line.body == fixtures::END_BANNER) {
            isBacktrace = line.body == fixtures::BEGIN_BANNER;
        } else if (marker != "<- " && !(marker == "-> " && isBacktrace)) {
            result.push_back(render(line));
        }
    }
    m_stream.clear();
    return result;
}

Strings ClientLog::take(const std::string& level)
{
    Strings result;
    for (const std::string& line : take()) {
        if (line.starts_with(level + " ") && !line.starts_with(level + " -> ")) {
            result.push_back(line.substr(level.size() + 1));
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
    java.onCall = [](const std::string& call) { OutputDebugStringA((call + "\n").c_str()); };
    java.nameFunction(reinterpret_cast<void*>(testBridgeEvent), "testBridgeEvent");
    java.nameFunction(reinterpret_cast<void*>(onControlReady), "onControlReady");
    java.nameFunction(reinterpret_cast<void*>(onCustomEvent), "onCustomEvent");
}

BridgeTest::~BridgeTest()
{
    EXPECT_EQ(java.heldCharacters(), 0);
    java.onCall = nullptr;
}

void BridgeTest::haveControl()
{
    client.m_BeanClass = java.localClass(BEAN);
    client.m_FrameClass = java.localClass(FRAME);
    client.m_ListenerClass = java.localClass(LISTENER);
}

void BridgeTest::forget()
{
    java.takeCalls();
    log.take();
}

void BridgeTest::arrange(const SFailure& failure)
{
    java.missing = failure.missing;
    java.outcomes = failure.outcomes;
    java.nullFrom = failure.nullFrom;
    forget();
}

void BridgeTest::haveNoMachine()
{
    client.m_ENV = nullptr;
    client.m_JVM = nullptr;
}
