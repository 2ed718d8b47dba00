#include "walk/walker.h"

namespace Walk {

// --- the person at the set, far ends, the PBX ---------------------------------------------------------------------------

bool Walker::Do(const std::string& what, const std::string& answer) {
    if (answer.empty())
        Say(what);
    return answer.empty();
}

bool Walker::ActOnSet() {
    Machine.SetNow(PlatformControl::Now());
    const int key = Once(2) ? KeyInUse() : AnyKey();
    const int soft = 1 + Below(5);
    switch (Below(16)) {
    case 0: {
        const std::string digits = Number();
        return Do("user dials " + digits, Eq::DialDigits(Machine, digits));
    }
    case 1: {
        const std::string digit(1, "0123456789*#"[Below(Digits())]);
        return Do("user dials " + digit, Eq::DialDigits(Machine, digit));
    }
    case 2:
    case 3: return Do("user puts down", Eq::PressRelease(Machine));
    case 4: return Do("user takes the handset", Eq::PressOffHook(Machine));
    case 5: return Do("handset", Eq::Handset(Machine, Below(2)));
    case 6: return Do("lamp", Eq::SetLamp(Machine, Below(20), Below(3)));
    case 7:
    case 8:
    case 9:
    case 10: {
        const std::string& label = Machine.set.softKeys[static_cast<std::size_t>(soft) - 1];
        if (label.empty() && !Once(10))
            return false;
        return Do("user presses soft key " + std::to_string(soft) + " " + label, Eq::PressSoftKey(Machine, soft));
    }
    default: return Do("user presses key " + std::to_string(key), Eq::PressKey(Machine, key));
    }
}

bool Walker::ActFar() {
    Machine.SetNow(PlatformControl::Now());
    const int key = KeyInUse();
    const std::string on = " on key " + std::to_string(key);
    static const char* const Names[] = {"", "", "MARTIN", "LE GOFF", "4XY"};
    const std::string name = Pick(Names), number = Once(8) ? "" : Number();
    switch (Below(18)) {
    case 0:
    case 1:
    case 2:
    case 3: {
        const int free = SomeKey();
        const auto shown = static_cast<Eq::CallerShown>(Once(3) ? 1 + Below(2) : 0);
        static constexpr int Reasons[] = {0, 0, 1, 2, 3, 4, 8, 11};
        return Do("call from " + number + " " + name + " on key " + std::to_string(free) + " shown " +
                      std::to_string(static_cast<int>(shown)),
                  Eq::Incoming(Machine, free, number, name, shown, 500 + 500 * static_cast<unsigned>(Below(4)),
                               {Pick(Reasons), Once(3) ? "4799" : "", ""}));
    }
    case 4:
    case 5:
    case 6: {
        const auto shown = static_cast<Eq::HangUpShown>(Below(3));
        const int slot = Below(3) - 1;
        return Do("far end hangs up" + on + " slot " + std::to_string(slot) + " shown " +
                      std::to_string(static_cast<int>(shown)),
                  Eq::FarHangsUp(Machine, key, shown, slot));
    }
    case 7: return Do("far end rings", Eq::FarRings(Machine, name));
    case 8:
    case 9:
    case 10: return Do("far end answers", Eq::FarAnswers(Machine, name));
    case 11: return Do("far end is busy", Eq::FarBusy(Machine));
    case 12: return Do("call goes on to " + number, Eq::FarDiverts(Machine, number.empty() ? "4799" : number, name));
    case 13:
        return Do("far end transfers" + on, Eq::FarTransfers(Machine, key, number.empty() ? "4799" : number, name));
    case 14: return Do("held call rings back" + on, Eq::Recall(Machine, key));
    case 15: {
        const int to = SomeKey();
        return Do("call moves to key " + std::to_string(to) + on, Eq::MoveCall(Machine, key, to));
    }
    case 16: return Do("the caller shows" + on, Eq::ShowCaller(Machine, key));
    default:
        if (Machine.set.waiting.size() > 3)
            return false;
        return Do("a call waits at 4720", Eq::CallWaitsAt(Machine, "4720", "0145678901", name));
    }
}

// --- the line misbehaves -------------------------------------------------------------------------------------------------

bool Walker::ActLine() {
    if (!Chosen.Misbehaves)
        return false;
    Machine.SetNow(PlatformControl::Now());
    Eq::Faults& faults = Machine.faults;
    faults.target = static_cast<Eq::FaultTarget>(Below(3));
    const int count = 1 + Below(4);
    const int what = Below(11);
    static const char* const Texts[] = {"loses",   "flips",        "cuts",        "joins",  "repeats",   "ignores",
                                        "refuses", "answers late", "PBX is late", "silent", "well again"};
    Say("line: " + std::string(Texts[what]) + " " + std::to_string(count));
    Faulty = true;
    Clean = false;
    switch (what) {
    case 0: faults.loseNext = count; break;
    case 1:
        faults.flipNext = count;
        faults.flipByte = Below(8) - 1;
        break;
    case 2: faults.cutNext = count; break;
    case 3: faults.joinNext = count; break;
    case 4: faults.repeatNext = count; break;
    case 5: faults.ignoreNext = count; break;
    case 6:
        faults.nackNext = count;
        faults.nackWith = static_cast<std::uint8_t>(0x84 + Below(3));
        break;
    case 7: faults.ackDelayMs = 500u * static_cast<unsigned>(count); break;
    case 8: faults.answerDelayMs = 1000u * static_cast<unsigned>(count); break;
    case 9:
        faults.silent = true;
        Advance(1000u << Below(6));
        faults.silent = false;
        break;
    default: faults = {}; break;
    }
    return true;
}

}  // namespace Walk
