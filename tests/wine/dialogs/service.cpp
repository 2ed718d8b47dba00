#include "service.h"

#include "check.h"

#include <cstring>
#include <mutex>

Library Tsp;

namespace {

HDRVLINE Line = nullptr;
std::string LineEvents;  // filled by the library's threads
std::mutex EventsMutex;

void CALLBACK OnLineEvent(HTAPILINE, HTAPICALL, DWORD message, DWORD_PTR parameter, DWORD_PTR, DWORD_PTR) {
    const std::scoped_lock lock(EventsMutex);
    if (message == LINE_CLOSE) {
        LineEvents += "CLOSE ";
    } else if (message == LINE_LINEDEVSTATE) {
        for (const auto& [bit, name] : {std::pair{DWORD{LINEDEVSTATE_CONNECTED}, "CONNECTED "},
                                        {LINEDEVSTATE_INSERVICE, "INSERVICE "},
                                        {LINEDEVSTATE_REINIT, "REINIT "}})
            if ((parameter & bit) != 0)
                LineEvents += name;
    }
}

void CALLBACK OnPhoneEvent(HTAPIPHONE, DWORD, DWORD_PTR, DWORD_PTR, DWORD_PTR) {}

void CALLBACK OnCompletion(DRV_REQUESTID, LONG) {}

template <class Function> bool Find(Function& function, const char* name) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(Tsp.Handle, name)));
    Expect(std::string("the library exports ") + name, function != nullptr);
    return function != nullptr;
}

LONG Start() {
    DWORD lines = 0, phones = 0, options = 0;
    const LONG result =
        Tsp.EnumDevices(PROVIDER_ID, &lines, &phones, reinterpret_cast<HPROVIDER>(1), OnLineEvent, OnPhoneEvent);
    return result != 0 ? result
                       : Tsp.Init(0x20000, PROVIDER_ID, LINE_ID, PHONE_ID, lines, phones, OnCompletion, &options);
}

bool Transfer(HANDLE file, Message& message, bool write) {
    auto* at = reinterpret_cast<char*>(&message);
    for (DWORD left = sizeof message, done = 0; left > 0; left -= done, at += done) {
        const BOOL fine = write ? WriteFile(file, at, left, &done, nullptr) : ReadFile(file, at, left, &done, nullptr);
        if (!fine || done == 0)
            return false;
    }
    return true;
}

// A pipe of which the second process gets one end.
void MakePipe(HANDLE& ours, HANDLE& theirs, bool weWrite) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    CreatePipe(weWrite ? &theirs : &ours, weWrite ? &ours : &theirs, &inherited, 0);
    SetHandleInformation(ours, HANDLE_FLAG_INHERIT, 0);
}

}  // namespace

bool LoadTsp(const char* path) {
    Tsp.Handle = LoadLibraryA(path);
    if (Tsp.Handle == nullptr) {
        Expect(std::string("LoadLibrary of ") + path + ", system error", 0, static_cast<long>(GetLastError()));
        return false;
    }
    return Find(Tsp.EnumDevices, "TSPI_providerEnumDevices") && Find(Tsp.Init, "TSPI_providerInit") &&
           Find(Tsp.Shutdown, "TSPI_providerShutdown") && Find(Tsp.DialogData, "TSPI_providerGenericDialogData") &&
           Find(Tsp.LineOpen, "TSPI_lineOpen") && Find(Tsp.LineClose, "TSPI_lineClose") &&
           Find(Tsp.ProviderConfig, "TUISPI_providerConfig") && Find(Tsp.ProviderInstall, "TUISPI_providerInstall") &&
           Find(Tsp.ProviderRemove, "TUISPI_providerRemove") && Find(Tsp.LineConfigDialog, "TUISPI_lineConfigDialog") &&
           Find(Tsp.PhoneConfigDialog, "TUISPI_phoneConfigDialog") &&
           Find(Tsp.GenericDialog, "TUISPI_providerGenericDialog");
}

void UnloadTsp() {
    FreeLibrary(Tsp.Handle);
    Tsp = Library{};
}

void Carry(Message& message) {
    switch (message.What) {
    case Job::Start: message.Result = Start(); break;
    case Job::Stop: message.Result = Tsp.Shutdown(0x20000, PROVIDER_ID); break;
    case Job::OpenLine:
        message.Result = Tsp.LineOpen(LINE_ID, reinterpret_cast<HTAPILINE>(0x11), &Line, 0x20000, OnLineEvent);
        break;
    case Job::CloseLine: message.Result = Tsp.LineClose(Line); break;
    case Job::DialogData:
        message.Result = Tsp.DialogData(static_cast<DWORD_PTR>(message.Object), message.Type,
                                        message.Size == 0 ? nullptr : message.Data, message.Size);
        break;
    case Job::Events: {
        const std::scoped_lock lock(EventsMutex);
        LineEvents.resize(std::min(LineEvents.size(), sizeof message.Data - 1));
        std::memcpy(message.Data, LineEvents.c_str(), LineEvents.size() + 1);
        LineEvents.clear();
        break;
    }
    }
}

int RunService(const char* library) {
    const HANDLE in = GetStdHandle(STD_INPUT_HANDLE), out = GetStdHandle(STD_OUTPUT_HANDLE);
    if (!LoadTsp(library))
        return 1;
    Message message;
    while (Transfer(in, message, false)) {
        Carry(message);
        if (!Transfer(out, message, true))
            break;
    }
    return 0;
}

ServiceProcess::ServiceProcess(const std::string& library) {
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    MakePipe(to, startup.hStdInput, true);
    MakePipe(from, startup.hStdOutput, false);
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, sizeof program);
    std::string command = "\"" + std::string(program) + "\" service \"" + library + "\"";
    const BOOL started =
        CreateProcessA(program, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    Expect("the second process starts", started != 0);
    CloseHandle(startup.hStdInput);
    CloseHandle(startup.hStdOutput);
}

ServiceProcess::~ServiceProcess() {
    CloseHandle(to);  // which ends it
    Expect("the second process ends", WaitForSingleObject(process.hProcess, 90'000) == WAIT_OBJECT_0);
    DWORD result = 1;
    GetExitCodeProcess(process.hProcess, &result);
    Expect("the second process's result", 0, static_cast<long>(result));
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    CloseHandle(from);
}

void ServiceProcess::Carry(Message& message) {
    if (!Transfer(to, message, true) || !Transfer(from, message, false))
        Expect("the second process answers", false);
}

LONG ServiceProcess::Do(Job job) {
    Message message{};
    message.What = job;
    Carry(message);
    return message.Result;
}

std::string ServiceProcess::Events() {
    Message message{};
    message.What = Job::Events;
    Carry(message);
    return message.Data;
}
