// Tells a control's frame what it cannot see as a child of another program's window: that it has the focus, that it has lost it,
// that the windows around it have moved, and that the user has clicked there. Java concludes the first two from its window's
// activation and the third from that window's moves, and closes its menus for a click on that window's edge; Windows tells a
// child of none of them. So the frame is sent the same messages, as Java does itself for the frames that it embeds.
//
// Ownership: the Pane's. Thread: the pane's. Windows' own events say that something has changed, whichever program has changed
// it; what the frame is told is what is true by then. Failure: a watch that cannot listen knows only what it is asked to look at.
#pragma once

#include <windows.h>

#include <functional>

namespace kesta {

class CFocusWatch
{
public:
    using Frame = std::function<HWND()>; // null while there is none
    using Changed = std::function<void(bool isInside)>;

    // Changed is called, inside look or while the thread handles messages, when the focus is found in the frame or, after it was
    // there, outside.
    CFocusWatch(Frame frame, Changed changed);
    ~CFocusWatch();
    CFocusWatch(const CFocusWatch&) = delete;
    CFocusWatch& operator=(const CFocusWatch&) = delete;

    // Whether the user's keys go to the frame.
    bool isInside() const;
    // Tells the frame what is new.
    void look();

private:
    // The frame, with what is known about another one forgotten.
    HWND current();
    void hear(DWORD event, HWND window, LONG object);
    static LRESULT CALLBACK listenToMouse(int code, WPARAM message, LPARAM details);
    static void CALLBACK listen(HWINEVENTHOOK hook, DWORD event, HWND window, LONG object, LONG child, DWORD thread, DWORD time);

    const Frame m_frame;
    const Changed m_changed;
    HWND m_known = nullptr;   // the frame that the rest is about
    bool m_isTold = false;    // that it has the focus
    bool m_wasInside = false; // the focus, since the frame was told that it was not
};

} // namespace kesta
