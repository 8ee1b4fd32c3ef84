#include "platform/MessageWindow.h"

#include <windows.h>

#include <utility>

#include <juce_events/juce_events.h>

#include "platform/AwakeClock.h"
#include "util/StopDeadline.h"

namespace juce {
// Internal to JUCE, but the only access to the window.
extern HWND juce_messageWindowHandle;
} // namespace juce

namespace quelta::platform {

namespace {

WNDPROC juceProcedure = nullptr;
std::function<void()> shutDownForEndOfSession;

void requestQuit()
{
    if (auto* const application = juce::JUCEApplicationBase::getInstance())
        application->systemRequestedQuit();
}

void handleEndOfSession()
{
    setStopDeadline(getAwakeMilliseconds() + hurriedGraceMs);

    if (const auto shutDown = std::exchange(shutDownForEndOfSession, nullptr))
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
            if (wParam != FALSE) // FALSE: another program has cancelled the end of the session
                handleEndOfSession();

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

    shutDownForEndOfSession = endOfSession;
    juceProcedure = setProcedure(handleWindowMessage);
    return juceProcedure != nullptr;
}

void releaseMessageWindow()
{
    if (juceProcedure == nullptr)
        return;

    setProcedure(juceProcedure);
    shutDownForEndOfSession = nullptr;
}

} // namespace quelta::platform
