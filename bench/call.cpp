// What a call costs inside the server: two texts in, one out, from the COM object to Java and back on the same thread. Measured
// against the same Java method through bare JNI: with a look-up in each call, as in the server; with the clock readings of the
// server's log scopes as well; and with a kept method id.
#include "bench/bareJava.h"
#include "bench/harness.h"
#include "bench/inProcess.h"
#include "tests/support/ImportHook.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace {

const CComBSTR METHOD(L"echo");
const CComBSTR VALUE(L"a text of the usual length");

// The scopes of a call, each of which reads the clock once: callMethod in the COM object, the bean frame and the Java
// bridge, the conversions of two texts in and one out, the check for a Java exception, and the COM object's error info.
constexpr int CLOCK_READINGS = 8;

// Counts only the program's own readings: Java has its own import table.
void checkClockReadings(IJavaManager* object)
{
    static int s_readings = 0;
    using Hook = ImportHook<decltype(&GetSystemTimeAsFileTime)>;
    const Hook hook("GetSystemTimeAsFileTime", [](LPFILETIME time) {
        ++s_readings;
        Hook::s_original(time);
    });
    CComBSTR answer;
    if (object->callMethod(METHOD, VALUE, &answer) != S_OK) {
        throw std::runtime_error("a call has failed");
    }
    if (s_readings != CLOCK_READINGS) {
        throw std::runtime_error("a call reads the clock " + std::to_string(s_readings) + " times, but is compared with " +
                                 std::to_string(CLOCK_READINGS) + " readings");
    }
}

void readClock()
{
    for (int reading = 0; reading < CLOCK_READINGS; ++reading) {
        FILETIME time;
        GetSystemTimeAsFileTime(&time);
    }
}

void check(benchmark::State& state, BSTR answer)
{
    if (!answer || std::wstring_view(answer) != VALUE.m_str) {
        state.SkipWithError("wrong answer");
    }
    SysFreeString(answer);
}

void measure(int argc, char** argv)
{
    const bench::CInProcess server;
    // In the server, these two enclose every call.
    const LogScope process({"main", __LINE__}, LOGLEVEL_INFO);
    const LogScope messageLoop({"KESTAserver", __LINE__}, LOGLEVEL_FINE);
    JNIEnv* const env = bench::runningMachine();
    const jobject control = bench::newControl(env);
    const jclass type = env->GetObjectClass(control);
    const jmethodID kept = env->GetMethodID(type, "callMethod", bench::CALL_SIGNATURE);
    checkClockReadings(server.object());

    benchmark::RegisterBenchmark("object", [&](benchmark::State& state) {
        for (auto _ : state) {
            BSTR answer = nullptr;
            server.object()->callMethod(METHOD, VALUE, &answer);
            check(state, answer);
        }
    });
    // Not compared: the same with every line written.
    benchmark::RegisterBenchmark("object, full log", [&](benchmark::State& state) {
        Logger::setMaxLogLevel(LOGLEVEL_TRACE);
        for (auto _ : state) {
            BSTR answer = nullptr;
            server.object()->callMethod(METHOD, VALUE, &answer);
            check(state, answer);
        }
        Logger::setMaxLogLevel(LOGLEVEL_WARN);
    });
    benchmark::RegisterBenchmark("looked up", [&](benchmark::State& state) {
        for (auto _ : state) {
            check(state, bench::lookUpAndCallMethod(env, control, type, METHOD, VALUE));
        }
    });
    benchmark::RegisterBenchmark("looked up, clock read", [&](benchmark::State& state) {
        for (auto _ : state) {
            readClock();
            check(state, bench::lookUpAndCallMethod(env, control, type, METHOD, VALUE));
        }
    });
    benchmark::RegisterBenchmark("kept", [&](benchmark::State& state) {
        for (auto _ : state) {
            check(state, bench::callMethod(env, control, kept, METHOD, VALUE));
        }
    });
    bench::write(argc, argv, bench::runInTurn(argc, argv));
}

} // namespace

int main(int argc, char** argv)
{
    return bench::guarded(measure, argc, argv);
}
