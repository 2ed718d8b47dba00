// What the tests of the provider's rooms stand on: a clean process with the line and the phone "open" for event capture,
// a mask that traces everything, and no serial thread. Events and trace lines come back as text, so that a test can
// compare whole sequences.
#pragma once

#include "platform/control.h"
#include "platform/copy_text.h"
#include "platform/platform.h"
#include "tracking/model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

// Windows-1252 bytes as UTF-8.
std::string Utf8(std::string_view cp1252);

std::string Joined(const std::vector<std::string>& texts, const char* between);

// Puts every record of the provider back to its state at load.
void ResetProvider();

// What TAPI's callbacks have been given since the last call, oldest first, one text each:
//   "NEWCALL 0"                     LINE_NEWCALL, dwParam1
//   "STATE 0 DISCONNECTED 1"        LINE_CALLSTATE: cref, state, dwParam2 when not 0
//   "INFO 0 CALLERID|CALLEDID"      LINE_CALLINFO
//   "LINEDEV CONNECTED|INSERVICE"   LINE_LINEDEVSTATE; " (no line)" behind it when sent without line handle
//   "ADDRESS 0 40 to 4720"          LINE_ADDRESSSTATE, both parameters, hexadecimal; where calls go at that moment
//   "CLOSE"                         LINE_CLOSE
//   "PHONE LAMP 21"                 PHONE_STATE: state, dwParam2 when not 0
//   "REPLY 7 0"                     completion: request identifier, result (hexadecimal when negative)
std::vector<std::string> Events();
// The same without PHONE_STATE.
std::vector<std::string> LineEvents();

// A call state as Events() names it.
std::string StateName(DWORD state);

// Handles that the capture gives: TAPI's line 0x11, phone 0x22, call 0x100 + cref.
void OpenForCapture();

// Whether callbacks have to come under the line mutex: where the provider is driven through its entry points and threads,
// not step by step. ResetProvider() clears it.
extern bool CallbacksUnderTheMutex;

// Call states that TAPI may be told before they are stored: a hold that the PBX reports, the end of a call that was put
// off or went with the contact. ResetProvider() clears it.
extern DWORD ToldFirst;

// Trace lines written since the last call, without clock, as UTF-8; header lines left out.
std::vector<std::string> TraceLines();
// Closes and removes the trace's file; the next line begins it anew.
void RemoveTrace();

// Events at the places in the trace where it says that they were sent; lines that begin with one of `skipped` left out;
// " | " between them.
std::string Interleaved(const std::vector<std::string>& events, const std::vector<std::string>& lines,
                        std::span<const char* const> skipped);

// What stands in a file, named as Windows does.
std::string FileText(const std::string& windowsPath);

// The registry's text of a setting of ours, "(none)" when it is missing.
std::string Setting(const char* section, const char* name);
void SetSetting(const char* section, const char* name, const char* text);

class OnTheLine : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A tracked key of a kind with a label; multi-line keys and the others enter their lists.
    void Key(int key, TouchKind kind, const char* label = "4711");
    // Writes a text into a display line as the set would (the rest blank) and has it interpreted as a whole update.
    void Display(int line, std::string_view text);
    void Icon(int key, int icon);
    // A call already standing on a key in a slot, with a direction flag set.
    int Call(int key, int slot, DWORD state, bool inbound = true);
};
