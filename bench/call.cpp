// What the way through the server costs a call: two texts in, one out, from the COM object to Java and back on the same thread.
// Against the same Java method through bare JNI, with the look-up that the server makes in each call and with a kept method id.
#include "bench/bareJava.h"
#include "bench/harness.h"
#include "bench/inProcess.h"

#include <stdexcept>
#include <string_view>

namespace {

const CComBSTR METHOD(L"echo");
const CComBSTR VALUE(L"a text of the usual length");

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
    // In the server, every call comes within these two.
    const LogScope process({"main", __LINE__}, LOGLEVEL_INFO);
    const LogScope messageLoop({"KESTAserver", __LINE__}, LOGLEVEL_FINE);
    JNIEnv* const env = bench::runningMachine();
    const jobject control = bench::newControl(env);
    const jclass type = env->GetObjectClass(control);
    const jmethodID kept = env->GetMethodID(type, "callMethod", bench::CALL_SIGNATURE);

    benchmark::RegisterBenchmark("object", [&](benchmark::State& state) {
        for (auto _ : state) {
            BSTR answer = nullptr;
            server.object()->callMethod(METHOD, VALUE, &answer);
            check(state, answer);
        }
    });
    // For readers: the same with every line written.
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
            const jmethodID found = env->GetMethodID(type, "callMethod", bench::CALL_SIGNATURE);
            check(state, bench::callMethod(env, control, found, METHOD, VALUE));
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
