#include "tool/AcceptPicture.h"

#include "atl/atl.h"

#include <wincodec.h>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>

namespace {

constexpr double LARGEST_EMPTY_SHARE = 0.05;
constexpr size_t FEWEST_COLOURS = 4;
constexpr uint32_t COLOUR = 0xFFFFFF;
constexpr uint32_t BLACK = 0;
constexpr uint32_t MARKER_PIXEL = 0xFF00FF;

void check(bool isGood, const char* what)
{
    if (!isGood) {
        throw std::runtime_error(std::string("no picture: ") + what);
    }
}

// While it is alive, places of this thread are in the screen's own pixels.
class CScreenPixels
{
public:
    CScreenPixels()
        : m_before(SetThreadDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2))
    {
    }
    ~CScreenPixels() { SetThreadDpiAwarenessContext(m_before); }
    CScreenPixels(const CScreenPixels&) = delete;
    CScreenPixels& operator=(const CScreenPixels&) = delete;

private:
    DPI_AWARENESS_CONTEXT m_before;
};

// What GDI needs to copy from the screen.
class CScreenCopy
{
public:
    CScreenCopy(int width, int height)
        : m_screen(GetDC(nullptr))
        , m_memory(CreateCompatibleDC(m_screen))
    {
        BITMAPINFO format = {};
        format.bmiHeader = {sizeof format.bmiHeader, width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        m_bitmap = CreateDIBSection(m_memory, &format, DIB_RGB_COLORS, &m_bits, nullptr, 0);
        check(m_bitmap != nullptr, "the bitmap");
        SelectObject(m_memory, m_bitmap);
    }
    ~CScreenCopy()
    {
        DeleteDC(m_memory);
        DeleteObject(m_bitmap);
        ReleaseDC(nullptr, m_screen);
    }
    CScreenCopy(const CScreenCopy&) = delete;
    CScreenCopy& operator=(const CScreenCopy&) = delete;

    std::vector<uint32_t> copy(const RECT& place) const
    {
        const int width = place.right - place.left;
        const int height = place.bottom - place.top;
        check(BitBlt(m_memory, 0, 0, width, height, m_screen, place.left, place.top, SRCCOPY) != FALSE, "the screen");
        GdiFlush();
        const auto* const begin = static_cast<const uint32_t*>(m_bits);
        std::vector<uint32_t> pixels(begin, begin + static_cast<size_t>(width) * static_cast<size_t>(height));
        std::ranges::for_each(pixels, [](uint32_t& pixel) { pixel &= COLOUR; });
        return pixels;
    }

private:
    HDC m_screen;
    HDC m_memory;
    HBITMAP m_bitmap = nullptr;
    void* m_bits = nullptr;
};

std::string base64(const std::vector<BYTE>& bytes)
{
    static const char* const s_letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t at = 0; at < bytes.size(); at += 3) {
        const size_t count = std::min<size_t>(3, bytes.size() - at);
        uint32_t group = 0;
        for (size_t index = 0; index < 3; ++index) {
            group = group << 8 | (index < count ? bytes[at + index] : 0u);
        }
        for (size_t index = 0; index < 4; ++index) {
            text += index <= count ? s_letters[group >> (18 - 6 * index) & 0x3F] : '=';
        }
    }
    return text;
}

} // namespace

// In the screen's own pixels, whatever scale this program is shown at: those are what can be copied.
CAcceptPicture::CAcceptPicture(HWND window)
{
    const CScreenPixels pixels;
    RECT place = {};
    check(GetWindowRect(window, &place) != FALSE && IsRectEmpty(&place) == FALSE, "the window is gone or empty");
    m_width = place.right - place.left;
    m_height = place.bottom - place.top;
    m_pixels = CScreenCopy(m_width, m_height).copy(place);
}

CAcceptPicture::CAcceptPicture(int width, int height, std::vector<uint32_t> pixels)
    : m_width(width)
    , m_height(height)
    , m_pixels(std::move(pixels))
{
}

bool CAcceptPicture::isPainted(const RECT& area) const
{
    const RECT whole = {0, 0, m_width, m_height};
    RECT inside = {};
    if (IntersectRect(&inside, &area, &whole) == FALSE) {
        return false;
    }
    std::set<uint32_t> colours;
    size_t empty = 0;
    for (LONG y = inside.top; y < inside.bottom; ++y) {
        for (LONG x = inside.left; x < inside.right; ++x) {
            const uint32_t pixel = m_pixels[static_cast<size_t>(y) * static_cast<size_t>(m_width) + static_cast<size_t>(x)];
            colours.insert(pixel);
            empty += pixel == BLACK || pixel == MARKER_PIXEL ? 1 : 0;
        }
    }
    const double size = static_cast<double>(inside.right - inside.left) * (inside.bottom - inside.top);
    return static_cast<double>(empty) <= LARGEST_EMPTY_SHARE * size && colours.size() >= FEWEST_COLOURS;
}

double CAcceptPicture::likeness(const CAcceptPicture& other) const
{
    if (m_width != other.m_width || m_height != other.m_height || m_pixels.empty()) {
        return 0;
    }
    size_t equal = 0;
    for (size_t index = 0; index < m_pixels.size(); ++index) {
        equal += m_pixels[index] == other.m_pixels[index] ? 1 : 0;
    }
    return static_cast<double>(equal) / static_cast<double>(m_pixels.size());
}

std::string CAcceptPicture::png() const
{
    ATL::CComPtr<IWICImagingFactory> factory;
    ATL::CComPtr<IStream> stream;
    ATL::CComPtr<IWICBitmap> bitmap;
    ATL::CComPtr<IWICBitmapEncoder> encoder;
    ATL::CComPtr<IWICBitmapFrameEncode> frame;
    std::vector<uint32_t> pixels = m_pixels;
    const auto size = static_cast<UINT>(pixels.size() * sizeof(uint32_t));
    const auto width = static_cast<UINT>(m_width);
    const auto height = static_cast<UINT>(m_height);
    check(SUCCEEDED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                                     reinterpret_cast<void**>(&factory))) &&
              SUCCEEDED(CreateStreamOnHGlobal(nullptr, TRUE, &stream)) &&
              SUCCEEDED(factory->CreateBitmapFromMemory(width, height, GUID_WICPixelFormat32bppBGR, width * 4, size,
                                                        reinterpret_cast<BYTE*>(pixels.data()), &bitmap)) &&
              SUCCEEDED(factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, &encoder)) &&
              SUCCEEDED(encoder->Initialize(stream, WICBitmapEncoderNoCache)) &&
              SUCCEEDED(encoder->CreateNewFrame(&frame, nullptr)) && SUCCEEDED(frame->Initialize(nullptr)) &&
              SUCCEEDED(frame->SetSize(width, height)) && SUCCEEDED(frame->WriteSource(bitmap, nullptr)) &&
              SUCCEEDED(frame->Commit()) && SUCCEEDED(encoder->Commit()),
          "Windows' encoder");
    HGLOBAL memory = nullptr;
    STATSTG about = {};
    check(SUCCEEDED(stream->Stat(&about, STATFLAG_NONAME)) && SUCCEEDED(GetHGlobalFromStream(stream, &memory)), "the stream");
    const auto* const begin = static_cast<const BYTE*>(GlobalLock(memory));
    const std::vector<BYTE> bytes(begin, begin + about.cbSize.QuadPart);
    GlobalUnlock(memory);
    return base64(bytes);
}
