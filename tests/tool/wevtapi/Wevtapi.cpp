// Stand-in for the library of Windows' event logs.
//
// Events: PATH.events, a line each: the channel, a tab, the event as XML, the oldest first. A channel without a line is not
// there. Queries: as the tool asks them: numbers of events ("EventID=1000") and a time from which on they count
// ("SystemTime>='...'"). Threads: one. Failure: what is not asked for in this way finds nothing.
#include <windows.h>

#include <winevt.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

// The result of a query, or with one text an event of it.
struct Texts
{
    std::vector<std::string> texts; // the next one at the end
};

std::string narrow(const wchar_t* text)
{
    const std::wstring wide = text;
    return {wide.begin(), wide.end()}; // digits, letters and punctuation
}

// What follows `before`, up to the first of `ends`; "" when it is not there.
std::string valueBehind(const std::string& text, const std::string& before, const char* ends)
{
    const size_t begin = text.find(before);
    return begin == std::string::npos
               ? ""
               : text.substr(begin + before.size(), text.find_first_of(ends, begin + before.size()) - begin - before.size());
}

bool isAskedFor(const std::string& event, const std::string& query)
{
    const std::string number = "EventID=" + valueBehind(event, "<EventID>", "<");
    const size_t place = query.find(number);
    const bool hasNumber =
        place != std::string::npos && query.find_first_of("0123456789", place + number.size()) != place + number.size();
    return hasNumber && valueBehind(event, "SystemTime='", "'") >= valueBehind(query, "@SystemTime>='", "'");
}

std::string eventsFile()
{
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const char*>(&eventsFile), &module);
    char path[MAX_PATH] = "";
    GetModuleFileNameA(module, path, sizeof path);
    return std::string(path) + ".events";
}

} // namespace

extern "C" {

EVT_HANDLE WINAPI EvtQuery(EVT_HANDLE, LPCWSTR path, LPCWSTR query, DWORD)
{
    std::ifstream file(eventsFile());
    const std::string channel = narrow(path) + "\t";
    auto found = std::make_unique<Texts>();
    bool isThere = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(channel)) {
            isThere = true;
            if (isAskedFor(line, narrow(query))) {
                found->texts.push_back(line.substr(channel.size()));
            }
        }
    }
    return isThere ? found.release() : nullptr;
}

BOOL WINAPI EvtNext(EVT_HANDLE results, DWORD, EVT_HANDLE* events, DWORD, DWORD, DWORD* count)
{
    auto& texts = static_cast<Texts*>(results)->texts;
    *count = 0;
    if (texts.empty()) {
        SetLastError(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    *events = new Texts{{texts.back()}};
    texts.pop_back();
    *count = 1;
    return TRUE;
}

BOOL WINAPI EvtRender(EVT_HANDLE, EVT_HANDLE event, DWORD, DWORD size, PVOID buffer, DWORD* used, DWORD* properties)
{
    const std::string& text = static_cast<const Texts*>(event)->texts.front();
    const std::wstring wide(text.begin(), text.end());
    *used = static_cast<DWORD>((wide.size() + 1) * sizeof(wchar_t));
    *properties = 0;
    if (size < *used) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    CopyMemory(buffer, wide.c_str(), *used);
    return TRUE;
}

BOOL WINAPI EvtClose(EVT_HANDLE object)
{
    delete static_cast<Texts*>(object);
    return TRUE;
}
}
