// Windows' functions that unit tests replace: in a build for them the library calls these instead, under the same names.
//
// The clock, waiting, messages, dialogs and ports are the simulated system's (simulated/), as on POSIX systems, so that
// a test owns the time and never waits for it. Registry, private profiles, files and memory are Windows' own behind
// replaced.cpp, which gives each test process a registry and a drive C: of its own and lets calls fail. Everything else
// (texts, the C run time, structures and calling conventions) is Windows' own altogether.
#pragma once

// clock
decltype(timeGetTime) SimtimeGetTime;
// objects
decltype(CreateMutexA) SimCreateMutexA;
decltype(ReleaseMutex) SimReleaseMutex;
decltype(CreateEventA) SimCreateEventA;
decltype(SetEvent) SimSetEvent;
decltype(CreateThread) SimCreateThread;
decltype(WaitForSingleObject) SimWaitForSingleObject;
decltype(CloseHandle) SimCloseHandle;
decltype(GetCurrentThreadId) SimGetCurrentThreadId;
// messages, boxes
decltype(GetMessageA) SimGetMessageA;
decltype(TranslateMessage) SimTranslateMessage;
decltype(DispatchMessageA) SimDispatchMessageA;
decltype(PostThreadMessageA) SimPostThreadMessageA;
decltype(SetTimer) SimSetTimer;
decltype(KillTimer) SimKillTimer;
decltype(PeekMessageA) SimPeekMessageA;
decltype(PostQuitMessage) SimPostQuitMessage;
decltype(MsgWaitForMultipleObjectsEx) SimMsgWaitForMultipleObjectsEx;
decltype(MessageBoxA) SimMessageBoxA;
decltype(MessageBeep) SimMessageBeep;
decltype(GetActiveWindow) SimGetActiveWindow;
decltype(GetForegroundWindow) SimGetForegroundWindow;
// sessions, libraries, the event log
decltype(GetProcessWindowStation) SimGetProcessWindowStation;
decltype(GetUserObjectInformationA) SimGetUserObjectInformationA;
decltype(LoadLibraryA) SimLoadLibraryA;
decltype(GetProcAddress) SimGetProcAddress;
decltype(GetModuleHandleExA) SimGetModuleHandleExA;
decltype(WTSGetActiveConsoleSessionId) SimWTSGetActiveConsoleSessionId;
decltype(WTSEnumerateSessionsW) SimWTSEnumerateSessionsW;
decltype(WTSQuerySessionInformationW) SimWTSQuerySessionInformationW;
decltype(WTSFreeMemory) SimWTSFreeMemory;
decltype(WTSSendMessageW) SimWTSSendMessageW;
decltype(RegisterEventSourceA) SimRegisterEventSourceA;
decltype(ReportEventA) SimReportEventA;
decltype(DeregisterEventSource) SimDeregisterEventSource;
// dialogs
decltype(DialogBoxParamA) SimDialogBoxParamA;
decltype(EndDialog) SimEndDialog;
decltype(GetDlgItem) SimGetDlgItem;
decltype(GetDlgItemTextA) SimGetDlgItemTextA;
decltype(SendDlgItemMessageA) SimSendDlgItemMessageA;
decltype(EnableWindow) SimEnableWindow;
decltype(WinHelpA) SimWinHelpA;
// ports
decltype(CreateFileA) SimCreateFileA;
decltype(GetCommState) SimGetCommState;
decltype(SetCommState) SimSetCommState;
decltype(GetCommTimeouts) SimGetCommTimeouts;
decltype(SetCommTimeouts) SimSetCommTimeouts;
decltype(EscapeCommFunction) SimEscapeCommFunction;
decltype(ClearCommError) SimClearCommError;
decltype(ReadFile) SimReadFile;
decltype(WriteFile) SimWriteFile;
decltype(GetOverlappedResult) SimGetOverlappedResult;
decltype(CancelIoEx) SimCancelIoEx;
decltype(PurgeComm) SimPurgeComm;
decltype(FlushFileBuffers) SimFlushFileBuffers;
// registry
decltype(RegOpenKeyExA) SimRegOpenKeyExA;
decltype(RegCreateKeyExA) SimRegCreateKeyExA;
decltype(RegQueryValueExA) SimRegQueryValueExA;
decltype(RegSetValueExA) SimRegSetValueExA;
decltype(RegDeleteKeyA) SimRegDeleteKeyA;
decltype(RegEnumKeyA) SimRegEnumKeyA;
decltype(RegEnumValueA) SimRegEnumValueA;
decltype(RegCloseKey) SimRegCloseKey;
decltype(WritePrivateProfileStringA) SimWritePrivateProfileStringA;
// directories, files
decltype(GetWindowsDirectoryA) SimGetWindowsDirectoryA;
decltype(GetSystemDirectoryA) SimGetSystemDirectoryA;
decltype(_mkdir) Sim_mkdir;
decltype(_lopen) Sim_lopen;
decltype(_lcreat) Sim_lcreat;
decltype(_lclose) Sim_lclose;
// memory
decltype(GlobalAlloc) SimGlobalAlloc;
decltype(GlobalLock) SimGlobalLock;
decltype(GlobalUnlock) SimGlobalUnlock;
decltype(GlobalFree) SimGlobalFree;
std::FILE* SimFileOpen(const char* path, const char* mode);
int SimFileRename(const char* from, const char* to);
int SimFileRemove(const char* path);

// The library's entry point; tests call it themselves.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID);

#ifndef ZT_REPLACING  // replaced.cpp needs both
#define timeGetTime SimtimeGetTime
#define CreateMutexA SimCreateMutexA
#define ReleaseMutex SimReleaseMutex
#define CreateEventA SimCreateEventA
#define SetEvent SimSetEvent
#define CreateThread SimCreateThread
#define WaitForSingleObject SimWaitForSingleObject
#define CloseHandle SimCloseHandle
#define GetCurrentThreadId SimGetCurrentThreadId
#define GetMessageA SimGetMessageA
#define TranslateMessage SimTranslateMessage
#define DispatchMessageA SimDispatchMessageA
#define PostThreadMessageA SimPostThreadMessageA
#define SetTimer SimSetTimer
#define KillTimer SimKillTimer
#define PeekMessageA SimPeekMessageA
#define PostQuitMessage SimPostQuitMessage
#define MsgWaitForMultipleObjectsEx SimMsgWaitForMultipleObjectsEx
#define MessageBoxA SimMessageBoxA
#define MessageBeep SimMessageBeep
#define GetActiveWindow SimGetActiveWindow
#define GetForegroundWindow SimGetForegroundWindow
#define GetProcessWindowStation SimGetProcessWindowStation
#define GetUserObjectInformationA SimGetUserObjectInformationA
#define LoadLibraryA SimLoadLibraryA
#define GetProcAddress SimGetProcAddress
#define GetModuleHandleExA SimGetModuleHandleExA
#define WTSGetActiveConsoleSessionId SimWTSGetActiveConsoleSessionId
#define WTSEnumerateSessionsW SimWTSEnumerateSessionsW
#define WTSQuerySessionInformationW SimWTSQuerySessionInformationW
#define WTSFreeMemory SimWTSFreeMemory
#define WTSSendMessageW SimWTSSendMessageW
#define RegisterEventSourceA SimRegisterEventSourceA
#define ReportEventA SimReportEventA
#define DeregisterEventSource SimDeregisterEventSource
#define DialogBoxParamA SimDialogBoxParamA
#define EndDialog SimEndDialog
#define GetDlgItem SimGetDlgItem
#define GetDlgItemTextA SimGetDlgItemTextA
#define SendDlgItemMessageA SimSendDlgItemMessageA
#define EnableWindow SimEnableWindow
#define WinHelpA SimWinHelpA
#define CreateFileA SimCreateFileA
#define GetCommState SimGetCommState
#define SetCommState SimSetCommState
#define GetCommTimeouts SimGetCommTimeouts
#define SetCommTimeouts SimSetCommTimeouts
#define EscapeCommFunction SimEscapeCommFunction
#define ClearCommError SimClearCommError
#define ReadFile SimReadFile
#define WriteFile SimWriteFile
#define GetOverlappedResult SimGetOverlappedResult
#define CancelIoEx SimCancelIoEx
#define PurgeComm SimPurgeComm
#define FlushFileBuffers SimFlushFileBuffers
#define RegOpenKeyExA SimRegOpenKeyExA
#define RegCreateKeyExA SimRegCreateKeyExA
#define RegQueryValueExA SimRegQueryValueExA
#define RegSetValueExA SimRegSetValueExA
#define RegDeleteKeyA SimRegDeleteKeyA
#define RegEnumKeyA SimRegEnumKeyA
#define RegEnumValueA SimRegEnumValueA
#define RegCloseKey SimRegCloseKey
#define WritePrivateProfileStringA SimWritePrivateProfileStringA
#define GetWindowsDirectoryA SimGetWindowsDirectoryA
#define GetSystemDirectoryA SimGetSystemDirectoryA
#define _mkdir Sim_mkdir
#define _lopen Sim_lopen
#define _lcreat Sim_lcreat
#define _lclose Sim_lclose
#define GlobalAlloc SimGlobalAlloc
#define GlobalLock SimGlobalLock
#define GlobalUnlock SimGlobalUnlock
#define GlobalFree SimGlobalFree
#define FileOpen SimFileOpen
#define FileRename SimFileRename
#define FileRemove SimFileRemove
#endif
