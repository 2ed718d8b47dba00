#include "start.h"

#include "config/char_patterns.h"
#include "config/set/set_config.h"
#include "config/set/stored_config.h"
#include "config/settings.h"
#include "control/requests.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "link/link_layer.h"
#include "link/omna.h"
#include "link/serial.h"
#include "link/tick.h"
#include "platform/control.h"
#include "platform/copy_text.h"
#include "platform/platform.h"
#include "provider/event_log.h"
#include "provider/process.h"
#include "provider/state.h"
#include "support/records.h"
#include "trace/trace.h"
#include "tracking/events.h"
#include "tracking/model.h"
#include "tracking/terminal.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

constexpr std::int32_t ALL_LEVELS = 0xFF;
constexpr int INPUTS_PER_RESET = 500;  // the platform layer keeps every box since its last reset

struct Sink : PlatformControl::PortDevice {
    void Write(std::span<const std::uint8_t>, std::uint32_t) override {}
    std::size_t Available(std::uint32_t) override { return 0; }
    std::size_t Read(std::span<std::uint8_t>, std::uint32_t) override { return 0; }
};
Sink Port;

void CALLBACK TakeLineEvent(HTAPILINE, HTAPICALL, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    FuzzNote("line event", message, p1);
    constexpr DWORD NEW_CALL = static_cast<DWORD>(LINE_NEWCALL);
    if (message == NEW_CALL)
        *reinterpret_cast<HTAPICALL*>(p2) = reinterpret_cast<HTAPICALL>(static_cast<std::uintptr_t>(0x100 + p1));
}

void CALLBACK TakePhoneEvent(HTAPIPHONE, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    FuzzNote("phone event", message, p1, p2);
}

void CALLBACK TakeCompletion(DRV_REQUESTID, LONG result) {
    FuzzNote("completion", result);
}

void ClosePort() {
    if (Serial.Port != INVALID_HANDLE_VALUE)
        CloseHandle(std::exchange(Serial.Port, INVALID_HANDLE_VALUE));
}

void OpenPlatform() {
    ClosePort();
    CloseAndForget(DebugMutex);
    PlatformControl::Reset();
    PlatformControl::MapPort("COM1", &Port);
    if (FuzzReplays)  // without it nothing is traced
        DebugMutex = CreateMutexA(nullptr, FALSE, nullptr);
    Serial.Port =
        CreateFileA("COM1", GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
}

void ConfigureKey(int key, TouchKind kind, KeyList& list, const char* label) {
    Touch& touch = TouchTable.at(static_cast<std::size_t>(key));
    touch.kind = kind;
    touch.icon = IDLE_ICON;
    CopyText(touch.label, label);
    list.Append(key);
}

}  // namespace

static int Inputs = 0;  // since the last restart
bool FuzzReplays = false;
std::string FuzzNotes;

void FuzzRestart() {
    Inputs = 0;
    // What no reset of records reaches, and a link brings along: sequence numbers, and a message that is coming in.
    static constexpr std::uint8_t AlwaysTheSame[] = {
        FRAME_SEGMENT, 0x81, 0, 21, FRAME_OMNA, 0, 20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    ResetOmnaLink();
    RebuildSegment(AlwaysTheSame, false);
}

void FuzzStart() {
    [[maybe_unused]] static const int once = std::atexit(ClosePort);  // before the platform layer's own records go
    if (Inputs++ % INPUTS_PER_RESET == 0)
        OpenPlatform();
    const HANDLE port = Serial.Port;
    ResetRecords();
    Serial.Port = port;
    TraceMask = FuzzReplays ? ALL_LEVELS : 0;
    ProviderState.htLine = reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11});
    ProviderState.LineEventProc = TakeLineEvent;
    ProviderState.htPhone = reinterpret_cast<HTAPIPHONE>(std::uintptr_t{0x22});
    ProviderState.PhoneEventProc = TakePhoneEvent;
    ProviderState.CompletionProc = TakeCompletion;
}

void FuzzStartClosed() {
    if (Inputs++ % INPUTS_PER_RESET == 0)
        PlatformControl::Reset();
    FuzzEmptyRegistry();
    Process = ProcessRecord{};
    StopRequest = false;
    SerialThreadLife = ThreadLife::None;
    ResetEventLog();
    ResetRecords();
    TraceMask = FuzzReplays ? ALL_LEVELS : 0;
}

void FuzzEmptyRegistry() {
    for (const char* section :
         {SECTION_PROVIDER, SECTION_SETCONFIG, SECTION_PREFIX, SECTION_SET_DES, SECTION_SOFTKEY_DES, SECTION_STRING_DES,
          SECTION_SERVICE_CODE, SECTION_DYNAMIC, SECTION_SUBDEVICE_TEST, SECTION_DEBUG_MODE, SECTION_ZT_INFO})
        RegDeleteSection(section);
}

void FuzzConfigureSet() {
    ConfigureKey(1, TOUCH_MULTI, KeyLists.Multi, "4711");
    ConfigureKey(2, TOUCH_MULTI, KeyLists.Multi, "4711");
    ConfigureKey(5, TOUCH_SUPERV, KeyLists.Superv, "4712");
    ConfigureKey(6, TOUCH_PATRON, KeyLists.Patron, "4713");
    ConfigureKey(7, TOUCH_SECRETAIRE, KeyLists.Secretaire, "4714");
    ConfigureKey(8, TOUCH_SECR_DEBORD, KeyLists.SecrDebord, "4715");
    static constexpr const char* Labels[] = {"2eAppl", "FinDbl", "V.Vien", "Confer", "F.Voca", "FinFV", "Transf"};
    for (std::size_t i = 0; i < std::size(Labels); ++i)
        CopyText(Settings.SoftKeyLabels[i], Labels[i]);
    CopyText(Settings.DisplayStrings[STRING_HANG_UP], "RACCROCHEZ");
    CopyText(Settings.DisplayStrings[STRING_CANCEL_SECOND_CALL], "ANNULER");
    CopyText(Settings.DisplayStrings[STRING_DIAL], "NUMEROTEZ");
    CopyText(Settings.SetMCDU, "4711");
    CopyText(Settings.ExtPrefix, "0");
    Settings.MaxDigitLocal = 4;
    Settings.SupervService = 1;
    AomTable[0] = {true, 2, false, 28};
    AomTable[1] = {true, 5, true, 52};
    AomCount = 2;
    SortAomModules();
}

void FuzzCheckKeys() {
    for (const KeyListSet* lists : {&KeyLists, &SetConfig.RcvKeyLists})
        for (const KeyList* list :
             {&lists->Multi, &lists->Superv, &lists->Patron, &lists->Secretaire, &lists->SecrDebord}) {
            FuzzRequire(list->Count >= 0 && list->Count <= list->Room, "the room of a list");
            for (const int key : *list)
                FuzzRequire(key >= 1 && key < KEY_COUNT, "the keys of a list");
        }
    for (const int cref : WaitInfo)
        FuzzRequire(cref == -1 || IsCref(cref), "the calls that wait for their caller");
}

void FuzzRequire(bool condition, const char* what) {
    if (condition)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

void FuzzNoteConfiguration() {
    for (const auto& label : Settings.SoftKeyLabels)
        FuzzNote(label);
    for (const auto& text : Settings.DisplayStrings)
        FuzzNote(text);
    for (const auto& code : Settings.ServiceCodes)
        FuzzNote(code);
    for (const char* text : {Settings.SetMCDU, Settings.ExtPrefix, Settings.PublicOperator, ProviderState.PortName,
                             ProviderState.SpeedText, ProviderState.LineAddress, ProviderState.ForwardDestination})
        FuzzNote(text);
    FuzzNote("numbers", Settings.ExtPrefixDisp, Settings.MaxDigitLocal, Settings.EnquiryCallMode,
             Settings.SupervService, DynamicConfig.LastActionState, DynamicConfig.WaitDynamicConfig,
             DynamicConfig.StaticConfig, DynamicConfig.WaitTraceMode, ReadAfterL2Timeout());
    for (const Touch& touch : TouchTable)
        FuzzNote(touch.label, touch.kind, touch.icon, touch.calls[0], touch.calls[1]);
    for (const KeyListSet* lists : {&KeyLists, &SetConfig.RcvKeyLists})
        for (const KeyList* list :
             {&lists->Multi, &lists->Superv, &lists->Patron, &lists->Secretaire, &lists->SecrDebord})
            for (const int key : *list)
                FuzzNote("key", key, list->Count);
}
