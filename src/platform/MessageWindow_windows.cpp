#include "platform/MessageWindow.h"

#include <windows.h>

#include <utility>

#include <juce_events/juce_events.h>

#include "platform/AwakeClock.h"
#include "util/StopDeadline.h"

namespace juce {
extern HWND
    juce_messageWindowHandle; // no part of JUCE's interface, but it is where JUCE keeps the window
}

namespace quelta::platform {

namespace {

WNDPROC juceProcedure = nullptr;
std::function<void()> takeDown;

void requestQuit()
{
    if (auto* const application = juce::JUCEApplicationBase::getInstance())
        application->systemRequestedQuit();
}

void endWithTheSession()
{
    setStopDeadline(getAwakeMilliseconds() + hurriedGraceMs);

    if (const auto shutDown = std::exchange(takeDown, nullptr))
        shutDown();

    requestQuit();
}

LRESULT CALLBACK handleWindowMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
        case WM_CLOSE:
            requestQuit();
            return 0;

        case WM_ENDSESSION:
            if (wParam != FALSE) // otherwise another program has called it off
                endWithTheSession();

            return 0;

        default:
            return CallWindowProcW(juceProcedure, window, message, wParam, lParam);
    }
}

WNDPROC setProcedure(WNDPROC procedure)
{
    return reinterpret_cast<WNDPROC>(SetWindowLongPtrW(juce::juce_messageWindowHandle, GWLP_WNDPROC,
                                                       reinterpret_cast<LONG_PTR>(procedure)));
}

} // namespace

bool guardMessageWindow(const std::function<void()>& endOfSession)
{
    if (juce::juce_messageWindowHandle == nullptr)
        return false;

    takeDown = endOfSession;
    juceProcedure = setProcedure(handleWindowMessage);
    return juceProcedure != nullptr;
}

void releaseMessageWindow()
{
    if (juceProcedure == nullptr)
        return;

    setProcedure(juceProcedure);
    takeDown = nullptr;
}

} // namespace quelta::platform
