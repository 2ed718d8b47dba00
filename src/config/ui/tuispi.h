// The user-interface side of the provider: the TUISPI entry points run in the process of the application that wants the
// configuration dialogs, and reach the provider only through the callback that TAPI gives to each of them. The entry
// points themselves are declared by the published tspi.h.
#pragma once

#include "config/ui/dialog_data.h"
#include "trace/trace.h"

// The running TUISPI call and its copy of the provider's settings. Begun anew by each call; one thread at a time.
struct UiConfigRecord {
    TUISPIDLLCALLBACK Callback = nullptr;
    DWORD ObjectType = 0;  // TUISPIDLL_OBJECT_: 1 line, 2 phone, 3 provider
    DWORD_PTR ObjectID = 0;
    ConfigData Config{};
    AdvancedData Advanced{};
    bool PortChanged = false;
    bool AdvancedChanged = false;
};
extern UiConfigRecord UiConfig;

// Sends UiConfig to the provider (the SET codes), or fetches it from there (the GET codes). Nothing without a callback.
// False where a fetch was not answered; what it fetches is all zero then.
bool UiExchange(TUISPIDLLCALLBACK callback, DWORD_PTR objectID, DWORD objectType, ExchangeCode code);

// The same with UiConfig's own callback and object.
bool ExchangeNow(ExchangeCode code);

// Writes a line into the provider's trace. Only UiTrace below calls it.
void UiTraceText(const char* format, const TraceArgument* arguments, std::size_t count);

template <class... Arguments> inline void UiTrace(const char* format, const Arguments&... arguments) {
    const TraceArgument list[] = {TraceArgument(arguments)...};
    UiTraceText(format, list, sizeof...(Arguments));
}

// The main dialog, modal: 0 when it was left with OK, -1 otherwise.
INT_PTR RunMainDialog(HWND owner);
