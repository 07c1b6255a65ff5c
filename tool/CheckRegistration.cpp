// Whether COM finds the server, for whom, and whether calls can cross processes.
#include "tool/Check.h"

#include "atl/atl.h"
#include "support/logger.h"
#include "tool/RegistryView.h"

#include "KESTAserver_h.h"

#include <array>
#include <vector>

namespace {

const char* const AREA = "registration";
const char* const CLASSES = "SOFTWARE\\Classes\\";
const char* const PROG_ID = "KESTAserver.JavaManager.1";
const char* const REGISTER = "as administrator, run in the program's folder: KESTAx64.exe /RegServer";

std::string guidText(const GUID& guid)
{
    std::array<wchar_t, 39> text = {};
    StringFromGUID2(guid, text.data(), static_cast<int>(text.size()));
    return {text.begin(), text.end() - 1};
}

// A class of the server in one of the places where COM looks.
struct Place
{
    const char* name;
    HKEY root;
    REGSAM view;
    std::string server; // "" when it is not registered there

    std::string text(const std::string& path, const std::string& value = "") const
    {
        return registryText(root, CLASSES + path, value, view).value_or("");
    }
    // Where the 64-bit library is named for this place.
    std::string library() const { return text("TypeLib\\" + guidText(LIBID_KESTAserverLib) + "\\1.0\\0\\win64"); }
};

// A command line's program, without quotation marks.
std::string programOf(const std::string& command)
{
    if (command.starts_with('"')) {
        return command.substr(1, command.find('"', 1) - 1);
    }
    return command;
}

bool isFile(const std::string& path)
{
    const DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

HRESULT loadLibrary(const std::string& path)
{
    ATL::CComPtr<ITypeLib> library;
    const HRESULT result = LoadTypeLibEx(ATL::CComBSTR(path.c_str()), REGKIND_NONE, &library);
    TLIBATTR* attributes = nullptr;
    if (FAILED(result) || FAILED(library->GetLibAttr(&attributes))) {
        return FAILED(result) ? result : E_FAIL;
    }
    const bool isOurs = attributes->guid == LIBID_KESTAserverLib;
    library->ReleaseTLibAttr(attributes);
    return isOurs ? S_OK : TYPE_E_LIBNOTREGISTERED;
}

void checkLibrary(const Place& place, CFindings& findings)
{
    const std::string path = place.library();
    const std::string subject = std::string(place.name) + ", type library";
    if (path.empty()) {
        findings.fault(AREA, subject, "is not registered: calls between processes fail", REGISTER);
        return;
    }
    const HRESULT result = loadLibrary(path);
    findings.check(SUCCEEDED(result), AREA, subject, "loads: " + path,
                   "does not load from " + path + ": " + getWindowsErrorText(static_cast<unsigned>(result)), REGISTER);
}

void checkInterfaces(const Place& place, CFindings& findings)
{
    for (const GUID& iid : {IID_IJavaManager, DIID__IJavaManagerEvents}) {
        const std::string key = "Interface\\" + guidText(iid);
        const bool isComplete =
            place.text(key + "\\TypeLib") == guidText(LIBID_KESTAserverLib) && !place.text(key + "\\ProxyStubClsid32").empty();
        findings.check(isComplete, AREA, std::string(place.name) + ", " + (iid == IID_IJavaManager ? "interface" : "events"),
                       "marshalled by the type library", key + " is not complete: calls or events fail with E_NOINTERFACE",
                       REGISTER);
    }
}

void checkPlace(const Place& place, CFindings& findings)
{
    findings.check(isFile(place.server), AREA, place.name, place.server, "names a file that is not there: " + place.server,
                   "put the program back there, or register it from where it is: KESTAx64.exe /RegServer");
    findings.check(place.text(std::string(PROG_ID) + "\\CLSID") == guidText(CLSID_JavaManager), AREA,
                   std::string(place.name) + ", name", PROG_ID, std::string(PROG_ID) + " does not lead to the class", REGISTER);
    checkLibrary(place, findings);
    checkInterfaces(place, findings);
}

// What 32-bit programs find. The class itself is reached through the 64-bit view.
void check32BitView(const Place& machine, CFindings& findings)
{
    const std::string other =
        registryText(HKEY_LOCAL_MACHINE, CLASSES + ("CLSID\\" + guidText(CLSID_JavaManager)) + "\\LocalServer32", "",
                     KEY_WOW64_32KEY)
            .value_or("");
    const std::string program = programOf(other);
    if (!program.empty() && lstrcmpiA(program.c_str(), machine.server.c_str()) != 0) {
        findings.fault(AREA, "machine, 32-bit view", "names another program: " + program,
                       "remove that registration (KESTAx64.exe /UnregServer of that version), then register again");
    }
    const bool isEarlyBound = !machine.text("TypeLib\\" + guidText(LIBID_KESTAserverLib) + "\\1.0\\0\\win32").empty();
    if (isEarlyBound) {
        findings.good(AREA, "32-bit programs", "can call early and late bound");
    } else {
        findings.note(AREA, "32-bit programs", "can call late bound only: the type library has no entry win32");
    }
}

} // namespace

CFindings checkRegistration(std::string& server)
{
    std::array<Place, 2> places = {{
        {"user", HKEY_CURRENT_USER, KEY_WOW64_64KEY, ""},
        {"machine", HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY, ""},
    }};
    for (Place& place : places) {
        place.server = programOf(place.text("CLSID\\" + guidText(CLSID_JavaManager) + "\\LocalServer32"));
    }
    const auto& [user, machine] = places;
    server = user.server.empty() ? machine.server : user.server;
    CFindings findings;
    if (server.empty()) {
        findings.fault(AREA, "class", "is registered neither for this user nor for the machine", REGISTER);
        return findings;
    }
    for (const Place& place : places) {
        if (!place.server.empty()) {
            checkPlace(place, findings);
        }
    }
    if (machine.server.empty()) {
        findings.note(AREA, "machine", "is registered for this user only: programs that run elevated do not find it", REGISTER);
    } else if (!user.server.empty() && lstrcmpiA(user.server.c_str(), machine.server.c_str()) != 0) {
        findings.fault(AREA, "user and machine", "name different programs; this user gets " + user.server,
                       "remove the user's registration: KESTAx64.exe /UnregServerPerUser");
    }
    check32BitView(machine, findings);
    return findings;
}

std::string machineServerExecutable()
{
    const Place machine = {"machine", HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY, ""};
    return programOf(machine.text("CLSID\\" + guidText(CLSID_JavaManager) + "\\LocalServer32"));
}

std::string serverExecutable()
{
    std::string server;
    checkRegistration(server);
    if (!server.empty()) {
        return server;
    }
    char path[MAX_PATH + 1] = "";
    GetModuleFileNameA(nullptr, path, sizeof path);
    const std::string own = path;
    return own.substr(0, own.rfind('\\')) + "\\KESTAx64.exe";
}
