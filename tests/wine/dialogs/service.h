// The provider's side of a conversation about dialogs: the shipped library as the telephony service holds it, in this
// process or in a second one, which is asked by messages.
#pragma once

#include "platform/platform.h"

#include <string>

constexpr DWORD PROVIDER_ID = 42, LINE_ID = 6, PHONE_ID = 7;

// The library's entry points, by their exported names.
struct Library {
    HMODULE Handle = nullptr;
    decltype(&TSPI_providerEnumDevices) EnumDevices;
    decltype(&TSPI_providerInit) Init;
    decltype(&TSPI_providerShutdown) Shutdown;
    decltype(&TSPI_providerGenericDialogData) DialogData;
    decltype(&TSPI_lineOpen) LineOpen;
    decltype(&TSPI_lineClose) LineClose;
    decltype(&TUISPI_providerConfig) ProviderConfig;
    decltype(&TUISPI_providerInstall) ProviderInstall;
    decltype(&TUISPI_providerRemove) ProviderRemove;
    decltype(&TUISPI_lineConfigDialog) LineConfigDialog;
    decltype(&TUISPI_phoneConfigDialog) PhoneConfigDialog;
    decltype(&TUISPI_providerGenericDialog) GenericDialog;
};
extern Library Tsp;
bool LoadTsp(const char* path);
void UnloadTsp();

enum class Job : DWORD { Start, Stop, OpenLine, CloseLine, DialogData, Events };

struct Message {
    Job What;
    LONG Result;
    DWORD Type;
    DWORD Size;  // of the data; 0: none
    ULONGLONG Object;
    char Data[512];  // a dialog's buffer, or the names of the line's events since the last question
};

// Carries it out with this process's library.
void Carry(Message& message);
// What the second process does until its standard input ends.
int RunService(const char* library);

// The second process: this program again.
class ServiceProcess {
public:
    explicit ServiceProcess(const std::string& library);
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;
    void Carry(Message& message);
    LONG Do(Job job);
    // Their names, a blank behind each.
    std::string Events();

private:
    HANDLE to = nullptr, from = nullptr;
    PROCESS_INFORMATION process{};
};
