// Settings: every one a string value in the registry under HKEY_LOCAL_MACHINE\SOFTWARE\Corvane\TSpi_6200, one subkey a
// section. A few are mirrored into "zt62cfg.ini", which is only written, never read. Failures are traced at level 64
// and never stop the caller: a read gives its default, a write gives 0.
#pragma once

#include "provider/state.h"

#include <array>
#include <cstdint>
#include <span>

// Section names; the value names stand at their readers and writers.
inline constexpr const char* SECTION_PROVIDER = "Provider";
inline constexpr const char* SECTION_SETCONFIG = "SetConfig";
inline constexpr const char* SECTION_PREFIX = "Prefix";
inline constexpr const char* SECTION_SET_DES = "Set_Des";
inline constexpr const char* SECTION_SOFTKEY_DES = "SoftKey_Des";
inline constexpr const char* SECTION_STRING_DES = "String_Des";
inline constexpr const char* SECTION_SERVICE_CODE = "Service_Code";
inline constexpr const char* SECTION_DYNAMIC = "Dynamic_Set_Conf";
inline constexpr const char* SECTION_SUBDEVICE_TEST = "Subdevice_Test";
inline constexpr const char* SECTION_DEBUG_MODE = "Debug_Mode";
inline constexpr const char* SECTION_ZT_INFO = "ZT_Info";
inline constexpr const char* INI_FILE = "zt62cfg.ini";

constexpr int MAX_TA_STRING = 2;  // highest identifier of each kind of text that the PBX sends
constexpr int MAX_TA_SK = 6;
constexpr int MAX_TA_CODE = 6;

// The value names, in the order that also numbers the entries the PBX sends.
inline constexpr std::array<const char*, MAX_TA_SK + 1> SoftKeyNames{
    "SecondCall", "EndSecondCall", "Swap", "Conference", "FreqVocale", "CancelFreqVocale", "Transfer"};
inline constexpr std::array<const char*, MAX_TA_STRING + 1> StringNames{"HangUp", "CancelSecondCall", "Dial"};
inline constexpr std::array<const char*, MAX_TA_CODE + 1> CodeNames{
    "ForwardingImm",    "ForwardingBusy", "ForwardingNoRep", "ForwadingBusyNoRep",
    "CancelForwarding", "DTMF",           "CallPickUp"};
enum SoftKeyIndex {
    SK_SECOND_CALL,
    SK_END_SECOND_CALL,
    SK_SWAP,
    SK_CONFERENCE,
    SK_FREQ_VOCALE,
    SK_CANCEL_FREQ_VOCALE,
    SK_TRANSFER
};
enum CodeIndex {
    CODE_FORWARDING_IMM,
    CODE_FORWARDING_BUSY,
    CODE_FORWARDING_NO_REP,
    CODE_FORWARDING_BUSY_NO_REP,
    CODE_CANCEL_FORWARDING,
    CODE_DTMF,
    CODE_CALL_PICKUP
};
enum StringIndex { STRING_HANG_UP, STRING_CANCEL_SECOND_CALL, STRING_DIAL };

inline constexpr struct { int Least, Most, Default; } MAX_DIGIT_LOCAL = {2, 19, 8};

constexpr std::size_t MCDU_SIZE = 25;  // the set's directory number, terminator included: what the store gives back

// Configuration held in memory.
struct SettingsRecord {
    char SoftKeyLabels[MAX_TA_SK + 1][7];
    char DisplayStrings[MAX_TA_STRING + 1][32];
    char ServiceCodes[MAX_TA_CODE + 1][5];
    char SetMCDU[MCDU_SIZE];  // the set's own directory number
    char ExtPrefix[20];       // outside-call prefix
    int ExtPrefixDisp;        // 1: the prefix is shown before a caller's number
    int MaxDigitLocal;        // longest internal number, MAX_DIGIT_LOCAL.Least to .Most
    int EnquiryCallMode;      // 0: a second call stands on another key; 1: on the same key
    char PublicOperator[20];
    int SupervService;  // 1: supervision keys are followed
};
extern SettingsRecord Settings;

// The state in which the provider starts, from the result of the last dynamic configuration in the registry.
struct DynamicConfigRecord {
    int LastActionState = 0;    // 0 no dynamic configuration ever, 1 the last one succeeded, 2 it did not
    int WaitDynamicConfig = 1;  // 1: no calls before the dynamic configuration arrives
    int StaticConfig = 0;       // 1: the stored configuration may be used at once
    int WaitTraceMode = 0;      // 1: the tick must wait for the card's trace headers
};
extern DynamicConfigRecord DynamicConfig;

// What became of a read. Empty, too long and of another type count as missing; failed says nothing about the value.
enum class Reading { Found, Missing, Failed };
// Reads a value into `buffer`, which holds an empty text unless it is found.
Reading RegRead(const char* section, const char* name, std::span<char> buffer);
// Reads a value into `buffer`; when it is missing, empty or too long, the buffer holds the default text. Gives the
// length of what the buffer holds.
int RegReadSetting(const char* section, const char* name, const char* defaultText, std::span<char> buffer);
// Writes a value, creating keys as needed. Gives 1 or 0.
int RegWriteSetting(const char* section, const char* name, const char* text);
// Deletes a section with its values; one that does not exist is no error. Gives 1 or 0.
int RegDeleteSection(const char* section);
// Opens a section for reading, as RegReadSetting does; null (traced) when it cannot be opened. The caller closes it.
HKEY RegOpenSection(const char* section);

// Loads the strings of the line into ProviderState and Settings.
void LoadIniStrings(DWORD permanentProviderID);
// What a PBX of version 1 does not tell, read into Settings with the defaults, which are written back where a value is
// missing or unusable (not where it could not be read). The first tells whether the store had a prefix.
bool ReadExtPrefix();
void ReadExtPrefixDisp();
void ReadEnquiryCallMode();
void ReadMaxDigitLocal();
// The current telephony location's "OutsideAccess" (the digits for an outside line), "0" when there is none.
void GetOutsideAccess(std::span<char, 20> buffer);

// Reads the mask from the registry (Debug_Mode\DebugOutput); writes "0" back when there is none. Gives the mask.
std::int32_t TraceInit(HINSTANCE instance);
