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
const char* const ANY_VERSION_PROG_ID = "KESTAserver.JavaManager";
const char* const REGISTER = "as administrator, run in the program's folder: KESTAx64.exe /RegServer";
const char* const REGISTER_FOR_USER = "run in the program's folder: KESTAx64.exe /RegServerPerUser";

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
    const char* scope;  // behind the words /RegServer and /UnregServer
    std::string server; // "" when it is not registered there

    std::string text(const std::string& path, const std::string& value = "") const
    {
        return registryText(root, CLASSES + path, value, view).value_or("");
    }
    // Where the library is named for this place; the platform is "win64" or "win32".
    std::string library(const std::string& platform) const
    {
        return text("TypeLib\\" + guidText(LIBID_KESTAserverLib) + "\\1.0\\0\\" + platform);
    }
    // Whether an interface's calls are marshalled by the type library.
    bool marshals(const GUID& iid) const
    {
        const std::string key = "Interface\\" + guidText(iid);
        return text(key + "\\TypeLib") == guidText(LIBID_KESTAserverLib) && !text(key + "\\ProxyStubClsid32").empty();
    }
    const char* remedy() const { return root == HKEY_CURRENT_USER ? REGISTER_FOR_USER : REGISTER; }
};

// A command line's program, without quotation marks.
std::string programOf(const std::string& command)
{
    if (command.starts_with('"')) {
        return command.substr(1, command.find('"', 1) - 1);
    }
    return command;
}

std::string registeredProgram(const Place& place)
{
    return programOf(place.text("CLSID\\" + guidText(CLSID_JavaManager) + "\\LocalServer32"));
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
    const std::string path = place.library("win64");
    const std::string subject = std::string(place.name) + ", type library";
    if (path.empty()) {
        findings.fault(AREA, subject, "is not registered: calls between processes fail", place.remedy());
        return;
    }
    const HRESULT result = loadLibrary(path);
    findings.check(SUCCEEDED(result), AREA, subject, "loads: " + path,
                   "does not load from " + path + ": " + getWindowsErrorText(static_cast<unsigned>(result)), place.remedy());
}

void checkInterfaces(const Place& place, CFindings& findings)
{
    for (const GUID& iid : {IID_IJavaManager, DIID__IJavaManagerEvents}) {
        findings.check(
            place.marshals(iid), AREA, std::string(place.name) + ", " + (iid == IID_IJavaManager ? "interface" : "events"),
            "marshalled by the type library",
            "Interface\\" + guidText(iid) + " is not complete: calls or events fail with E_NOINTERFACE", place.remedy());
    }
}

void checkPlace(const Place& place, CFindings& findings)
{
    findings.check(isFile(place.server), AREA, place.name, place.server, "names a file that is not there: " + place.server,
                   std::string("put the program back there, or register it from where it is: KESTAx64.exe /RegServer") +
                       place.scope);
    for (const std::string name : {PROG_ID, ANY_VERSION_PROG_ID}) {
        findings.check(place.text(name + "\\CLSID") == guidText(CLSID_JavaManager), AREA, std::string(place.name) + ", name",
                       name, name + " does not lead to the class", place.remedy());
    }
    checkLibrary(place, findings);
    checkInterfaces(place, findings);
}

// What 32-bit programs find. The class itself is reached through the 64-bit view.
void check32BitView(const std::array<Place, 2>& places, CFindings& findings)
{
    bool hasLibrary = false;
    bool hasInterfaces = false;
    for (Place place : places) {
        hasLibrary = hasLibrary || !place.library("win32").empty();
        place.view = KEY_WOW64_32KEY;
        hasInterfaces = hasInterfaces || (place.marshals(IID_IJavaManager) && place.marshals(DIID__IJavaManagerEvents));
        const std::string program = registeredProgram(place);
        if (!program.empty() && lstrcmpiA(program.c_str(), place.server.c_str()) != 0) {
            findings.fault(AREA, std::string(place.name) + ", 32-bit view", "names another program: " + program,
                           std::string("remove that registration (KESTAx64.exe /UnregServer") + place.scope +
                               " of that version), then register again");
        }
    }
    if (hasLibrary && hasInterfaces) {
        findings.good(AREA, "32-bit programs", "can call early and late bound");
    } else {
        findings.note(AREA, "32-bit programs",
                      hasLibrary ? "can call late bound only: the interfaces are not complete in the 32-bit view"
                                 : "can call late bound only: the type library has no entry win32");
    }
}

} // namespace

CFindings checkRegistration(std::string& server)
{
    std::array<Place, 2> places = {{
        {"user", HKEY_CURRENT_USER, KEY_WOW64_64KEY, "PerUser", ""},
        {"machine", HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY, "", ""},
    }};
    for (Place& place : places) {
        place.server = registeredProgram(place);
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
    check32BitView(places, findings);
    return findings;
}

std::string machineServerExecutable()
{
    return registeredProgram({"machine", HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY, "", ""});
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
