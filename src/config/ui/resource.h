// Identifiers of the resources, for the resource compiler, the dialog procedures and the layer that runs them without a
// screen. The help files of the field know them by these numbers.
#pragma once

#define ZT_VERSION 3, 1, 5, 0
#define ZT_VERSION_TEXT "3.1.5"

#define IDD_MAIN 101
#define IDD_ADVANCED 102

#define IDC_NONE -1  // controls that no code asks for

// main dialog; its OK, Cancel and Help have the system's own numbers (1, 2, 9)
#define IDC_PORT 1000
#define IDC_TERMINAL 1001
#define IDC_LINE_NAME 1002
#define IDC_LANGUAGE 1026
#define IDC_ADAPTER_VERSION 1029
#define IDC_ADVANCED 1041
#define IDC_TSPI_VERSION 1401

// advanced dialog
#define IDC_DEFAULTS 1020
#define IDC_PREFIX_DISPLAYED 1042
#define IDC_PREFIX 1043
#define IDC_DIGITS 1044
#define IDC_PBX_MODE 1045
#define IDC_KEY_SYSTEM_MODE 1046
#define IDC_ADVANCED_HELP 1049
