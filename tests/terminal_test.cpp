// Terminal traffic: what each command of the PBX and each event of the set does to display, lamps, icons and digits.
#include "tracking/terminal.h"

#include "config/char_patterns.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "support/wire.h"

#include <cstring>

namespace {

class Terminal : public OnTheWire {
protected:
    static void Command(std::initializer_list<int> bytes, int moduleMode = 0, int address = 255) {
        DecodeSuperMessage(ToBytes(bytes), moduleMode, address);
    }
    static void Event(std::initializer_list<int> bytes, int moduleMode = 0, int address = 255) {
        DecodeTerminalEvent(ToBytes(bytes), moduleMode, address);
    }
    static std::string Line(int number) {
        const std::string text = ::Display.Lines[number];
        EXPECT_EQ(text.size(), 40u);
        return text.substr(0, text.find_last_not_of(' ') + 1);
    }
    // Trace lines that contain a text, " | " between them.
    static std::string Traced(const std::string& part) {
        std::vector<std::string> lines = TraceLines();
        std::erase_if(lines, [&](const std::string& line) { return line.find(part) == std::string::npos; });
        return Joined(lines, " | ");
    }
};

// --- icons and lamps -----------------------------------------------------------------------------------------------

TEST_F(Terminal, AnIconValueIsReducedToItsCode) {
    const std::pair<std::string, std::vector<int>> cases[] = {{"ACTIV_ICON", {0x2020, 0x7777}},
                                                              {"HOLD_ICON", {0x2828, 0x7D7F}},
                                                              {"INCOM_ICON", {0x2800, 0xA000, 0xA020, 0xA0A0, 0xF377}},
                                                              {"IDLE_ICON", {0x0000, 0x0303}},
                                                              {"RESERVED_ICON", {0x0004, 0x5000}},
                                                              {"", {0x0808, 0x8080, 0xA8A8}}};
    Key(5, TOUCH_MULTI);
    for (const auto& [name, values] : cases)
        for (const int value : values) {
            TouchTable[5].icon = 0;  // no step of the machine is defined from here: it only traces
            TraceLines();
            Command({0x47, 5, value & 0xFF, value >> 8});
            EXPECT_EQ(Traced("Multi Icone"), name.empty() ? "" : "Multi Icone 5 Action:  => " + name) << value;
            EXPECT_EQ(TouchTable[5].rawIcon, static_cast<unsigned>(value));
            EXPECT_THAT(Events(), testing::Contains("PHONE LAMP 25"));
        }
}

TEST_F(Terminal, AModuleIconGoesToTheModulesKey) {
    AomTable[0] = {true, 2, false, 40};
    AomTable[1] = {false, 3, false, 60};
    AomTable[2] = {true, 4, false, 250};
    Command({0x47, 3, 0x20, 0x20}, 1, 3);   // an entry that is not present
    Command({0x47, 60, 0x20, 0x20}, 1, 2);  // key 100
    Command({0x47, 89, 0x20, 0x20});
    EXPECT_THAT(Events(), IsEmpty());
    Command({0x47, 9, 0x20, 0x20}, 1, 4);        // key numbers are one byte: 3
    Command({0x02, 0xFA, 0x47, 4, 0x20, 0x20});  // prefix of address 2
    Command({0x02, 5, 0x47, 4, 0x20, 0x20});
    Command({0x47, 88, 0x01, 0});
    EXPECT_THAT(Events(), ElementsAre("PHONE LAMP 23", "PHONE LAMP 64", "PHONE LAMP 108"));
    EXPECT_EQ(Traced("VTA: "),
              "VTA: AOM ICON: 100 | VTA: AOM ICON: 3 | VTA: Subdevice adr (250) Command | VTA: AOM ICON: 44"
              " | VTA: Subdevice adr (5) Command |  VTA: ICON: 58, Value: 1 IDLE_ICON");
    Command({0x46});  // off, for those that were lit
    EXPECT_THAT(Events(), ElementsAre("PHONE LAMP 23", "PHONE LAMP 64", "PHONE LAMP 108"));
    EXPECT_EQ(TouchTable[44].rawIcon, 2u);
    EXPECT_EQ(TouchTable[43].rawIcon, 0u);
    Events();
    Command({0x0B, 6, 0x02, 2, 0x47, 4, 0x20, 0x20, 4, 0x47, 4, 0x20, 0x20});
    EXPECT_THAT(Events(), ElementsAre("PHONE LAMP 64", "PHONE LAMP 24")) << "the prefix is its own item's";
}

TEST_F(Terminal, LampsTakeTheModesThatExist) {
    const std::pair<int, DWORD> cases[] = {{0, 2},    {1, 4}, {2, 4}, {3, 0x10}, {4, 0x20},
                                           {5, 0x20}, {6, 8}, {8, 8}, {255, 8}};
    for (const auto& [mode, lamp] : cases) {
        Command({0x21, mode, 19});
        EXPECT_EQ(::Display.Lamps[19], lamp) << mode;
        EXPECT_THAT(Events(), ElementsAre("PHONE LAMP 19"));
    }
    Command({0x21, 1, 4});
    Command({0x21, 1, 20});
    Command({0x21, 7, 0});
    EXPECT_THAT(Events(), ElementsAre("PHONE LAMP 4", "PHONE LAMP", "PHONE LAMP 4", "PHONE LAMP 19"));
    EXPECT_EQ(::Display.Lamps[19], 2u);
    EXPECT_EQ(::Display.Lamps[0], 0u);
}

// As the phone's queries would answer from within the event: the set's lamp, key 3's icon, line 0.
std::string Asked;
void CALLBACK AskBack(HTAPIPHONE, DWORD, DWORD_PTR state, DWORD_PTR lamp, DWORD_PTR) {
    Asked += " " + (state == PHONESTATE_DISPLAY
                        ? std::string(::Display.Lines[0], 2)
                        : std::to_string(lamp < 20 ? ::Display.Lamps[lamp] : TouchTable[lamp - 20].rawIcon));
}

TEST_F(Terminal, WhatHasChangedIsToldAfterItHasButForTheSetsLamps) {
    ProviderState.PhoneEventProc = AskBack;
    Command({0x21, 1, 19});
    Command({0x21, 3, 19});
    Command({0x21, 7, 0});
    Command({0x47, 3, 0x20, 0x20});
    Command({0x46});
    Command({0x27, 0, 0, 'A', 'B'});
    EXPECT_EQ(Asked, " 0 4 0 16 8224 2 AB");
}

TEST_F(Terminal, SmallCommandsReportTheirPartOfThePhone) {
    for (const auto& command : {ToBytes({0x29, 1}), ToBytes({0x29, 0}), ToBytes({0x29}), ToBytes({0xBB}),
                                ToBytes({0x3E}), ToBytes({0x48, 1}), ToBytes({0x7F})})
        DecodeSuperMessage(command, 0, 255);
    EXPECT_THAT(Events(), ElementsAre("PHONE HANDSETHOOK", "PHONE SPEAKERVOLUME", "PHONE RINGMODE"));
    Command({0x06});
    EXPECT_EQ(Port.Taken(), "04 26 1F 05 01 B1");
    for (const int period : {30, 160}) {
        Link.LinkIdleTicks = 9;
        Link.LinkPollPeriod = period;
        Command({0x2B});
        EXPECT_EQ(Link.LinkIdleTicks, period == 160 ? 0 : 9);
    }
    Command({0x36, 5, 1, 2, 3, 4, 5, 6, 7, 8, 6, 9, 9, 9, 9, 9, 9, 9, 9, 7, 1, 1, 1, 1, 1, 1, 1});
    EXPECT_EQ(CharPatternTable[0].rows[7], 8);
    EXPECT_EQ(CharPatternTable[1].code, 6);
    EXPECT_EQ(CharPatternTable[2].character, 0) << "half a pattern is none";
}

// --- display -------------------------------------------------------------------------------------------------------

TEST_F(Terminal, DisplayWritesFollowTheirModeAndCompleteOnesAreReported) {
    Command({0x27, 0, 0, '0', '1', '2', '3', '4', '5', '6', '7', '8', '9'});
    Command({0x27, 2, 99, 'A', 'B'});
    EXPECT_EQ(Line(0), "0123456789AB");
    Command({0x27, 1, 3, 'x'});
    Command({0x27, 2, 0, 'y'});
    Command({0x27, 3, 0, 'z'});
    EXPECT_EQ(Line(0), "012xy56789AB");
    EXPECT_EQ(Events().size(), 4u);
    Command({0xA8, 0x80, 8, 'S', 'W', 'A', 'P'});
    EXPECT_THAT(Events(), IsEmpty());
    EXPECT_EQ(Line(1), "        SWAP");
    Command({0x27, 4, 2, 'Q'});  // only the two low bits are the mode
    EXPECT_EQ(Line(0), "  Q");
    Command({0x26});
    EXPECT_EQ(Line(0) + Line(1), "");
    Command({0x27, 2, 0, 'R'});  // clearing leaves the cursor
    EXPECT_EQ(Line(0), "   R");
    Command({0x28, 0, 0});
    EXPECT_THAT(Events(), ElementsAre("PHONE DISPLAY", "PHONE DISPLAY", "PHONE DISPLAY"));
}

TEST_F(Terminal, WritesBeyondTheLineStoreNothingThere) {
    Command({0x27, 0, 38, 'A', 'B', 'C', 'D'});
    EXPECT_EQ(::Display.Cursors[0], 42);
    Command({0x27, 2, 0, 'E'});
    Command({0x27, 1, 255, 'F'});
    Command({0x27, 1, 40, 'G'});
    Command({0x27});
    Command({0x27, 0});
    EXPECT_EQ(Line(0), std::string(38, ' ') + "AB");
    for (int i = 0; i < 5000; ++i)  // no number of writes turns the cursor around
        DecodeSuperMessage(Join({ToBytes({0x28, 0x82, 0}), ByteList(251, 'x')}), 0, 255);
    EXPECT_GT(::Display.Cursors[1], 40);
}

// --- Super Messages ------------------------------------------------------------------------------------------------

TEST_F(Terminal, ASuperMessageIsWalkedItemByItemAndEndsWithWhatDoesNotFit) {
    TraceMask = 0;
    Command({0x0B, 4, 0x27, 0, 0, 'A', 0, 4, 0x27, 2, 0, 'B', 1, 0x3E});
    EXPECT_EQ(Line(0), "AB");
    EXPECT_THAT(Events(), ElementsAre("PHONE DISPLAY", "PHONE DISPLAY", "PHONE RINGMODE"));
    Command({0x0B, 1, 0x3E, 3, 0x27, 0, 1, 0x3E});
    Command({0x0B, 1, 0x3E, 5, 0x27, 0, 0});
    Command({0x0B, 255});
    EXPECT_THAT(Events(), ElementsAre("PHONE RINGMODE", "PHONE DISPLAY", "PHONE RINGMODE"));
    ByteList zeros(300, 0), nested = ToBytes({0x3E});
    zeros[0] = 0x0B;
    DecodeSuperMessage(zeros, 0, 255);
    for (int depth = 1; depth <= 9; ++depth) {
        nested = Join({ToBytes({0x0B, static_cast<int>(nested.size())}), nested});
        DecodeSuperMessage(nested, 0, 255);
        EXPECT_EQ(Events().size(), depth <= 8 ? 1u : 0u);
    }
    EXPECT_THAT(TraceLines(), ElementsAre("Bad ZT length in Super Message idx 7 data[idx] 62",
                                          "Bad ZT length in Super Message idx 3 data[idx] 5",
                                          "Bad ZT length in Super Message idx 1 data[idx] 255",
                                          "End Bad ZT length in Super Message idx 0 data[idx] 0",
                                          "VTA: Super Message nested too deep, len 3"));
}

// --- events of the set ---------------------------------------------------------------------------------------------

TEST_F(Terminal, DigitsOfTheSetAreCollected) {
    for (const int digit : {0, 9, 10, 11, 0x85, 12, 0x7F})
        Event({0x83, digit});
    EXPECT_STREQ(DialedNumber, "09*#5");
    for (int i = 0; i < 100; ++i)
        DigitKeyPushed(1);
    EXPECT_EQ(std::strlen(DialedNumber), NUMBER_SIZE - 1);
}

TEST_F(Terminal, KeysOfTheSetAndOfItsModulesReachTheirRoom) {
    AomTable[2] = {true, 6, false, 40};
    Key(5, TOUCH_SUPERV);
    Key(45, TOUCH_SUPERV);
    const int ringing = Call(5, 0, LINECALLSTATE_OFFERING), onModule = Call(45, 0, LINECALLSTATE_OFFERING);
    Event({0x20, 4});
    Event({0x20, 5}, 1, 1);   // no such module
    Event({0x20, 60}, 1, 6);  // key 100
    EXPECT_EQ(PickUpSupervCref, -1);
    Event({0xA0, 0x85});
    EXPECT_EQ(PickUpSupervCref, ringing);
    Event({0x20, 0x85}, 1, 6);  // its number is a whole byte in the trace, 7 bits for the key
    EXPECT_EQ(PickUpSupervCref, onModule);
    EXPECT_EQ(Traced("AOM key"), "VTA: AOM key pushed: 100 | VTA: AOM key pushed: 173");
    // A double call makes the soft keys count.
    Key(1, TOUCH_MULTI);
    const int held = Call(1, 0, LINECALLSTATE_ONHOLD), active = Call(1, 1, LINECALLSTATE_CONNECTED);
    Tracking.ActivCallTouch = 1;
    Tracking.DbCall = 1;
    for (const int code : {0, 28, 32, 33, 0x7F})
        Event({0x20, code});
    EXPECT_THAT(LineEvents(), IsEmpty());
    Event({0x20, 30});  // soft key 2: swap
    EXPECT_THAT(LineEvents(), ElementsAre("STATE " + std::to_string(active) + " ONHOLD",
                                          "STATE " + std::to_string(held) + " CONNECTED"));
}

}  // namespace
