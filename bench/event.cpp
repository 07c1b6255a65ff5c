// What an event costs inside the server: the hand-over by Java's thread, and draining queues of different lengths on the main
// thread.
#include "bench/bareJava.h"
#include "bench/countingSink.h"
#include "bench/harness.h"
#include "bench/inProcess.h"

#include <list>
#include <stdexcept>
#include <thread>

namespace {

constexpr char TEXT[] = "an event's text";
constexpr int EVENTS = 500; // handed over before the main thread pumps messages again
constexpr long long REPETITIONS = 20;
constexpr long long DRAINED = 100000; // the longest queue; in a round about as many are drained for each length

// Handles the main thread's messages like the server's loop.
void pump()
{
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (message.message == WM_PROCESSEVENTQUEUE) {
            CBeanFrame::processEventQueue();
        }
        DispatchMessageA(&message);
    }
}

// Lock, append, post: the least that brings a text to the main thread.
class CBareQueue
{
public:
    explicit CBareQueue(DWORD mainThread)
        : m_mainThread(mainThread)
    {
    }

    void handOver(JNIEnv* env, jstring text)
    {
        const BSTR wide = bench::toBstr(env, text);
        {
            CComCritSecLock lock(m_lock);
            m_texts.push_back(wide);
        }
        PostThreadMessageA(m_mainThread, WM_APP, 0, 0);
    }
    void clear()
    {
        for (const BSTR text : m_texts) {
            SysFreeString(text);
        }
        m_texts.clear();
    }

private:
    DWORD m_mainThread;
    CComAutoCriticalSection m_lock;
    std::list<BSTR> m_texts;
};

// Runs on a Java thread; the main thread pumps between the measurements.
class CHandOver
{
public:
    CHandOver()
        : m_queue(GetCurrentThreadId())
        , m_askForPump(CreateEventA(nullptr, FALSE, FALSE, nullptr))
        , m_pumped(CreateEventA(nullptr, FALSE, FALSE, nullptr))
    {
    }

    bench::Series run(int argc, char** argv)
    {
        bench::Series series;
        std::exception_ptr failure;
        std::thread javaThread([&] {
            try {
                series = measure(argc, argv);
            } catch (...) {
                failure = std::current_exception();
            }
            m_ended = true;
            SetEvent(m_askForPump);
        });
        while (!m_ended) {
            WaitForSingleObject(m_askForPump, INFINITE);
            pump();
            SetEvent(m_pumped);
        }
        javaThread.join();
        if (failure) {
            std::rethrow_exception(failure);
        }
        return series;
    }

private:
    bench::Series measure(int argc, char** argv)
    {
        JNIEnv* const env = bench::runningMachine();
        const jstring text = env->NewStringUTF(TEXT);
        const auto inBatches = [this](benchmark::State& state, const auto& handOver) {
            for (auto _ : state) {
                const double start = bench::now();
                for (int event = 0; event < EVENTS; ++event) {
                    handOver();
                }
                state.SetIterationTime((bench::now() - start) / EVENTS);
                SetEvent(m_askForPump);
                WaitForSingleObject(m_pumped, INFINITE);
                m_queue.clear();
            }
        };
        benchmark::RegisterBenchmark(
            "native",
            [=](benchmark::State& state) { inBatches(state, [=] { CBeanFrame::NativeOnCustomEvent(env, nullptr, text); }); })
            ->UseManualTime()
            ->Iterations(REPETITIONS);
        benchmark::RegisterBenchmark(
            "bare", [=, this](benchmark::State& state) { inBatches(state, [=, this] { m_queue.handOver(env, text); }); })
            ->UseManualTime()
            ->Iterations(REPETITIONS);
        bench::Series series = bench::runInTurn(argc, argv);
        benchmark::ClearRegisteredBenchmarks();
        return series;
    }

    CBareQueue m_queue;
    CHandle m_askForPump;
    CHandle m_pumped;
    std::atomic<bool> m_ended = false;
};

void drain(benchmark::State& state, bench::CCountingSink& sink, long long length)
{
    const CComBSTR text(TEXT);
    for (auto _ : state) {
        for (long long event = 0; event < length; ++event) {
            CBeanFrame::s_Instance->enqueueOnCustomEvent(text);
        }
        sink.events = 0;
        const double start = bench::now();
        CBeanFrame::processEventQueue();
        state.SetIterationTime((bench::now() - start) / static_cast<double>(length));
        if (sink.events != length) {
            state.SkipWithError("not every event has reached the sink");
        }
        pump();
    }
}

void measure(int argc, char** argv)
{
    const bench::CInProcess server;
    bench::Series series = CHandOver().run(argc, argv);

    // In the server, these two enclose the draining of the queue.
    const LogScope process({"main", __LINE__}, LOGLEVEL_INFO);
    const LogScope messageLoop({"KESTAserver", __LINE__}, LOGLEVEL_FINE);
    bench::CCountingSink sink(server.object());
    for (long long length = 100; length <= DRAINED; length *= 10) {
        benchmark::RegisterBenchmark("drain " + std::to_string(length),
                                     [&sink, length](benchmark::State& state) { drain(state, sink, length); })
            ->UseManualTime()
            ->Iterations(std::max(1LL, DRAINED / 10 / length));
    }
    series.merge(bench::runInTurn(argc, argv));
    bench::write(argc, argv, series);
}

} // namespace

int main(int argc, char** argv)
{
    return bench::guarded(measure, argc, argv);
}
