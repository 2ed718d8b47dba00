// What the configuration dialogs and the provider say to each other. The dialogs run in the process of the application
// that asked for them, the provider in the telephony service; TAPI carries one buffer from the dialogs to
// TSPI_providerGenericDialogData, which answers in the same buffer. Numbers are little-endian.
#pragma once

#include "provider/state.h"

#include <cstddef>
#include <cstdint>

enum ExchangeCode : std::uint8_t {
    UI_SPI_EI_TRACE,           // a text for the provider's trace
    UI_SPI_EI_CFGDLG_GET,      // ConfigData, asked for
    UI_SPI_EI_CFGDLG_SET,      // ConfigData, of which the port counts
    UI_SPI_EI_CFGDLG_ADV_GET,  // AdvancedData, asked for
    UI_SPI_EI_CFGDLG_ADV_SET,  // AdvancedData, to be taken
};

// Every buffer starts with this.
struct ExchangeHeader {
    ExchangeCode Code;
    std::uint8_t Size;  // of what follows the header; of a text, its terminator included
    std::uint8_t Unused[2];
};

struct ConfigData {
    DWORD LineDeviceID;
    DWORD PhoneDeviceID;
    char PortName[SETTING_SIZE];
    WCHAR LineName[SETTING_SIZE];
    char Version[SETTING_SIZE];  // of the provider
    std::uint8_t AdapterMajor;   // version of the card; both 0: not known yet
    std::uint8_t AdapterMinor;
    std::uint8_t TAPI_OMNA_Ver;
    std::uint8_t ProtocolLevel;
};

struct AdvancedData {
    std::int32_t MaxDigitLocal;
    std::int32_t EnquiryCallMode;
    std::int32_t ExtPrefixDisp;
    char ExtPrefix[20];
};

// Both sides may be built by different compilers: the offsets are the format.
static_assert(sizeof(ExchangeHeader) == 4 && sizeof(ConfigData) == 172 && sizeof(AdvancedData) == 32);
static_assert(offsetof(ConfigData, PhoneDeviceID) == 4 && offsetof(ConfigData, PortName) == 8 &&
              offsetof(ConfigData, LineName) == 48 && offsetof(ConfigData, Version) == 128 &&
              offsetof(ConfigData, AdapterMajor) == 168 && offsetof(ConfigData, AdapterMinor) == 169 &&
              offsetof(ConfigData, TAPI_OMNA_Ver) == 170);
static_assert(offsetof(ExchangeHeader, Size) == 1 && offsetof(AdvancedData, EnquiryCallMode) == 4 &&
              offsetof(AdvancedData, ExtPrefixDisp) == 8 && offsetof(AdvancedData, ExtPrefix) == 12);
