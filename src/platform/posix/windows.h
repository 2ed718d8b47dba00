// The Windows names that this library uses, for systems without windows.h: types and constants under their published
// names and values, and the functions that src/platform/posix implements. Exactly the subset in use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#define CALLBACK
#define WINAPI

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using WCHAR = char16_t;
using CHAR = char;
using DWORD_PTR = std::uintptr_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using LPVOID = void*;
using LPCVOID = const void*;
using LPDWORD = DWORD*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPBYTE = BYTE*;
using HANDLE = void*;
using HGLOBAL = void*;
using HFILE = int;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using LRESULT = LONG_PTR;
using INT_PTR = std::intptr_t;
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;
using HWND = struct HWND__*;
using HICON = struct HICON__*;
using LPHICON = HICON*;
using HKEY = struct HKEY__*;
using PHKEY = HKEY*;
using REGSAM = DWORD;
using LSTATUS = LONG;

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1)))
inline constexpr BOOL TRUE = 1, FALSE = 0;
inline constexpr DWORD MAXDWORD = 0xFFFFFFFF, INFINITE = 0xFFFFFFFF;
inline constexpr DWORD DLL_PROCESS_DETACH = 0, DLL_PROCESS_ATTACH = 1, DLL_THREAD_ATTACH = 2, DLL_THREAD_DETACH = 3;

// --- errors
inline constexpr LONG ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2, ERROR_PATH_NOT_FOUND = 3, ERROR_ACCESS_DENIED = 5,
                       ERROR_INVALID_HANDLE = 6, ERROR_NOT_ENOUGH_MEMORY = 8, ERROR_INVALID_PARAMETER = 87,
                       ERROR_INVALID_NAME = 123, ERROR_ALREADY_EXISTS = 183, ERROR_MORE_DATA = 234,
                       ERROR_NO_MORE_ITEMS = 259, ERROR_NOT_OWNER = 288, ERROR_OPERATION_ABORTED = 995,
                       ERROR_IO_INCOMPLETE = 996, ERROR_IO_PENDING = 997, ERROR_KEY_DELETED = 1018,
                       ERROR_IO_DEVICE = 1117, ERROR_IRQ_BUSY = 1119;
DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD error);

// --- waitable objects and threads
struct SECURITY_ATTRIBUTES;
struct SYSTEMTIME {
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};
inline constexpr DWORD WAIT_OBJECT_0 = 0, WAIT_ABANDONED = 128, WAIT_TIMEOUT = 258, WAIT_FAILED = 0xFFFFFFFF;
using LPTHREAD_START_ROUTINE = DWORD(WINAPI*)(LPVOID);
HANDLE WINAPI CreateMutexA(SECURITY_ATTRIBUTES*, BOOL initialOwner, LPCSTR name);
BOOL WINAPI ReleaseMutex(HANDLE mutex);
HANDLE WINAPI CreateEventA(SECURITY_ATTRIBUTES*, BOOL manualReset, BOOL initialState, LPCSTR name);
BOOL WINAPI SetEvent(HANDLE event);
HANDLE WINAPI CreateThread(SECURITY_ATTRIBUTES*, SIZE_T stack, LPTHREAD_START_ROUTINE start, LPVOID argument,
                           DWORD flags, DWORD* threadID);
DWORD WINAPI WaitForSingleObject(HANDLE object, DWORD milliseconds);
BOOL WINAPI CloseHandle(HANDLE object);
DWORD WINAPI GetCurrentThreadId();
DWORD WINAPI timeGetTime();

// --- messages and timers
inline constexpr UINT WM_QUIT = 0x0012, WM_TIMER = 0x0113;
struct POINT {
    LONG x, y;
};
struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
};
using TIMERPROC = void(CALLBACK*)(HWND, UINT, UINT_PTR, DWORD);
BOOL WINAPI GetMessageA(MSG* message, HWND window, UINT first, UINT last);
BOOL WINAPI TranslateMessage(const MSG* message);
LRESULT WINAPI DispatchMessageA(const MSG* message);
BOOL WINAPI PostThreadMessageA(DWORD threadID, UINT message, WPARAM wParam, LPARAM lParam);
UINT_PTR WINAPI SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC procedure);
BOOL WINAPI KillTimer(HWND window, UINT_PTR id);
inline constexpr UINT PM_REMOVE = 1;
inline constexpr DWORD QS_ALLINPUT = 0x04FF, MWMO_INPUTAVAILABLE = 4;
BOOL WINAPI PeekMessageA(MSG* message, HWND window, UINT first, UINT last, UINT remove);
void WINAPI PostQuitMessage(int code);
DWORD WINAPI MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* objects, DWORD milliseconds, DWORD mask,
                                         DWORD flags);

// --- message boxes
inline constexpr UINT MB_OK = 0, MB_ICONHAND = 0x10, MB_SYSTEMMODAL = 0x1000, MB_TASKMODAL = 0x2000,
                      MB_DEFAULT_DESKTOP_ONLY = 0x20000;
inline constexpr int IDOK = 1, IDCANCEL = 2, IDHELP = 9, IDTIMEOUT = 32000;
int WINAPI MessageBoxA(HWND owner, LPCSTR text, LPCSTR caption, UINT style);
BOOL WINAPI MessageBeep(UINT sound);
HWND WINAPI GetActiveWindow();
HWND WINAPI GetForegroundWindow();

// --- window stations, and the sessions of users beside the one that a service runs in
using HWINSTA = struct HWINSTA__*;
struct USEROBJECTFLAGS {
    BOOL fInherit, fReserved;
    DWORD dwFlags;
};
inline constexpr int UOI_FLAGS = 1;
inline constexpr DWORD WSF_VISIBLE = 1;
HWINSTA WINAPI GetProcessWindowStation();
BOOL WINAPI GetUserObjectInformationA(HANDLE object, int index, LPVOID information, DWORD size, DWORD* needed);
#define WTS_CURRENT_SERVER_HANDLE (static_cast<HANDLE>(nullptr))
enum WTS_INFO_CLASS { WTSUserName = 5 };
DWORD WINAPI WTSGetActiveConsoleSessionId();
enum WTS_CONNECTSTATE_CLASS { WTSActive, WTSDisconnected = 4 };
struct WTS_SESSION_INFOW {
    DWORD SessionId;
    LPWSTR pWinStationName;
    WTS_CONNECTSTATE_CLASS State;
};
BOOL WINAPI WTSEnumerateSessionsW(HANDLE server, DWORD reserved, DWORD version, WTS_SESSION_INFOW** sessions,
                                  DWORD* count);
BOOL WINAPI WTSQuerySessionInformationW(HANDLE server, DWORD session, WTS_INFO_CLASS kind, LPWSTR* value, DWORD* bytes);
void WINAPI WTSFreeMemory(LPVOID memory);
BOOL WINAPI WTSSendMessageW(HANDLE server, DWORD session, LPWSTR title, DWORD titleBytes, LPWSTR text, DWORD textBytes,
                            DWORD style, DWORD seconds, DWORD* response, BOOL wait);

// --- libraries
using FARPROC = std::intptr_t(WINAPI*)();
inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_PIN = 1, GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS = 4;
HMODULE WINAPI LoadLibraryA(LPCSTR name);
FARPROC WINAPI GetProcAddress(HMODULE library, LPCSTR name);
BOOL WINAPI GetModuleHandleExA(DWORD flags, LPCSTR address, HMODULE* library);

// --- the event log
inline constexpr WORD EVENTLOG_ERROR_TYPE = 1, EVENTLOG_WARNING_TYPE = 2, EVENTLOG_INFORMATION_TYPE = 4;
HANDLE WINAPI RegisterEventSourceA(LPCSTR server, LPCSTR source);
BOOL WINAPI ReportEventA(HANDLE log, WORD type, WORD category, DWORD event, LPVOID user, WORD textCount, DWORD dataSize,
                         LPCSTR* texts, LPVOID data);
BOOL WINAPI DeregisterEventSource(HANDLE log);

// --- dialogs
inline constexpr UINT WM_SETTEXT = 0x000C, EM_LIMITTEXT = 0x00C5, BM_GETCHECK = 0x00F0, BM_SETCHECK = 0x00F1,
                      WM_INITDIALOG = 0x0110, WM_COMMAND = 0x0111, CB_ADDSTRING = 0x0143, CB_SETCURSEL = 0x014E;
inline constexpr WPARAM BST_UNCHECKED = 0, BST_CHECKED = 1;
inline constexpr UINT HELP_CONTEXT = 1, HELP_INDEX = 3;
using DLGPROC = INT_PTR(CALLBACK*)(HWND, UINT, WPARAM, LPARAM);
constexpr WORD LOWORD(DWORD_PTR value) {
    return static_cast<WORD>(value & 0xFFFF);
}
inline LPCSTR MAKEINTRESOURCEA(int id) {
    return reinterpret_cast<LPCSTR>(static_cast<std::uintptr_t>(static_cast<WORD>(id)));
}
INT_PTR WINAPI DialogBoxParamA(HINSTANCE instance, LPCSTR resource, HWND owner, DLGPROC procedure, LPARAM parameter);
BOOL WINAPI EndDialog(HWND dialog, INT_PTR result);
HWND WINAPI GetDlgItem(HWND dialog, int id);
UINT WINAPI GetDlgItemTextA(HWND dialog, int id, LPSTR text, int size);
LRESULT WINAPI SendDlgItemMessageA(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam);
BOOL WINAPI EnableWindow(HWND window, BOOL enable);
BOOL WINAPI WinHelpA(HWND window, LPCSTR file, UINT command, ULONG_PTR data);

// --- serial ports
inline constexpr DWORD GENERIC_READ = 0x80000000, GENERIC_WRITE = 0x40000000, OPEN_EXISTING = 3,
                       FILE_FLAG_OVERLAPPED = 0x40000000;
inline constexpr BYTE NOPARITY = 0, ONESTOPBIT = 0, TWOSTOPBITS = 2;
inline constexpr DWORD DTR_CONTROL_DISABLE = 0, RTS_CONTROL_DISABLE = 0;
inline constexpr DWORD SETRTS = 3, CLRRTS = 4;
inline constexpr DWORD PURGE_TXABORT = 1, PURGE_RXABORT = 2, PURGE_TXCLEAR = 4, PURGE_RXCLEAR = 8;
inline constexpr DWORD CE_FRAME = 8, CE_BREAK = 16;
struct DCB {
    DWORD DCBlength;
    DWORD BaudRate;
    DWORD fBinary : 1, fParity : 1, fOutxCtsFlow : 1, fOutxDsrFlow : 1, fDtrControl : 2, fDsrSensitivity : 1,
        fTXContinueOnXoff : 1, fOutX : 1, fInX : 1, fErrorChar : 1, fNull : 1, fRtsControl : 2, fAbortOnError : 1,
        fDummy2 : 17;
    WORD wReserved, XonLim, XoffLim;
    BYTE ByteSize, Parity, StopBits;
    char XonChar, XoffChar, ErrorChar, EofChar, EvtChar;
    WORD wReserved1;
};
struct COMMTIMEOUTS {
    DWORD ReadIntervalTimeout, ReadTotalTimeoutMultiplier, ReadTotalTimeoutConstant, WriteTotalTimeoutMultiplier,
        WriteTotalTimeoutConstant;
};
struct COMSTAT {
    DWORD fCtsHold : 1, fDsrHold : 1, fRlsdHold : 1, fXoffHold : 1, fXoffSent : 1, fEof : 1, fTxim : 1, fReserved : 25;
    DWORD cbInQue, cbOutQue;
};
struct OVERLAPPED {
    ULONG_PTR Internal, InternalHigh;
    DWORD Offset, OffsetHigh;
    HANDLE hEvent;
};
HANDLE WINAPI CreateFileA(LPCSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES*, DWORD disposition, DWORD flags,
                          HANDLE);
BOOL WINAPI GetCommState(HANDLE port, DCB* dcb);
BOOL WINAPI SetCommState(HANDLE port, DCB* dcb);
BOOL WINAPI GetCommTimeouts(HANDLE port, COMMTIMEOUTS* timeouts);
BOOL WINAPI SetCommTimeouts(HANDLE port, COMMTIMEOUTS* timeouts);
BOOL WINAPI EscapeCommFunction(HANDLE port, DWORD function);
BOOL WINAPI ClearCommError(HANDLE port, DWORD* errors, COMSTAT* status);
BOOL WINAPI ReadFile(HANDLE port, LPVOID buffer, DWORD wanted, DWORD* got, OVERLAPPED* overlapped);
BOOL WINAPI WriteFile(HANDLE port, LPCVOID bytes, DWORD count, DWORD* written, OVERLAPPED* overlapped);
BOOL WINAPI GetOverlappedResult(HANDLE port, OVERLAPPED* overlapped, DWORD* count, BOOL wait);
BOOL WINAPI CancelIoEx(HANDLE port, OVERLAPPED* overlapped);
BOOL WINAPI PurgeComm(HANDLE port, DWORD flags);
BOOL WINAPI FlushFileBuffers(HANDLE port);

// --- registry and private profiles
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(0x80000002)))
inline constexpr REGSAM KEY_READ = 0x20019, KEY_ALL_ACCESS = 0xF003F;
inline constexpr DWORD REG_SZ = 1, REG_DWORD = 4, REG_OPTION_NON_VOLATILE = 0;
struct FILETIME;
LONG WINAPI RegOpenKeyExA(HKEY parent, LPCSTR name, DWORD options, REGSAM access, PHKEY key);
LONG WINAPI RegCreateKeyExA(HKEY parent, LPCSTR name, DWORD, LPSTR keyClass, DWORD options, REGSAM access,
                            SECURITY_ATTRIBUTES*, PHKEY key, DWORD* disposition);
LONG WINAPI RegQueryValueExA(HKEY key, LPCSTR name, DWORD*, DWORD* type, BYTE* data, DWORD* size);
LONG WINAPI RegSetValueExA(HKEY key, LPCSTR name, DWORD, DWORD type, const BYTE* data, DWORD size);
LONG WINAPI RegDeleteKeyA(HKEY parent, LPCSTR name);
LONG WINAPI RegEnumKeyA(HKEY key, DWORD index, LPSTR name, DWORD size);
LONG WINAPI RegEnumValueA(HKEY key, DWORD index, LPSTR name, DWORD* nameSize, DWORD*, DWORD* type, BYTE* data,
                          DWORD* size);
LONG WINAPI RegCloseKey(HKEY key);
BOOL WINAPI WritePrivateProfileStringA(LPCSTR section, LPCSTR name, LPCSTR text, LPCSTR file);

// --- directories and files. Paths are Windows' ("C:\\WINDOWS\\..."); the layer maps them below its root.
UINT WINAPI GetWindowsDirectoryA(LPSTR buffer, UINT size);
UINT WINAPI GetSystemDirectoryA(LPSTR buffer, UINT size);
int _mkdir(const char* path);
std::FILE* FileOpen(const char* path, const char* mode);
int FileRename(const char* from, const char* to);
int FileRemove(const char* path);
inline constexpr HFILE HFILE_ERROR = -1;
inline constexpr int OF_READ = 0, OF_WRITE = 1, OF_READWRITE = 2;
inline constexpr int FILE_BEGIN = 0;
HFILE WINAPI _lopen(LPCSTR path, int mode);
HFILE WINAPI _lcreat(LPCSTR path, int attributes);
UINT WINAPI _lread(HFILE file, LPVOID buffer, UINT count);
UINT WINAPI _lwrite(HFILE file, LPCSTR bytes, UINT count);
LONG WINAPI _llseek(HFILE file, LONG offset, int origin);
HFILE WINAPI _lclose(HFILE file);

// --- text; the ANSI code page is Windows-1252
inline constexpr UINT CP_ACP = 0;
inline constexpr DWORD MB_PRECOMPOSED = 1, WC_COMPOSITECHECK = 0x200, WC_DISCARDNS = 0x10;
int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int bytes, LPWSTR wide, int room);
int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int characters, LPSTR text, int room,
                               LPCSTR substitute, BOOL* substituted);

// --- memory
inline constexpr UINT GMEM_MOVEABLE = 2, GMEM_ZEROINIT = 0x40;
HGLOBAL WINAPI GlobalAlloc(UINT flags, SIZE_T bytes);
LPVOID WINAPI GlobalLock(HGLOBAL block);
BOOL WINAPI GlobalUnlock(HGLOBAL block);
HGLOBAL WINAPI GlobalFree(HGLOBAL block);

// The library's entry point; on these systems the layer calls it when the library is loaded and unloaded.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID);
