// What "accept" ran on, and the page of its result.
#include "tool/Accept.h"

#include "support/logger.h"
#include "tool/Check.h"
#include "tool/RegistryView.h"

#include <chrono>
#include <format>

using nlohmann::json;

namespace {

constexpr const char* WINDOWS_KEY = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

// The page with a place for its data.
const std::string_view TEMPLATE =
#include "acceptPage.inc"
    ;
const std::string_view PLACE = "\"DATA\"";

std::string windowsText(const std::string& wine)
{
    const auto value = [](const char* name) {
        return registryText(HKEY_LOCAL_MACHINE, WINDOWS_KEY, name, KEY_WOW64_64KEY).value_or("");
    };
    const std::string text = value("ProductName") + " " + value("DisplayVersion") + ", build " + value("CurrentBuildNumber");
    return wine.empty() ? text : "Wine " + wine + ", which says it is " + text;
}

std::string displayText()
{
    DISPLAY_DEVICEA device = {};
    device.cb = sizeof device;
    std::string cards;
    for (DWORD number = 0; EnumDisplayDevicesA(nullptr, number, &device, 0); ++number) {
        if ((device.StateFlags & DISPLAY_DEVICE_ATTACHED_TO_DESKTOP) != 0) {
            cards += std::string(cards.empty() ? "" : ", ") + device.DeviceString;
        }
    }
    const HDC screen = GetDC(nullptr);
    const int depth = GetDeviceCaps(screen, BITSPIXEL);
    ReleaseDC(nullptr, screen);
    return std::format("{} x {}, {} bits, scale {} %, {} monitors{}; {}", GetSystemMetrics(SM_CXSCREEN),
                       GetSystemMetrics(SM_CYSCREEN), depth, GetDpiForSystem() * 100 / USER_DEFAULT_SCREEN_DPI,
                       GetSystemMetrics(SM_CMONITORS), GetSystemMetrics(SM_REMOTESESSION) != 0 ? ", remote session" : "", cards);
}

} // namespace

std::string wineVersion()
{
    using Version = const char*(CDECL*)();
    const auto version =
        reinterpret_cast<Version>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll"), "wine_get_version")));
    return version == nullptr ? "" : version();
}

bool isElevated()
{
    HANDLE token = nullptr;
    TOKEN_ELEVATION elevation = {};
    DWORD size = 0;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) {
        return false;
    }
    GetTokenInformation(token, TokenElevation, &elevation, sizeof elevation, &size);
    CloseHandle(token);
    return elevation.TokenIsElevated != 0;
}

json acceptSurroundings()
{
    const std::string wine = wineVersion();
    const JVMChoice choice = readJVMChoice(nullptr);
    SYSTEM_INFO system = {};
    GetSystemInfo(&system);
    return {{"isWine", !wine.empty()},
            {"windows", toUtf8(windowsText(wine))},
            {"display", toUtf8(displayText())},
            {"processors", system.dwNumberOfProcessors},
            {"codePage", GetACP()},
            {"isElevated", isElevated()},
            {"server", toUtf8(serverExecutable())},
            {"runtime", toUtf8(choice.chosen.path)},
            {"date",
             std::format("{:%Y-%m-%d %H:%M} UTC", std::chrono::floor<std::chrono::minutes>(std::chrono::system_clock::now()))}};
}

std::string acceptPage(const json& result)
{
    std::string text = result.dump(-1, ' ', false, json::error_handler_t::replace);
    // A text must not end the script that holds it.
    for (size_t at = 0; (at = text.find("</", at)) != std::string::npos; at += 3) {
        text.insert(at + 1, "\\");
    }
    const size_t place = TEMPLATE.find(PLACE);
    return std::string(TEMPLATE.substr(0, place)) + text + std::string(TEMPLATE.substr(place + PLACE.size()));
}
