#include "walk/walker.h"

namespace Walk {

// --- the person at the set -----------------------------------------------------------------------------------------------

std::string Walker::ChooseOnSet() {
    switch (Below(16)) {
    case 0: return LineOf("dial", Number());
    case 1: return LineOf("dial", std::string(1, "0123456789*#"[Below(Digits())]));
    case 2:
    case 3: return "release";
    case 4: return "offhook";
    case 5: return LineOf("handset", Below(2));
    case 6: return LineOf("lamp", Below(20), Below(3));
    case 7:
    case 8:
    case 9:
    case 10: {
        const int soft = 1 + Below(5);
        const bool shown = !Machine.set.softKeys[static_cast<std::size_t>(soft) - 1].empty();
        return shown || Once(10) ? LineOf("softkey", soft) : "";
    }
    default: return LineOf("key", Once(2) ? KeyInUse() : AnyKey());
    }
}

bool Walker::OnSet(const std::string& verb, Words& words) {
    Machine.SetNow(PlatformControl::Now());
    std::string answer;
    if (verb == "dial")
        answer = Eq::DialDigits(Machine, words.Text());
    else if (verb == "release")
        answer = Eq::PressRelease(Machine);
    else if (verb == "offhook")
        answer = Eq::PressOffHook(Machine);
    else if (verb == "handset")
        answer = Eq::Handset(Machine, words.Int());
    else if (verb == "softkey")
        answer = Eq::PressSoftKey(Machine, words.Int());
    else if (verb == "key")
        answer = Eq::PressKey(Machine, words.Int());
    else if (const int lamp = words.Int(); verb == "lamp")
        answer = Eq::SetLamp(Machine, lamp, words.Int());
    return answer.empty();
}

// --- what sets and cards may send besides, none of which is about a call ---------------------------------------------------

std::string Walker::ChooseRaw() {
    static const char* const Items[] = {"61210705",
                                        "61210203",
                                        "61210905",
                                        "612101",  // lamps: all off, unknown modes, cut short
                                        "6127030041",
                                        "612700",  // the display: nothing, cut short
                                        "614701",
                                        "61475900",
                                        "6147590020",
                                        "6147508800",  // icons: cut short, no such key, none that is known
                                        "63024600",
                                        "6307470120",
                                        "6104",
                                        "610402",  // add-on modules: icons off, no such module, no command
                                        "61",
                                        "6160",
                                        "6105",
                                        "612B",
                                        "613B01",
                                        "6106",  // no command, unknown ones, single ones
                                        "610B0321010502213B",
                                        "610B0921",
                                        "610B0B0B0B0B0B0B0B0B0B03210105",  // super messages
                                        "610B0F0B0D0B0B0B090B070B050B030B010B",
                                        "62030F",
                                        "6203",
                                        "622100",
                                        "622064",
                                        "6407200114",
                                        "640220600A"};
    return LineOf("raw", Pick(Items));
}

bool Walker::SendRaw(const std::string& hex) {
    Machine.SetNow(PlatformControl::Now());
    Eq::Bytes item;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        item.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    Machine.Queue(item, true);
    return true;
}

// --- far ends, the PBX ---------------------------------------------------------------------------------------------------

std::string Walker::ChooseFar() {
    const int key = KeyInUse();
    static const char* const Names[] = {"", "", "MARTIN", "LE GOFF", "4XY"};
    static const char* const OddNames[] = {"AB/C",
                                           "D/",
                                           "=>DUVAL",
                                           "=X",
                                           "REN\u00c9",
                                           "\x01Y",
                                           "A-NAME-THAT-LEAVES-A-BLANK",
                                           "A-NAME-THAT-FILLS-THE-LINE-OF-THE-SET.."};
    const std::string name = Once(25) ? Pick(OddNames) : Pick(Names), number = Once(8) ? "" : Number(),
                      party = number.empty() ? "4799" : number;
    switch (Below(19)) {
    case 0:
    case 1:
    case 2:
    case 3: {
        static constexpr int Reasons[] = {0, 0, 1, 2, 3, 4, 8, 11};
        return LineOf("call", SomeKey(), number, name, Once(3) ? 1 + Below(2) : 0, 500 + 500 * Below(4), Pick(Reasons),
                      Once(3) ? "4799" : "");
    }
    case 4:
    case 5:
    case 6: return LineOf("far-hangs-up", key, Below(3), Below(3) - 1);
    case 7: return LineOf("far-rings", name);
    case 8:
    case 9:
    case 10: return LineOf("far-answers", name);
    case 11: return "far-busy";
    case 12: return LineOf("far-diverts", party, name);
    case 13: return LineOf("far-transfers", key, party, name);
    case 14: return LineOf("recall", key);
    case 15: return LineOf("move", key, SomeKey());
    case 16: return LineOf("show-caller", key);
    case 17: return Once(4) ? LineOf("reserve", SomeKey()) : Once(8) ? LineOf("blank", Below(2)) : "";
    default: return Machine.set.waiting.size() > 3 ? "" : LineOf("call-waits", name);
    }
}

bool Walker::Far(const std::string& verb, Words& words) {
    Machine.SetNow(PlatformControl::Now());
    std::string answer;
    if (verb == "call") {
        const int key = words.Int();
        const std::string number = words.Text(), name = words.Text();
        const auto shown = static_cast<Eq::CallerShown>(words.Int());
        const auto late = static_cast<std::uint32_t>(words.Int());
        const int reason = words.Int();
        answer = Eq::Incoming(Machine, key, number, name, shown, late, {reason, words.Text(), ""});
    } else if (verb == "far-hangs-up") {
        const int key = words.Int(), shown = words.Int();
        answer = Eq::FarHangsUp(Machine, key, static_cast<Eq::HangUpShown>(shown), words.Int());
    } else if (verb == "far-rings") {
        answer = Eq::FarRings(Machine, words.Text());
    } else if (verb == "far-answers") {
        answer = Eq::FarAnswers(Machine, words.Text());
    } else if (verb == "far-busy") {
        answer = Eq::FarBusy(Machine);
    } else if (verb == "far-diverts") {
        const std::string number = words.Text();
        answer = Eq::FarDiverts(Machine, number, words.Text());
    } else if (verb == "far-transfers") {
        const int key = words.Int();
        const std::string number = words.Text();
        answer = Eq::FarTransfers(Machine, key, number, words.Text());
    } else if (verb == "recall") {
        answer = Eq::Recall(Machine, words.Int());
    } else if (verb == "move") {
        const int from = words.Int();
        answer = Eq::MoveCall(Machine, from, words.Int());
    } else if (verb == "show-caller") {
        answer = Eq::ShowCaller(Machine, words.Int());
    } else if (verb == "reserve") {
        answer = Eq::Reserve(Machine, words.Int());
    } else if (verb == "blank") {
        answer = Eq::WriteDisplay(Machine, 0, "", 0, 0, words.Int() != 0);
    } else if (verb == "call-waits") {
        answer = Eq::CallWaitsAt(Machine, "4720", "0145678901", words.Text());
    }
    return answer.empty();
}

// --- the line misbehaves -------------------------------------------------------------------------------------------------

std::string Walker::ChooseLine() {
    static const char* const Faults[] = {"loses",     "cuts",     "joins",  "repeats", "ignores", "refuses",
                                         "acks-late", "pbx-late", "silent", "flips",   "well"};
    if (!Misbehaves)
        return "";
    const std::string what = Pick(Faults);
    return LineOf("line", what, 1 + Below(4), Below(3), what == "flips" ? Below(8) - 1 : Below(3), Below(6));
}

bool Walker::Misbehave(Words& words) {
    Machine.SetNow(PlatformControl::Now());
    Eq::Faults& faults = Machine.faults;
    const std::string what = words.Text();
    const int count = words.Int();
    faults.target = static_cast<Eq::FaultTarget>(words.Int());
    const int detail = words.Int(), silence = words.Int();
    Faulty = true;
    Clean = false;
    if (what == "loses") {
        faults.loseNext = count;
    } else if (what == "flips") {
        faults.flipNext = count;
        faults.flipByte = detail;
    } else if (what == "cuts") {
        faults.cutNext = count;
    } else if (what == "joins") {
        faults.joinNext = count;
    } else if (what == "repeats") {
        faults.repeatNext = count;
    } else if (what == "ignores") {
        faults.ignoreNext = count;
    } else if (what == "refuses") {
        faults.nackNext = count;
        faults.nackWith = static_cast<std::uint8_t>(0x84 + detail);
    } else if (what == "acks-late") {
        faults.ackDelayMs = 500u * static_cast<unsigned>(count);
    } else if (what == "pbx-late") {
        faults.answerDelayMs = 1000u * static_cast<unsigned>(count);
    } else if (what == "dead") {
        faults.noAssociation = faults.noAnswers = true;
    } else if (what == "silent") {
        faults.silent = true;
        Advance(1000u << silence);
        faults.silent = false;
    } else {
        faults = {};
    }
    return true;
}

}  // namespace Walk
