// What an archive of class data (KESTAtool warm) saves at a start: from the call of the class factory, after COM's activation
// of the process, until the frame's id is answered; with the archive and without, in turn.
#include "bench/harness.h"
#include "bench/servers.h"

#include <stdexcept>

namespace {

constexpr int ROUNDS = 20;
constexpr DWORD TOOL_LIMIT = 180000; // ms
constexpr char OPTION[] = "jvm_option_KESTA_warm";

void runTool(const std::string& arguments)
{
    const fixtures::CProgram tool("\"" + fixtures::programFolder() + "\\KESTAtool.exe\" " + arguments);
    if (tool.process().exitCode(TOOL_LIMIT).value_or(ERROR_TIMEOUT) != 0) {
        throw std::runtime_error("KESTAtool " + arguments + " fails: " + tool.output());
    }
}

struct Times
{
    double activation;
    double creation;
};

// In seconds. Ends the server.
Times start()
{
    ATL::CComPtr<IClassFactory> factory;
    ATL::CComPtr<IJavaManager> object;
    int frame = -1;
    const double begin = bench::now();
    HRESULT hr =
        CoGetClassObject(CLSID_JavaManager, CLSCTX_LOCAL_SERVER, nullptr, IID_IClassFactory, reinterpret_cast<void**>(&factory));
    const double activated = bench::now();
    if (SUCCEEDED(hr)) {
        hr = factory->CreateInstance(nullptr, IID_IJavaManager, reinterpret_cast<void**>(&object));
    }
    if (SUCCEEDED(hr)) {
        hr = object->getBeanFrameID(&frame);
    }
    const double end = bench::now();
    if (FAILED(hr) || frame == -1) {
        throw std::runtime_error("the server did not start");
    }
    object.Release();
    factory.Release();
    // Killed, because on its own it would wait seconds for new clients before it ends.
    for (const DWORD id : fixtures::processesNamed("KESTAx64.exe")) {
        const fixtures::CProcess process(id);
        process.kill(0);
        process.exitCode();
    }
    return {activated - begin, end - activated};
}

void measure(int argc, char** argv)
{
    const bench::CServers servers;
    const fixtures::CSettings& settings = servers.settings();
    runTool("warm");
    const std::string option = fixtures::keyText(HKEY_LOCAL_MACHINE, bench::PREFERENCES, OPTION);
    bench::Series series;
    const auto measureOne = [&](const char* name, bool isCounted) {
        const Times times = start();
        if (isCounted) {
            series[name].push_back(times.creation * 1e9);
            series[std::string(name) + ", activation"].push_back(times.activation * 1e9);
        }
    };
    // The first round is not counted: it gets the files into memory.
    for (int round = 0; round <= bench::argument(argc, argv, "--rounds", ROUNDS); ++round) {
        settings.setPreference(OPTION, option);
        measureOne("with", round > 0);
        settings.removePreference(OPTION);
        measureOne("without", round > 0);
    }
    settings.setPreference(OPTION, option);
    runTool("warm --remove");
    bench::write(argc, argv, series);
}

} // namespace

int main(int argc, char** argv)
{
    return bench::guarded(measure, argc, argv);
}
