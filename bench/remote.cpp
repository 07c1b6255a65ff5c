// What the server adds to a call across processes, early bound and, as in scripts, late bound. Measured against a COM server with
// the same interface and VM that makes the same call to Java by hand, and against one that answers with a constant.
#include "bench/harness.h"
#include "bench/servers.h"

#include <string_view>

namespace {

const ATL::CComBSTR METHOD(L"echo");
const ATL::CComBSTR VALUE(L"a text of the usual length");
constexpr int CALLS = 50; // to one server before the other's turn

void early(benchmark::State& state, IJavaManager* object)
{
    for (auto _ : state) {
        ATL::CComBSTR answer;
        if (object->callMethod(METHOD, VALUE, &answer) != S_OK || std::wstring_view(answer.m_str) != VALUE.m_str) {
            state.SkipWithError("wrong answer");
        }
    }
}

void late(benchmark::State& state, IJavaManager* object)
{
    ATL::CComPtr<IDispatch> dispatch;
    object->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&dispatch));
    wchar_t name[] = L"callMethod";
    for (auto _ : state) {
        LPOLESTR names = name;
        DISPID id = DISPID_UNKNOWN;
        dispatch->GetIDsOfNames(IID_NULL, &names, 1, LOCALE_USER_DEFAULT, &id);
        ATL::CComVariant arguments[] = {ATL::CComVariant(VALUE.m_str), ATL::CComVariant(METHOD.m_str)}; // last one first
        DISPPARAMS parameters = {arguments, nullptr, 2, 0};
        ATL::CComVariant answer;
        if (dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, &answer, nullptr, nullptr) !=
                S_OK ||
            answer.vt != VT_BSTR || std::wstring_view(answer.bstrVal) != VALUE.m_str) {
            state.SkipWithError("wrong answer");
        }
    }
}

void measure(int argc, char** argv)
{
    const bench::CServers servers;
    const bench::CRemote ours(CLSID_JavaManager);
    const bench::CRemote byHand(bench::CLSID_BARE_JAVA);
    const bench::CRemote constant(bench::CLSID_BARE);
    const auto add = [](const char* name, auto* call, const bench::CRemote& server) {
        benchmark::RegisterBenchmark(name, [call, &server](benchmark::State& state) {
            call(state, server.object());
        })->Iterations(CALLS);
    };
    add("early", early, ours);
    add("early, by hand", early, byHand);
    add("early, constant", early, constant);
    add("late", late, ours);
    add("late, by hand", late, byHand);
    add("late, constant", late, constant);
    bench::write(argc, argv, bench::runInTurn(argc, argv));
}

} // namespace

int main(int argc, char** argv)
{
    return bench::guarded(measure, argc, argv);
}
