#include "start.h"

#include "config/char_patterns.h"
#include "config/set/set_config.h"
#include "config/set/stored_config.h"
#include "config/settings.h"
#include "control/requests.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "link/link_layer.h"
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
#include <filesystem>
#include <utility>

namespace {

constexpr int INPUTS_PER_RESET = 500;  // the platform layer keeps every box since its last reset

struct Sink : PlatformControl::PortDevice {
    void Write(std::span<const std::uint8_t>, std::uint32_t) override {}
    std::size_t Available(std::uint32_t) override { return 0; }
    std::size_t Read(std::span<std::uint8_t>, std::uint32_t) override { return 0; }
};
Sink Port;

void CALLBACK TakeLineEvent(HTAPILINE, HTAPICALL, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    constexpr DWORD NEW_CALL = static_cast<DWORD>(LINE_NEWCALL);
    if (message == NEW_CALL)
        *reinterpret_cast<HTAPICALL*>(p2) = reinterpret_cast<HTAPICALL>(static_cast<std::uintptr_t>(0x100 + p1));
}

void CALLBACK TakePhoneEvent(HTAPIPHONE, DWORD, DWORD_PTR, DWORD_PTR, DWORD_PTR) {}

void CALLBACK TakeCompletion(DRV_REQUESTID, LONG) {}

void ClosePort() {
    if (Serial.Port != INVALID_HANDLE_VALUE)
        CloseHandle(std::exchange(Serial.Port, INVALID_HANDLE_VALUE));
}

void OpenPlatform() {
    ClosePort();
    PlatformControl::Reset();
    PlatformControl::MapPort("COM1", &Port);
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

void FuzzStart() {
    static int inputs = 0;
    if (inputs == 0)
        std::atexit(ClosePort);  // before the platform layer's own records go
    if (inputs++ % INPUTS_PER_RESET == 0)
        OpenPlatform();
    const HANDLE port = Serial.Port;
    ResetRecords();
    Serial.Port = port;
    TraceMask = 0;
    ProviderState.htLine = reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11});
    ProviderState.LineEventProc = TakeLineEvent;
    ProviderState.htPhone = reinterpret_cast<HTAPIPHONE>(std::uintptr_t{0x22});
    ProviderState.PhoneEventProc = TakePhoneEvent;
    ProviderState.CompletionProc = TakeCompletion;
}

void FuzzStartClosed() {
    static int inputs = 0;
    if (inputs++ % INPUTS_PER_RESET == 0)
        PlatformControl::Reset();
    FuzzEmptyRegistry();
    Process = ProcessRecord{};
    StopRequest = false;
    SerialThreadLife = ThreadLife::None;
    ResetEventLog();
    ResetRecords();
    TraceMask = 0;
}

void FuzzEmptyRegistry() {
    for (const char* section :
         {SECTION_PROVIDER, SECTION_SETCONFIG, SECTION_PREFIX, SECTION_SET_DES, SECTION_SOFTKEY_DES, SECTION_STRING_DES,
          SECTION_SERVICE_CODE, SECTION_DYNAMIC, SECTION_SUBDEVICE_TEST, SECTION_DEBUG_MODE, SECTION_ZT_INFO})
        RegDeleteSection(section);
}

// The platform's directories in memory, where there is such a place: the disk took nine tenths of the time.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (std::filesystem::is_directory("/dev/shm"))
        setenv("TMPDIR", "/dev/shm", 0);
    return 0;
}

// A stack with each block of memory costs as much as an input does; a fault shows its own all the same.
extern "C" const char* __asan_default_options() {
    return "malloc_context_size=1";
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
