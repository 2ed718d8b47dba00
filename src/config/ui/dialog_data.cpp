// The provider's side of the configuration dialogs.
#include "config/ui/dialog_data.h"

#include "config/settings.h"
#include "config/ui/resource.h"
#include "platform/copy_text.h"
#include "provider/error_box.h"
#include "provider/process.h"
#include "thread/serial_thread.h"
#include "trace/trace.h"
#include "tracking/events.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace {

// The object that TAPI names beside a buffer.
struct Object {
    DWORD_PTR ID;
    DWORD Type;
};

// The serial thread reads what is read and written here; a box is never shown under it.
struct HeldLineMutex {
    const LONG wait = WaitLineMutex();
    const bool held = GotLineMutex(wait);
    HeldLineMutex() = default;
    HeldLineMutex(const HeldLineMutex&) = delete;
    HeldLineMutex& operator=(const HeldLineMutex&) = delete;
    ~HeldLineMutex() {
        if (held)
            ReleaseLineMutex(0);
    }
};

void TakeTrace(std::span<const std::uint8_t> text, std::size_t size) {
    const void* end = std::memchr(text.data(), 0, text.size());
    if (end == static_cast<const void*>(text.data() + size - 1))
        Trace(TRACE_ENTRY, "%s", reinterpret_cast<const char*>(text.data()));
}

void GetConfig(const Object& object, ConfigData& data) {
    if (object.Type == TUISPIDLL_OBJECT_PROVIDERID) {
        const HeldLineMutex mutex;
        if (mutex.held)
            LoadIniStrings(static_cast<DWORD>(object.ID));
    }
    const bool shared = EnterIfShared();
    data = ConfigData{};
    data.LineDeviceID = ProviderState.LineDeviceID;
    data.PhoneDeviceID = ProviderState.PhoneDeviceID;
    CopyText(data.PortName, ProviderState.PortName);
    std::copy(std::begin(ProviderState.LineName), std::end(ProviderState.LineName), data.LineName);
    CopyText(data.Version, ZT_VERSION_TEXT);
    data.AdapterMajor = ProviderState.AdapterMajor;
    data.AdapterMinor = ProviderState.AdapterMinor;
    data.TAPI_OMNA_Ver = ProviderState.TAPI_OMNA_Ver;
    data.ProtocolLevel = ProviderState.ProtocolLevel;
    LeaveIfShared(shared);
}

// Whether the serial thread runs with the old port. TAPI is then told to start the provider anew, and nothing opens
// before it has; without a thread the new port is the one that the next open takes.
bool NeedsRestart() {
    const HeldLineMutex mutex;  // where it cannot be had, the restart is asked for all the same
    if (!SerialThreadRuns()) {
        if (mutex.held)
            LoadIniStrings(ProviderState.PermanentProviderID);
        return false;
    }
    DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_REINIT, 0, -1);
    Process.RestartRequired = true;
    return true;
}

void SetConfigPort(const Object&, ConfigData& data) {
    data.PortName[SETTING_SIZE - 1] = 0;
    Trace(TRACE_ENTRY, " Rcv Port '%s'", data.PortName);
    RegWriteSetting(SECTION_PROVIDER, "Port", data.PortName);
    if (NeedsRestart())
        ErrorBox("Serial Port configuration modified.\n\nClose and restart the application.");
}

void GetAdvanced(const Object&, AdvancedData& data) {
    const HeldLineMutex mutex;
    if (!mutex.held)
        return;
    ReadExtPrefix();
    ReadExtPrefixDisp();
    ReadMaxDigitLocal();
    ReadEnquiryCallMode();
    data = {Settings.MaxDigitLocal, Settings.EnquiryCallMode, Settings.ExtPrefixDisp, {}};
    CopyText(data.ExtPrefix, Settings.ExtPrefix);
    Trace(TRACE_ENTRY, "UI_SPI_EI_CFGDLG_ADV_GET ExtPrefix '%s'", Settings.ExtPrefix);
    Trace(TRACE_ENTRY, "UI_SPI_EI_CFGDLG_ADV_GET ExtPrefixDisp '%d'", Settings.ExtPrefixDisp);
    Trace(TRACE_ENTRY, "UI_SPI_EI_CFGDLG_ADV_GET MaxDigitLocalCall '%d'", Settings.MaxDigitLocal);
    Trace(TRACE_ENTRY, "UI_SPI_EI_CFGDLG_ADV_GET EnqCallMode '%d'", Settings.EnquiryCallMode);
}

void TakeFlag(int& flag, std::int32_t value, const char* section, const char* name) {
    if (value == flag)
        return;
    flag = value;
    RegWriteSetting(section, name, flag == 1 ? "1" : "0");
}

void SetAdvanced(const Object&, AdvancedData& data) {
    Trace(TRACE_ENTRY, "Rcv UI_SPI_EI_CFGDLG_ADV_SET");
    const HeldLineMutex mutex;
    if (!mutex.held)
        return;
    data.ExtPrefix[sizeof data.ExtPrefix - 1] = 0;
    CopyText(Settings.ExtPrefix, data.ExtPrefix);
    RegWriteSetting(SECTION_PREFIX, "ExtPrefix", Settings.ExtPrefix);
    TakeFlag(Settings.ExtPrefixDisp, data.ExtPrefixDisp, SECTION_PREFIX, "ExtPrefixDisp");
    if (data.MaxDigitLocal != Settings.MaxDigitLocal) {
        Settings.MaxDigitLocal = data.MaxDigitLocal;
        char text[16];
        const TraceArgument digits(Settings.MaxDigitLocal);
        FormatText(text, sizeof text, "%02d", &digits, 1);
        RegWriteSetting(SECTION_SETCONFIG, "MaxDigitLocal", text);
    }
    TakeFlag(Settings.EnquiryCallMode, data.EnquiryCallMode, SECTION_SETCONFIG, "EnquiryCallMode");
    Trace(TRACE_ENTRY, "UI_SPI_EI_CFGDLG_ADV_SET ExtPrefix '%s'", Settings.ExtPrefix);
    Trace(TRACE_ENTRY, "UI_SPI_EI_CFGDLG_ADV_SET ExtPrefixDisp '%d'", Settings.ExtPrefixDisp);
    Trace(TRACE_ENTRY, "UI_SPI_EI_CFGDLG_ADV_SET MaxDigitLocalCall '%d'", Settings.MaxDigitLocal);
    Trace(TRACE_ENTRY, "UI_SPI_EI_CFGDLG_ADV_SET EnqCallMode '%d'", Settings.EnquiryCallMode);
}

// Runs a handler on a copy of the buffer's data, which TAPI does not promise to align, and puts the answer back.
template <class Data>
void Answer(const Object& object, std::span<std::uint8_t> bytes, std::size_t size,
            void (*handle)(const Object&, Data&)) {
    if (size != sizeof(Data))
        return;
    Data data;
    std::memcpy(&data, bytes.data(), sizeof data);
    handle(object, data);
    std::memcpy(bytes.data(), &data, sizeof data);
}

}  // namespace

// A buffer that is shorter than it says, or says a size that is not its code's, is left alone.
LONG WINAPI TSPI_providerGenericDialogData(DWORD_PTR dwObjectID, DWORD dwObjectType, LPVOID lpParams, DWORD dwSize) {
    const bool known = dwObjectType >= TUISPIDLL_OBJECT_LINEID && dwObjectType <= TUISPIDLL_OBJECT_DIALOGINSTANCE;
    if (!known || lpParams == nullptr || dwSize < sizeof(ExchangeHeader))
        return 0;
    auto* buffer = static_cast<std::uint8_t*>(lpParams);
    const std::size_t size = buffer[offsetof(ExchangeHeader, Size)];
    const std::span bytes(buffer + sizeof(ExchangeHeader), dwSize - sizeof(ExchangeHeader));
    if (size == 0 || bytes.size() < size)
        return 0;
    const Object object{dwObjectID, dwObjectType};
    switch (buffer[offsetof(ExchangeHeader, Code)]) {
    case UI_SPI_EI_TRACE: TakeTrace(bytes, size); break;
    case UI_SPI_EI_CFGDLG_GET: Answer(object, bytes, size, GetConfig); break;
    case UI_SPI_EI_CFGDLG_SET: Answer(object, bytes, size, SetConfigPort); break;
    case UI_SPI_EI_CFGDLG_ADV_GET: Answer(object, bytes, size, GetAdvanced); break;
    case UI_SPI_EI_CFGDLG_ADV_SET: Answer(object, bytes, size, SetAdvanced); break;
    default: break;
    }
    return 0;
}
