#include "DebugOutputCapture.h"

#include <windows.h>

namespace quelta::test {

namespace {

std::string received;
void* handler = nullptr;

/** Windows passes debug output as an exception; the first handler may consume it. */
LONG CALLBACK keepText(EXCEPTION_POINTERS* exception)
{
    const auto& record = *exception->ExceptionRecord;

    if (record.ExceptionCode != DBG_PRINTEXCEPTION_C)
        return EXCEPTION_CONTINUE_SEARCH;

    received += reinterpret_cast<const char*>(record.ExceptionInformation[1]);
    return EXCEPTION_CONTINUE_EXECUTION;
}

} // namespace

DebugOutputCapture::DebugOutputCapture()
{
    received.clear();
    handler = AddVectoredExceptionHandler(TRUE, keepText);
}

DebugOutputCapture::~DebugOutputCapture()
{
    RemoveVectoredExceptionHandler(handler);
}

std::string DebugOutputCapture::getReceived()
{
    return received;
}

} // namespace quelta::test
