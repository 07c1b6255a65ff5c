#include "tool/Probe.h"

#include "com/JavaManagerATLObjectControl.h"
#include "javabridge/JavaManagerJNIClient.h"
#include "support/helpers.h"
#include "tool/Findings.h"

#include <chrono>
#include <sstream>

namespace {

// "a/B" of "(La/B;)V".
std::string argumentClass(const std::string& signature)
{
    return signature.substr(2, signature.find(';') - 2);
}

// The server's client, opened for a start without a frame. Never ended: the process ends with the answer.
class CStart : public CJavaManagerJNIClient
{
public:
    CStart(const char* basisControl, const char* server)
        : CJavaManagerJNIClient(basisControl)
    {
        m_ExecutablePath = server;
    }
    using CJavaManagerJNIClient::createJVM;

    nlohmann::json missingClasses()
    {
        nlohmann::json missing = nlohmann::json::array();
        for (const std::string& name : {std::string(FRAME_CLASS), std::string(LISTENER_CLASS), argumentClass(LISTENER_SETTER),
                                        jniClassName(BEAN_PACKAGE, BEAN_CLASS)}) {
            if (findClass(name.c_str()) == nullptr) {
                missing.push_back(name);
            }
        }
        return missing;
    }
    // As the COM object and the bean frame do it. False when a part fails.
    bool showFrame()
    {
        jobject bean = nullptr;
        jobject frame = nullptr;
        jobject listener = nullptr;
        int frameId = -1;
        return SUCCEEDED(startBean(&bean, &frame, &frameId, BEAN_PACKAGE, BEAN_CLASS)) &&
               SUCCEEDED(regEventListener(&listener, frame, bean)) && SUCCEEDED(setFrameVisible(frame, true)) &&
               SUCCEEDED(addBean(frame, bean));
    }
    // Until Java's window thread has done what it has to do so far.
    void waitForWindowThread()
    {
        const jclass queue = findClass("java/awt/EventQueue");
        const jclass thread = findClass("java/lang/Thread");
        // A thread that is not started serves as a task that does nothing.
        const jobject nothing = m_ENV->NewObject(thread, m_ENV->GetMethodID(thread, "<init>", "()V"));
        m_ENV->CallStaticVoidMethod(queue, m_ENV->GetStaticMethodID(queue, "invokeAndWait", "(Ljava/lang/Runnable;)V"), nothing);
    }
    [[noreturn]] void end()
    {
        const jclass system = findClass("java/lang/System");
        m_ENV->CallStaticVoidMethod(system, m_ENV->GetStaticMethodID(system, "exit", "(I)V"), 0);
        std::abort();
    }
    // "" when Java does not tell.
    std::string systemProperty(const char* name)
    {
        const jclass system = findClass("java/lang/System");
        if (system == nullptr) {
            return "";
        }
        const jmethodID getProperty = m_ENV->GetStaticMethodID(system, "getProperty", "(Ljava/lang/String;)Ljava/lang/String;");
        const jstring value = static_cast<jstring>(m_ENV->CallStaticObjectMethod(system, getProperty, m_ENV->NewStringUTF(name)));
        return value == nullptr ? "" : m_ENV->GetStringUTFChars(value, nullptr);
    }
};

// The texts of the errors that the log collected, without what stands in front of them and without the backtraces.
nlohmann::json loggedErrors()
{
    nlohmann::json errors = nlohmann::json::array();
    std::istringstream lines(Logger::getErrorEntries());
    for (std::string line; std::getline(lines, line);) {
        const size_t header = line.find("CStart  ");
        if (line.find(" ERROR ") != std::string::npos && header != std::string::npos) {
            errors.push_back(toUtf8(line.substr(header + sizeof "CStart  " - 1)));
        }
    }
    return errors;
}

} // namespace

int probeRuntime(const RuntimeStart& start, const std::string& answerFile)
{
    CHelpers::setErrorModeSilent();
    static CStart* const s_start = new CStart(start.basisControl.c_str(), start.server.c_str());
    Logger::getErrorEntries();
    const auto begin = std::chrono::steady_clock::now();
    const auto passed = [&] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin).count();
    };
    nlohmann::json answer = {{"isStarted", s_start->createJVM(start.runtime) == 0}};
    answer["milliseconds"] = passed();
    if (answer["isStarted"] && start.withFrame) {
        answer["hasFrame"] = s_start->showFrame();
        answer["frameMilliseconds"] = passed();
    }
    answer["errors"] = loggedErrors();
    if (answer["isStarted"]) {
        answer["javaVersion"] = s_start->systemProperty("java.version");
        answer["vendor"] = s_start->systemProperty("java.vendor");
        answer["usesClassData"] = s_start->systemProperty("java.vm.info").find("sharing") != std::string::npos;
        answer["missingClasses"] = s_start->missingClasses();
        answer["classErrors"] = loggedErrors();
    }
    writeAnswer(answer, answerFile);
    if (answer.value("hasFrame", false)) {
        s_start->waitForWindowThread();
        s_start->end();
    }
    // Java's threads may hold the process up, and there is nothing left to do.
    TerminateProcess(GetCurrentProcess(), 0);
    return 0;
}
