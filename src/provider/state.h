// ProviderState: the one process-wide record of the provider. It is plain and trivially zeroable: ProviderInitCommon
// zeroes it as a whole at provider start and at every open after the first. The device handles that TAPI gets (hdLine,
// hdPhone) are its address. Guarded by the line mutex.
#pragma once

#include "platform/platform.h"

#include <cstdint>

constexpr std::size_t NUMBER_SIZE = 80;   // numbers and names, terminator included
constexpr std::size_t SETTING_SIZE = 40;  // port, speed, line address, terminator included

// Values of DeviceState.
enum DeviceStateValue : std::uint8_t {
    DEVICE_OUT_OF_SERVICE = 0,  // the port or the link failed
    DEVICE_STARTING = 1,
    DEVICE_IN_SERVICE = 2,  // the set's configuration has been received
};

constexpr std::uint8_t DEV_TYPE_KB2 = 3;  // Dev_type of a 7120 set

constexpr std::uint8_t FWD_NOT_FORWARDED = 4;  // FwdStatus: 0 to 3 name a forwarding, 4 none

struct ProviderStateRecord {
    // identifiers and callbacks given by TAPI
    DWORD LineDeviceID;
    DWORD PhoneDeviceID;
    HPROVIDER ProviderHandle;
    DWORD PermanentProviderID;
    ASYNC_COMPLETION CompletionProc;  // TAPI's completion callback: SendCompletion and CompleteRequest
    HTAPILINE htLine;
    LINEEVENT LineEventProc;  // null: line not open
    HTAPIPHONE htPhone;
    PHONEEVENT PhoneEventProc;  // null: phone not open
    HTAPICALL htConference;     // TAPI's handle of the conference call, cref 30

    // the asynchronous request in progress
    DRV_REQUESTID PendingRequestID;  // 0: none
    std::int32_t RequestCref;
    std::int32_t ConsultCref;
    char ForwardDestination[NUMBER_SIZE];
    char PickupAddress[NUMBER_SIZE];
    LPVARSTRING DisplayBuffer;          // null but while phoneGetDisplay runs
    const PHONEBUTTONINFO* ButtonInfo;  // null but while a button press runs
    DWORD ButtonId;                     // its low 8 bits are pressed

    // settings that TAPI made
    DWORD MediaMode;
    LINEDIALPARAMS DialParams;  // milliseconds
    DWORD LineStates;           // status message filters: kept, not consulted
    DWORD AddressStates;
    DWORD DefaultMediaDetection;  // kept, not consulted
    DWORD AppSpecific;            // one value for all calls

    // the set and the link, as last reported
    std::uint8_t DeviceState;    // DeviceStateValue
    std::uint8_t ProtocolLevel;  // always 2
    std::uint8_t FwdStatus;      // LINEFORWARDMODE_ by number: 0 UNCOND, 1 BUSY, 2 NOANSW, 3 BUSYNA, 4 none
    std::uint8_t TAPI_OMNA_Ver;  // version of the CTI message set in the PBX's DEVICE_ASSOC_ACK
    std::uint8_t PbxLanguage;    // 1 French, 2 English, 4 German, 5 Spanish, 6 Italian
    std::uint8_t Dev_type;       // DEV_TYPE_KB2, or another set
    std::uint8_t AdapterMajor;   // version of the card, from its Config Response
    std::uint8_t AdapterMinor;

    // strings of the line
    char PortName[SETTING_SIZE];     // "COM1" to "COM4", or "NONE"
    char SpeedText[SETTING_SIZE];    // baud rate in decimal
    char LineAddress[SETTING_SIZE];  // the set's directory number at provider start
    WCHAR LineName[SETTING_SIZE];
};

extern ProviderStateRecord ProviderState;
