#include "tool/Probe.h"

#include "atl/atl.h"
#include "support/helpers.h"
#include "support/logger.h"
#include "tool/Findings.h"
#include "tool/ProbeLive.h"

#include "KESTAserver_h.h"

#include <chrono>

namespace {

class CStopwatch
{
public:
    // Milliseconds since the last call.
    long long lap()
    {
        const auto now = std::chrono::steady_clock::now();
        const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_begin).count();
        m_begin = now;
        return passed;
    }

private:
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

} // namespace

std::string errorText(HRESULT result)
{
    ATL::CComPtr<IErrorInfo> info;
    BSTR text = nullptr;
    if (GetErrorInfo(0, &info) != S_OK || FAILED(info->GetDescription(&text))) {
        return toUtf8(getWindowsErrorText(static_cast<unsigned>(result)));
    }
    std::string narrow(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr)), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow.data(), static_cast<int>(narrow.size()), nullptr, nullptr);
    SysFreeString(text);
    return narrow.substr(0, narrow.find_first_of(std::string("\r\n\0", 3)));
}

namespace {

void tryObject(IJavaManager* object, CStopwatch& watch, nlohmann::json& answer)
{
    int frameId = -1;
    object->getBeanFrameID(&frameId);
    answer["frameId"] = frameId;
    answer["hasWindow"] = FindWindowA(nullptr, ("kesta_frame_" + std::to_string(frameId)).c_str()) != nullptr;
    watch.lap();
    BSTR version = nullptr;
    const HRESULT result = object->getBasisControlVersionInfo(&version);
    SysFreeString(version);
    answer["callMilliseconds"] = watch.lap();
    answer["callResult"] = result;
    answer["error"] = FAILED(result) ? errorText(result) : "";
}

} // namespace

int probeServer(bool isLive, const std::vector<std::string>& controls, const std::string& answerFile)
{
    CHelpers::setErrorModeSilent();
    CoInitialize(nullptr);
    nlohmann::json answer;
    CStopwatch watch;
    ATL::CComPtr<IJavaManager> object;
    const HRESULT result =
        CoCreateInstance(CLSID_JavaManager, nullptr, CLSCTX_LOCAL_SERVER, IID_IJavaManager, reinterpret_cast<void**>(&object));
    answer["createMilliseconds"] = watch.lap();
    answer["result"] = result;
    if (SUCCEEDED(result)) {
        tryObject(object, watch, answer);
        if (isLive && answer["hasWindow"].get<bool>()) {
            probeLive(object, answer["frameId"].get<int>(), controls, answer);
        }
        watch.lap();
        object.Release();
        answer["releaseMilliseconds"] = watch.lap();
    } else {
        answer["error"] = toUtf8(getWindowsErrorText(static_cast<unsigned>(result)));
    }
    writeAnswer(answer, answerFile);
    CoUninitialize();
    return 0;
}
