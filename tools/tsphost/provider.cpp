// TSPI_provider*
#include "tsphost/commands.h"

#include <cstring>

namespace Tsphost {

bool Enumerate(const Words&) {
    DWORD lines = 0, phones = 0;
    if (!ZT_CALL(TSPI_providerEnumDevices, TheHost.ProviderID, &lines, &phones, nullptr, HostLineEvent, HostPhoneEvent))
        return false;
    Print("lines", std::to_string(lines));
    Print("phones", std::to_string(phones));
    return true;
}

bool Initialise(const Words&) {
    DWORD options = 0;
    if (!ZT_CALL(TSPI_providerInit, 0x20000u, TheHost.ProviderID, TheHost.LineBase, TheHost.PhoneBase, 1u, 1u,
                 HostCompletion, &options))
        return false;
    TheHost.Initialised = true;
    Print("options", FlagNames(options, ProviderOptions));
    return true;
}

bool Shutdown(const Words&) {
    TheHost.Line = nullptr;
    TheHost.Phone = nullptr;
    TheHost.Initialised = false;
    return ZT_CALL(TSPI_providerShutdown, 0x20000u, TheHost.ProviderID);
}

bool Identify(const Words&) {
    WCHAR name[260] = {};
    if (!ZT_CALL(TSPI_providerUIIdentify, name))
        return false;
    Print("library", FromWide(name, std::size(name)));
    return true;
}

bool Install(const Words&) {
    return ZT_CALL(TSPI_providerInstall, nullptr, TheHost.ProviderID);
}

bool Remove(const Words&) {
    return ZT_CALL(TSPI_providerRemove, nullptr, TheHost.ProviderID);
}

bool Configure(const Words&) {
    return ZT_CALL(TSPI_providerConfig, nullptr, TheHost.ProviderID);
}

bool FreeDialog(const Words&) {
    return ZT_CALL(TSPI_providerFreeDialogInstance, nullptr);
}

// What a dialog and its provider exchange is theirs; here it is bytes.
bool DialogData(const Words& words) {
    constexpr std::size_t ROOM = 256, ROW = 16;
    unsigned char bytes[ROOM] = {};
    const DWORD type = NumberAt(words, 1);
    if (words.size() - 2 > ROOM)
        throw Unusable{"at most 256 bytes"};
    for (std::size_t i = 2; i < words.size(); ++i)
        bytes[i - 2] = static_cast<unsigned char>(NumberAt(words, i));
    const DWORD_PTR object = type == TUISPIDLL_OBJECT_LINEID    ? TheHost.LineBase
                             : type == TUISPIDLL_OBJECT_PHONEID ? TheHost.PhoneBase
                                                                : TheHost.ProviderID;
    if (!ZT_CALL(TSPI_providerGenericDialogData, object, type, bytes, DWORD{ROOM}))
        return false;
    std::size_t end = ROOM;
    while (end > 0 && bytes[end - 1] == 0)
        --end;
    for (std::size_t at = 0; at < end; at += ROW) {
        std::string hex, text;
        for (std::size_t i = at; i < at + ROW; ++i) {
            hex += Hex(0x100u + bytes[i]).substr(3);  // behind "0x1"
            hex += ' ';
            text += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
        }
        Print(std::to_string(at), hex + " " + text);
    }
    return true;
}

namespace {

// What a dialog asks of its provider. The service carries it from the application's process to its own; here it is one.
LONG CALLBACK CarryDialogData(DWORD_PTR object, DWORD type, LPVOID data, DWORD size) {
    return Export<decltype(&TSPI_providerGenericDialogData)>("TSPI_providerGenericDialogData")(object, type, data,
                                                                                               size);
}

}  // namespace

bool UiConfig(const Words&) {
    return ZT_CALL(TUISPI_providerConfig, CarryDialogData, nullptr, TheHost.ProviderID);
}

bool UiLine(const Words& words) {
    return ZT_CALL(TUISPI_lineConfigDialog, CarryDialogData, NumberAt(words, 1, TheHost.LineBase), nullptr, nullptr);
}

bool UiPhone(const Words& words) {
    return ZT_CALL(TUISPI_phoneConfigDialog, CarryDialogData, NumberAt(words, 1, TheHost.PhoneBase), nullptr, nullptr);
}

bool UiInstall(const Words&) {
    return ZT_CALL(TUISPI_providerInstall, CarryDialogData, nullptr, TheHost.ProviderID);
}

bool UiRemove(const Words&) {
    return ZT_CALL(TUISPI_providerRemove, CarryDialogData, nullptr, TheHost.ProviderID);
}

}  // namespace Tsphost
