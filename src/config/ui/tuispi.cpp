#include "config/ui/tuispi.h"

#include "provider/process.h"  // the module instance

#include <cstring>
#include <iterator>

UiConfigRecord UiConfig;

namespace {

// One buffer as the provider wants it.
struct ExchangeBuffer {
    ExchangeHeader header{};
    std::uint8_t data[UINT8_MAX]{};
};

void Send(TUISPIDLLCALLBACK callback, DWORD_PTR objectID, DWORD objectType, ExchangeBuffer& buffer) {
    callback(objectID, objectType, &buffer, static_cast<DWORD>(sizeof buffer.header + buffer.header.Size));
}

template <class Data>
void Exchange(TUISPIDLLCALLBACK callback, DWORD_PTR objectID, DWORD objectType, ExchangeCode code, Data& data,
              bool fetch) {
    ExchangeBuffer buffer{{code, sizeof data, {}}, {}};
    if (!fetch)
        std::memcpy(buffer.data, &data, sizeof data);
    Send(callback, objectID, objectType, buffer);
    if (fetch)
        std::memcpy(&data, buffer.data, sizeof data);
}

void Begin(TUISPIDLLCALLBACK callback, DWORD objectType, DWORD_PTR objectID) {
    UiConfig = UiConfigRecord{};
    UiConfig.Callback = callback;
    UiConfig.ObjectType = objectType;
    UiConfig.ObjectID = objectID;
}

void Configure(HWND owner) {
    if (RunMainDialog(owner) != 0 || !UiConfig.PortChanged)
        return;
    ExchangeNow(UI_SPI_EI_CFGDLG_SET);
    UiConfig.PortChanged = false;
}

}  // namespace

// TAPI's channel may fail, and the provider leaves a buffer alone that it cannot answer. These are never zero in an answer.
bool UiExchange(TUISPIDLLCALLBACK callback, DWORD_PTR objectID, DWORD objectType, ExchangeCode code) {
    if (callback == nullptr)
        return false;
    switch (code) {
    case UI_SPI_EI_CFGDLG_GET:
    case UI_SPI_EI_CFGDLG_SET: {
        ConfigData& config = UiConfig.Config;
        Exchange(callback, objectID, objectType, code, config, code == UI_SPI_EI_CFGDLG_GET);
        config.PortName[std::size(config.PortName) - 1] = 0;  // whoever answered
        config.LineName[std::size(config.LineName) - 1] = 0;
        config.Version[std::size(config.Version) - 1] = 0;
        return code == UI_SPI_EI_CFGDLG_SET || config.Version[0] != 0;
    }
    case UI_SPI_EI_CFGDLG_ADV_GET:
    case UI_SPI_EI_CFGDLG_ADV_SET: {
        AdvancedData& advanced = UiConfig.Advanced;
        Exchange(callback, objectID, objectType, code, advanced, code == UI_SPI_EI_CFGDLG_ADV_GET);
        advanced.ExtPrefix[std::size(advanced.ExtPrefix) - 1] = 0;
        return code == UI_SPI_EI_CFGDLG_ADV_SET || advanced.MaxDigitLocal != 0;
    }
    case UI_SPI_EI_TRACE: break;  // UiTraceText's
    }
    return true;
}

bool ExchangeNow(ExchangeCode code) {
    return UiExchange(UiConfig.Callback, UiConfig.ObjectID, UiConfig.ObjectType, code);
}

void UiTraceText(const char* format, const TraceArgument* arguments, std::size_t count) {
    if (UiConfig.Callback == nullptr)
        return;
    ExchangeBuffer buffer;
    char text[sizeof buffer.data];
    FormatText(text, sizeof text, format, arguments, count);
    const TraceArgument parts[] = {timeGetTime(), text};
    const std::size_t length =
        FormatText(reinterpret_cast<char*>(buffer.data), sizeof buffer.data, "TUI DLL:%lu %s", parts, 2);
    buffer.header = {UI_SPI_EI_TRACE, static_cast<std::uint8_t>(length + 1), {}};
    Send(UiConfig.Callback, UiConfig.ObjectID, UiConfig.ObjectType, buffer);
}

LONG WINAPI TUISPI_lineConfigDialog(TUISPIDLLCALLBACK lpfnUIDLLCallback, DWORD dwDeviceID, HWND hwndOwner, LPCWSTR) {
    Begin(lpfnUIDLLCallback, TUISPIDLL_OBJECT_LINEID, dwDeviceID);
    if (!ExchangeNow(UI_SPI_EI_CFGDLG_GET))
        return static_cast<LONG>(LINEERR_OPERATIONFAILED);
    if (dwDeviceID != UiConfig.Config.LineDeviceID)
        return static_cast<LONG>(LINEERR_BADDEVICEID);
    Configure(hwndOwner);
    return 0;
}

LONG WINAPI TUISPI_phoneConfigDialog(TUISPIDLLCALLBACK lpfnUIDLLCallback, DWORD dwDeviceID, HWND hwndOwner, LPCWSTR) {
    Begin(lpfnUIDLLCallback, TUISPIDLL_OBJECT_PHONEID, dwDeviceID);
    if (!ExchangeNow(UI_SPI_EI_CFGDLG_GET))
        return static_cast<LONG>(PHONEERR_OPERATIONFAILED);
    if (dwDeviceID != UiConfig.Config.PhoneDeviceID)
        return static_cast<LONG>(PHONEERR_BADDEVICEID);
    Configure(hwndOwner);
    return 0;
}

LONG WINAPI TUISPI_providerConfig(TUISPIDLLCALLBACK lpfnUIDLLCallback, HWND hwndOwner, DWORD dwPermanentProviderID) {
    Begin(lpfnUIDLLCallback, TUISPIDLL_OBJECT_PROVIDERID, dwPermanentProviderID);
    UiTrace("TUISPI_providerConfig hInst %lx", Process.ModuleInstance);
    ExchangeNow(UI_SPI_EI_CFGDLG_GET);  // an installation goes on without the answer
    Configure(hwndOwner);
    return 0;
}

LONG WINAPI TUISPI_providerInstall(TUISPIDLLCALLBACK lpfnUIDLLCallback, HWND hwndOwner, DWORD dwPermanentProviderID) {
    return TUISPI_providerConfig(lpfnUIDLLCallback, hwndOwner, dwPermanentProviderID);
}

LONG WINAPI TUISPI_providerRemove(TUISPIDLLCALLBACK, HWND, DWORD) {
    return 0;
}

LONG WINAPI TUISPI_providerGenericDialog(TUISPIDLLCALLBACK, HTAPIDIALOGINSTANCE, LPVOID, DWORD, HANDLE hEvent) {
    SetEvent(hEvent);
    return 0;
}
