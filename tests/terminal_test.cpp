// Terminal traffic: what each command of the PBX and each event of the set does to display, lamps, icons and digits.
#include "link/terminal.h"

#include "config/char_patterns.h"
#include "control/keys.h"
#include "link/fifo.h"
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
        EXPECT_EQ(::Display.Lines[number][DISPLAY_COLUMNS], 0);
        std::string text = ::Display.Lines[number];
        EXPECT_EQ(text.size(), 40u);
        return text.substr(0, text.find_last_not_of(' ') + 1);
    }
    // Trace lines that contain a text.
    static std::vector<std::string> Traced(const std::string& part) {
        std::vector<std::string> lines = TraceLines();
        std::erase_if(lines, [&](const std::string& line) { return line.find(part) == std::string::npos; });
        return lines;
    }
};

// --- icons ---------------------------------------------------------------------------------------------------------

TEST_F(Terminal, AnIconValueIsReducedToItsCode) {
    const struct {
        int Value;
        const char* Name;  // empty: none
    } Cases[] = {
        {0x2020, "ACTIV_ICON"},    {0x7777, "ACTIV_ICON"}, {0x2828, "HOLD_ICON"},  {0x7D7F, "HOLD_ICON"},
        {0x2800, "INCOM_ICON"},    {0xA000, "INCOM_ICON"}, {0xA020, "INCOM_ICON"}, {0xA0A0, "INCOM_ICON"},
        {0xF377, "INCOM_ICON"},    {0x0000, "IDLE_ICON"},  {0x0303, "IDLE_ICON"},  {0x0004, "RESERVED_ICON"},
        {0x5000, "RESERVED_ICON"}, {0x0808, ""},           {0x8080, ""},           {0xA8A8, ""},
    };
    Key(5, TOUCH_MULTI);
    for (const auto& c : Cases) {
        TouchTable[5].icon = 0;  // no step of the machine is defined from here: it only traces
        TraceLines();
        Events();
        Command({0x47, 5, c.Value & 0xFF, c.Value >> 8});
        const auto lines = Traced("Multi Icone");
        if (*c.Name == 0)
            EXPECT_THAT(lines, IsEmpty()) << std::hex << c.Value;
        else
            EXPECT_THAT(lines, ElementsAre(std::string("Multi Icone 5 Action:  => ") + c.Name)) << std::hex << c.Value;
        EXPECT_EQ(TouchTable[5].rawIcon, static_cast<unsigned>(c.Value));
        EXPECT_THAT(Events(), testing::Contains("PHONE LAMP 25"));
    }
    TraceMask = TRACE_CALL;
    Command({0xC7, 3, 0x01, 0x02});
    Command({0x47, 3, 0x04, 0x00});
    EXPECT_THAT(Traced("VTA"),
                ElementsAre(" VTA: ICON: 3, Value: 201 IDLE_ICON", " VTA: ICON: 3, Value: 4 RESERVED_ICON"));
}

TEST_F(Terminal, AModuleIconGoesToTheModulesKey) {
    AomTable[0] = {true, 2, false, 40};
    AomTable[1] = {false, 3, false, 60};
    AomTable[2] = {true, 4, false, 250};
    Command({0x47, 3, 0x20, 0x20}, 1, 2);
    EXPECT_THAT(Events(), ElementsAre("PHONE LAMP 63"));
    EXPECT_EQ(TouchTable[43].rawIcon, 0x2020u);
    Command({0x47, 3, 0x20, 0x20}, 1, 3);   // an entry that is not present
    Command({0x47, 60, 0x20, 0x20}, 1, 2);  // key 100
    Command({0x47, 89, 0x20, 0x20});
    EXPECT_THAT(Events(), IsEmpty());
    Command({0x47, 9, 0x20, 0x20}, 1, 4);        // key numbers are one byte: 3
    Command({0x02, 0xFA, 0x47, 4, 0x20, 0x20});  // prefix of address 2
    Command({0x02, 5, 0x47, 4, 0x20, 0x20});
    Command({0x47, 88, 0x20, 0x20});
    EXPECT_THAT(Events(), ElementsAre("PHONE LAMP 23", "PHONE LAMP 64", "PHONE LAMP 108"));
    EXPECT_THAT(Traced("VTA: "),
                ElementsAre("VTA: AOM ICON: 43", "VTA: AOM ICON: 100", "VTA: AOM ICON: 3",
                            "VTA: Subdevice adr (250) Command", "VTA: AOM ICON: 44", "VTA: Subdevice adr (5) Command"));
}

TEST_F(Terminal, AllModuleIconsOffReportsThoseThatWereLit) {
    TouchTable[7].rawIcon = 0x2020;
    TouchTable[88].rawIcon = 1;
    Command({0x46});
    EXPECT_THAT(Events(), ElementsAre("PHONE LAMP 27", "PHONE LAMP 108"));
    EXPECT_EQ(TouchTable[7].rawIcon, 2u);
    EXPECT_EQ(TouchTable[6].rawIcon, 0u);
}

// --- lamps and the small commands ----------------------------------------------------------------------------------

TEST_F(Terminal, LampsTakeTheModesThatExist) {
    const struct {
        int Mode;
        DWORD Lamp;
    } Cases[] = {{0, 2}, {1, 4}, {2, 4}, {3, 0x10}, {4, 0x20}, {5, 0x20}, {6, 8}, {8, 8}, {255, 8}};
    for (const auto& c : Cases) {
        Command({0x21, c.Mode, 19});
        EXPECT_EQ(::Display.Lamps[19], c.Lamp) << c.Mode;
        EXPECT_THAT(Events(), ElementsAre("PHONE LAMP 19"));
    }
    Command({0x21, 1, 4});
    Command({0x21, 1, 20});
    EXPECT_THAT(Events(), ElementsAre("PHONE LAMP 4"));
    Command({0x21, 7, 0});
    EXPECT_THAT(Events(), ElementsAre("PHONE LAMP", "PHONE LAMP 4", "PHONE LAMP 19"));
    EXPECT_EQ(::Display.Lamps[19], 2u);
    EXPECT_EQ(::Display.Lamps[4], 2u);
    EXPECT_EQ(::Display.Lamps[0], 0u);
}

TEST_F(Terminal, SmallCommandsReportTheirPartOfThePhone) {
    Command({0x29, 1});
    Command({0x29, 0});
    Command({0x29});
    Command({0xBB});
    Command({0x3E});
    Command({0x48, 1});
    Command({0x7F});
    EXPECT_THAT(Events(), ElementsAre("PHONE HANDSETHOOK", "PHONE SPEAKERVOLUME", "PHONE RINGMODE"));
    Command({0x06});
    EXPECT_EQ(Port.Taken(), "04 26 1F 05 01 B1");
    Link.LinkIdleTicks = 9;
    Command({0x2B});
    EXPECT_EQ(Link.LinkIdleTicks, 9);
    Link.LinkPollPeriod = 160;
    Command({0x2B});
    EXPECT_EQ(Link.LinkIdleTicks, 0);
}

TEST_F(Terminal, CharacterPatternsAreTakenInWholeGroups) {
    Command({0x36, 5, 1, 2, 3, 4, 5, 6, 7, 8, 6, 9, 9, 9, 9, 9, 9, 9, 9, 7, 1, 1, 1, 1, 1, 1, 1});
    EXPECT_EQ(CharPatternTable[0].code, 5);
    EXPECT_EQ(CharPatternTable[0].rows[7], 8);
    EXPECT_EQ(CharPatternTable[1].code, 6);
    EXPECT_EQ(CharPatternTable[2].character, 0);
}

// --- display -------------------------------------------------------------------------------------------------------

TEST_F(Terminal, DisplayWritesFollowTheirMode) {
    Command({0x27, 0, 0, '0', '1', '2', '3', '4', '5', '6', '7', '8', '9'});
    Command({0x27, 2, 99, 'A', 'B'});
    EXPECT_EQ(Line(0), "0123456789AB");
    Command({0x27, 1, 3, 'x'});
    EXPECT_EQ(Line(0), "012x456789AB");
    Command({0x27, 2, 0, 'y'});
    EXPECT_EQ(Line(0), "012xy56789AB");
    Command({0x27, 3, 0, 'z'});
    EXPECT_EQ(Line(0), "012xy56789AB");
    Command({0xA8, 0x80, 8, 'S', 'W', 'A', 'P'});
    EXPECT_EQ(Line(1), "        SWAP");
    Command({0x27, 4, 2, 'Q'});  // only the two low bits are the mode
    EXPECT_EQ(Line(0), "  Q");
    Command({0x26});
    EXPECT_EQ(Line(0), "");
    EXPECT_EQ(Line(1), "");
    Command({0x27, 2, 0, 'R'});  // clearing leaves the cursor
    EXPECT_EQ(Line(0), "   R");
    // Complete updates alone are reported.
    EXPECT_EQ(Events().size(), 6u);
}

TEST_F(Terminal, WritesBeyondTheLineStoreNothingThere) {
    Command({0x27, 0, 38, 'A', 'B', 'C', 'D'});
    EXPECT_EQ(Line(0), std::string(38, ' ') + "AB");
    EXPECT_EQ(::Display.Cursors[0], 42);
    Command({0x27, 2, 0, 'E'});
    Command({0x27, 1, 255, 'F'});
    Command({0x27, 1, 40, 'G'});
    EXPECT_EQ(Line(0), std::string(38, ' ') + "AB");
    for (int i = 0; i < 5000; ++i)  // no number of writes turns the cursor around
        DecodeSuperMessage(Join({ToBytes({0x28, 0x82, 0}), ByteList(251, 'x')}), 0, 255);
    EXPECT_GT(::Display.Cursors[1], 40);
    Command({0x27});
    Command({0x27, 0});
    EXPECT_EQ(Line(0), std::string(38, ' ') + "AB");
}

TEST_F(Terminal, ACompleteTextOnLine0IsReported) {
    Command({0x27, 0, 0, 'A'});
    EXPECT_THAT(Events(), ElementsAre("PHONE DISPLAY"));
    Command({0x27, 0x80, 0, 'A'});
    EXPECT_THAT(Events(), IsEmpty());
    Command({0x28, 0, 0});
    EXPECT_THAT(Events(), ElementsAre("PHONE DISPLAY"));
}

// --- Super Messages ------------------------------------------------------------------------------------------------

TEST_F(Terminal, ASuperMessageIsWalkedItemByItem) {
    TraceMask = TRACE_ENTRY;
    Command({0x0B, 4, 0x27, 0, 0, 'A', 0, 4, 0x27, 2, 0, 'B', 1, 0x3E});
    EXPECT_EQ(Line(0), "AB");
    EXPECT_THAT(Events(), ElementsAre("PHONE DISPLAY", "PHONE DISPLAY", "PHONE RINGMODE"));
    EXPECT_THAT(TraceLines(), ElementsAre("VTA: Super Message len 14"));
    Command({0x0B});
    EXPECT_THAT(TraceLines(), ElementsAre("VTA: Super Message len 1"));
}

TEST_F(Terminal, AnItemBeyondTheSuperMessageEndsIt) {
    TraceMask = 0;
    Command({0x0B, 1, 0x3E, 3, 0x27, 0, 1, 0x3E});
    Command({0x0B, 1, 0x3E, 5, 0x27, 0, 0});
    Command({0x0B, 3, 0x3E});
    Command({0x0B, 255});
    EXPECT_THAT(Events(), ElementsAre("PHONE RINGMODE", "PHONE DISPLAY", "PHONE RINGMODE"));
    EXPECT_THAT(TraceLines(), ElementsAre("Bad ZT length in Super Message idx 7 data[idx] 62",
                                          "Bad ZT length in Super Message idx 3 data[idx] 5",
                                          "Bad ZT length in Super Message idx 1 data[idx] 3",
                                          "Bad ZT length in Super Message idx 1 data[idx] 255"));
}

TEST_F(Terminal, LongAndDeepSuperMessagesEnd) {
    TraceMask = 0;
    ByteList zeros(300, 0);
    zeros[0] = 0x0B;
    DecodeSuperMessage(zeros, 0, 255);
    EXPECT_THAT(TraceLines(), ElementsAre("End Bad ZT length in Super Message idx 0 data[idx] 0"));
    ByteList nested = ToBytes({0x3E});
    const auto wrap = [&](int times) {
        for (int i = 0; i < times; ++i)
            nested = Join({ToBytes({0x0B, static_cast<int>(nested.size())}), nested});
    };
    wrap(8);
    DecodeSuperMessage(nested, 0, 255);
    EXPECT_THAT(Events(), ElementsAre("PHONE RINGMODE"));
    wrap(1);
    DecodeSuperMessage(nested, 0, 255);
    EXPECT_THAT(Events(), IsEmpty());
    EXPECT_THAT(TraceLines(), ElementsAre("VTA: Super Message nested too deep, len 3"));
}

// --- events of the set ---------------------------------------------------------------------------------------------

TEST_F(Terminal, DigitsOfTheSetAreCollected) {
    for (const int digit : {0, 9, 10, 11, 0x85, 12, 0x7F})
        Event({0x83, digit});
    EXPECT_STREQ(DialedNumber, "09*#5");
    EXPECT_THAT(Traced("DigitKeyPushed").front(), "DigitKeyPushed 0 DialedNumber 0");
    for (int i = 0; i < 100; ++i)
        DigitKeyPushed(1);
    EXPECT_EQ(std::strlen(DialedNumber), NUMBER_SIZE - 1);
}

TEST_F(Terminal, KeysOfTheSetReachTheirRoom) {
    // Key 5 supervises a ringing colleague; a double call makes the soft keys count.
    Key(5, TOUCH_SUPERV);
    const int ringing = Call(5, 0, LINECALLSTATE_OFFERING);
    Event({0x20, 4});
    EXPECT_EQ(PickUpSupervCref, -1);
    Event({0xA0, 0x85});
    EXPECT_EQ(PickUpSupervCref, ringing);

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
    EXPECT_EQ(CallTable[static_cast<std::size_t>(held)].state, DWORD{LINECALLSTATE_CONNECTED});
}

TEST_F(Terminal, KeysOfAModuleReachTheirRoom) {
    AomTable[2] = {true, 6, false, 40};
    Key(45, TOUCH_SUPERV);
    const int ringing = Call(45, 0, LINECALLSTATE_OFFERING);
    TraceMask = TRACE_ENTRY;
    Event({0x20, 5}, 1, 1);
    EXPECT_EQ(PickUpSupervCref, -1);
    Event({0x20, 60}, 1, 6);  // key 100
    Event({0x20, 5}, 1, 6);
    EXPECT_EQ(PickUpSupervCref, ringing);
    EXPECT_THAT(Traced("VTA"), ElementsAre("VTA: AOM key pushed: 100", "VTA: AOM key pushed: 45"));
}

// --- add-on modules ------------------------------------------------------------------------------------------------

TEST_F(Terminal, ModulesAreOrderedByOffset) {
    const struct {
        int Count;
        std::array<int, 3> Offsets, Order;
    } Cases[] = {
        {1, {90, 10, 5}, {0, 1, 2}},  {2, {28, 52, 5}, {0, 1, 2}},  {2, {52, 28, 5}, {1, 0, 2}},
        {2, {28, 28, 5}, {1, 0, 2}},  {3, {28, 52, 76}, {0, 1, 2}}, {3, {76, 52, 28}, {2, 1, 0}},
        {3, {28, 76, 52}, {0, 2, 1}}, {3, {52, 28, 52}, {1, 2, 0}}, {3, {28, 28, 28}, {2, 1, 0}},
    };
    for (const auto& c : Cases) {
        AomCount = c.Count;
        for (std::size_t i = 0; i < 3; ++i)
            AomTable[i].offset = static_cast<std::uint8_t>(c.Offsets[i]);
        SortAomModules();
        EXPECT_EQ(AomOrder, c.Order);
    }
}

}  // namespace
