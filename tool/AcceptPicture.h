// A picture of a part of the screen, as a user sees it, and what can be said about it.
//
// Ownership: owns its pixels. Threads: any. Failure: a picture that cannot be taken or packed throws std::runtime_error.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

class CAcceptPicture
{
public:
    static constexpr COLORREF MARKER = RGB(255, 0, 255); // what shows through where a frame has painted nothing

    // What the screen shows of the window, with whatever lies in front of it.
    explicit CAcceptPicture(HWND window);
    CAcceptPicture(int width, int height, std::vector<uint32_t> pixels);

    int width() const { return m_width; }
    int height() const { return m_height; }
    // Whether a control is visible in the area: hardly anything black or of the marker's colour, and not all of one colour.
    bool isPainted(const RECT& area) const;
    bool isPainted() const { return isPainted({0, 0, m_width, m_height}); }
    // The share of equal pixels, 0 to 1; 0 for another size.
    double likeness(const CAcceptPicture& other) const;
    // The content of a PNG file, in base64.
    std::string png() const;

private:
    int m_width = 0;
    int m_height = 0;
    std::vector<uint32_t> m_pixels; // 0x00RRGGBB, from the top
};
