#include "bench/servers.h"

#include "bench/harness.h"
#include "support/registry.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace bench {

namespace {

constexpr char OURS[] = "KESTAx64.exe";
constexpr char BARE[] = "bench_bare.exe";

std::string quoted(const std::string& text)
{
    return "\"" + text + "\"";
}

std::string classKey(const CLSID& clsid)
{
    LPOLESTR text = nullptr;
    StringFromCLSID(clsid, &text);
    const std::wstring wide = text;
    CoTaskMemFree(text);
    return "Software\\Classes\\CLSID\\" + std::string(wide.begin(), wide.end());
}

void registerClass(const CLSID& clsid, const std::string& command)
{
    const std::string key = classKey(clsid) + "\\LocalServer32";
    if (RegSetValueA(HKEY_LOCAL_MACHINE, key.c_str(), REG_SZ, command.c_str(), 0) != ERROR_SUCCESS) {
        throw std::runtime_error("a class cannot be registered");
    }
}

std::string bareCommand(const char* mode)
{
    return quoted(fixtures::programFolder() + "\\" + BARE) + " " + mode;
}

void registerServer(const char* option)
{
    const fixtures::CProgram server(quoted(fixtures::programFolder() + "\\" + OURS) + " " + option);
    if (server.process().exitCode().value_or(ERROR_TIMEOUT) != 0) {
        throw std::runtime_error(std::string("the server fails with ") + option);
    }
}

} // namespace

CServers::CServers(const std::vector<std::string>& machineOptions)
{
    writeMachine(machineOptions);
    m_settings.setRuntime("21.0.8", fixtures::runtimeLibrary(21));
    m_settings.setControl("TestControl", fixtures::programFolder());
    for (size_t index = 0; index < machineOptions.size(); ++index) {
        m_settings.setPreference(("jvm_option_" + std::to_string(index)).c_str(), machineOptions[index]);
    }
    registerServer("/RegServer");
    registerClass(CLSID_BARE, bareCommand("constant"));
    registerClass(CLSID_BARE_JAVA, bareCommand("java"));
}

CServers::~CServers()
{
    for (const CLSID& clsid : {CLSID_BARE, CLSID_BARE_JAVA}) {
        RegDeleteTreeA(HKEY_LOCAL_MACHINE, classKey(clsid).c_str());
    }
    try {
        registerServer("/UnregServer");
    } catch (const std::exception&) {
        // Does no harm: the prefix is discarded anyway.
    }
}

// Writes down the options that the server gives its machine, because the bare server reads no registry; to a file, because COM
// takes no long command lines.
void CServers::writeMachine(const std::vector<std::string>& machineOptions) const
{
    const std::string folder = fixtures::programFolder();
    std::ofstream file(folder + "\\" + BARE_MACHINE);
    file << fixtures::runtimeLibrary(21) << "\n-Djava.class.path=" << folder << "\\TestControl.jar;" << folder
         << "\\ORVANEControl.jar\n";
    for (const std::string& option : machineOptions) {
        file << option << '\n';
    }
    file << "-Dsun.awt.noerasebackground=true\n"
            "-Dcom.orvane.qmrt.logpath=none\n"
            "-Dcom.orvane.qmrt.loglevel=2\n"
            "-Dcom.orvane.qmrt.oldlogfileage=2419200\n"
            "-Dcom.orvane.qmrt.splitlogfilesize=10\n";
}

std::string CServers::hostCommand() const
{
    return bareCommand("host");
}

CRemote::CRemote(const CLSID& clsid)
{
    const char* const executable = clsid == CLSID_JavaManager ? OURS : BARE;
    const std::vector<DWORD> before = fixtures::processesNamed(executable);
    const double start = now();
    HRESULT hr = m_object.CoCreateInstance(clsid, CLSCTX_LOCAL_SERVER);
    int frame = -1;
    if (SUCCEEDED(hr)) {
        hr = m_object->getBeanFrameID(&frame);
    }
    m_startTime = now() - start;
    for (const DWORD id : fixtures::processesNamed(executable)) {
        if (std::find(before.begin(), before.end(), id) == before.end()) {
            m_process = std::make_unique<fixtures::CProcess>(id);
        }
    }
    if (FAILED(hr) || frame == -1 || !m_process) {
        throw std::runtime_error(std::string(executable) + " did not start");
    }
}

CRemote::~CRemote()
{
    m_object.Release();
    // Killed, because on its own it would wait seconds for new clients before it ends.
    if (m_process) {
        m_process->kill(0);
        m_process->exitCode();
    }
}

} // namespace bench
