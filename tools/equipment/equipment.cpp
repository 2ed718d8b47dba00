#include "equipment/equipment.h"

#include <algorithm>

namespace Equipment {

namespace {

constexpr std::size_t WaitingLimit = 1000;  // items; a provider that takes nothing for so long has lost the oldest
constexpr std::size_t LineLimit = 65536;    // bytes that nobody reads
constexpr std::uint64_t JoinUs = 300'000;   // a frame kept back to be joined goes out alone after this
constexpr int RestartLimit = 3;             // of a long message that is refused halfway

bool IsTraceHeader(std::uint8_t type) {
    return type >= TypeToSet && type <= TypeFromModule;
}

// Link control that answers something: nobody acknowledges it.
bool IsAnswer(std::uint8_t control) {
    return control == ControlAck || control == ControlBadLength || control == ControlBadChecksum ||
           control == ControlLostSync || control == ControlAbort;
}

std::string Milliseconds(std::uint64_t us) {
    return std::to_string(us / 1000) + " ms";
}

}  // namespace

Machine::Machine() {
    pbx.lastSequence.fill(-1);
}

void Machine::Restart() {
    const std::lock_guard lock(guard);
    card = CardState{};
    pbx = PbxState{};
    pbx.lastSequence.fill(-1);
    set = SetState{};
    delayed.clear();
    line.clear();
    joinHeld.clear();
    lineFreeUs = 0;
    faultCount = 0;
}

void Machine::Log(const std::string& text) {
    if (onLog)
        onLog(text);
}

// --- time

void Machine::SetNow(std::uint32_t nowMs) {
    if (!clockStarted) {
        clockStarted = true;
        lastMs = nowMs;
    }
    const std::uint32_t passed = nowMs - lastMs;
    if (passed >= 0x80000000u)
        return;  // another caller's clock was read a little earlier
    nowUs += std::uint64_t{passed} * 1000;
    lastMs = nowMs;
}

void Machine::Later(std::uint32_t ms, std::function<void()> action) {
    const std::lock_guard lock(guard);
    delayed.push_back({nowUs + std::uint64_t{ms} * 1000, delayedOrder++, std::move(action)});
}

void Machine::Advance(std::uint32_t nowMs) {
    SetNow(nowMs);
    while (true) {
        const auto next = std::min_element(delayed.begin(), delayed.end(), [](const Delayed& a, const Delayed& b) {
            return a.dueUs != b.dueUs ? a.dueUs < b.dueUs : a.order < b.order;
        });
        if (next == delayed.end() || next->dueUs > nowUs)
            break;
        const auto action = std::move(next->action);
        delayed.erase(next);
        action();
    }
    if (card.cutter.Collecting() && nowUs - card.lastByteUs >= std::uint64_t{pacing.idleMs} * 1000) {
        Log("half a frame forgotten: " + Hex(card.cutter.frame));
        card.cutter.Idle();
    }
    if (!joinHeld.empty() && nowUs - joinHeldUs >= JoinUs) {
        Put(joinHeld, true);
        joinHeld.clear();
    }
    if (!card.flight.empty() && nowUs >= card.sentAtUs + std::uint64_t{pacing.resendMs} * 1000)
        Resend();
    Pump();
}

void Machine::Tick(std::uint32_t nowMs) {
    const std::lock_guard lock(guard);
    Advance(nowMs);
}

std::uint32_t Machine::NextDue(std::uint32_t nowMs) {
    const std::lock_guard lock(guard);
    Advance(nowMs);
    std::uint64_t due = UINT64_MAX;
    if (!line.empty())
        due = std::min(due, line.front().dueUs);
    for (const Delayed& entry : delayed)
        due = std::min(due, entry.dueUs);
    if (!card.flight.empty())
        due = std::min(due, card.sentAtUs + std::uint64_t{pacing.resendMs} * 1000);
    if (!joinHeld.empty())
        due = std::min(due, joinHeldUs + JoinUs);
    if (card.cutter.Collecting())
        due = std::min(due, card.lastByteUs + std::uint64_t{pacing.idleMs} * 1000);
    if (due == UINT64_MAX)
        return UINT32_MAX;
    return due <= nowUs ? 0 : static_cast<std::uint32_t>((due - nowUs + 999) / 1000);
}

// --- the line towards the provider

std::size_t Machine::Available(std::uint32_t nowMs) {
    const std::lock_guard lock(guard);
    Advance(nowMs);
    std::size_t count = 0;
    while (count < line.size() && line[count].dueUs <= nowUs)
        ++count;
    return count;
}

std::size_t Machine::Read(std::span<std::uint8_t> out, std::uint32_t nowMs) {
    const std::lock_guard lock(guard);
    Advance(nowMs);
    std::size_t count = 0;
    for (; count < out.size() && !line.empty() && line.front().dueUs <= nowUs; ++count) {
        out[count] = line.front().byte;
        line.pop_front();
    }
    return count;
}

// `atOnce`: all bytes are there when the last one is.
void Machine::Put(ByteSpan bytes, bool atOnce) {
    if (line.size() + bytes.size() > LineLimit) {
        Log("nobody reads: " + std::to_string(bytes.size()) + " bytes dropped");
        return;
    }
    const std::uint64_t start = std::max(nowUs, lineFreeUs);
    const auto sent = [&](std::size_t count) {
        return start + (pacing.bitsPerSecond != 0 ? count * 11'000'000ull / pacing.bitsPerSecond : 0);
    };
    lineFreeUs = sent(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i)
        line.push_back({bytes[i], atOnce ? lineFreeUs : sent(i + 1)});
}

void Machine::PutRaw(ByteSpan bytes) {
    const std::lock_guard lock(guard);
    if (faults.silent)
        return;
    ++card.framesOut;
    if (onFrame)
        onFrame(true, bytes);
    Put(bytes, false);
}

void Machine::Write(ByteSpan frame, bool data) {
    if (faults.silent)
        return;
    card.lastWritten.assign(frame.begin(), frame.end());
    card.lastWasFlight = data;
    Bytes bytes(frame.begin(), frame.end());
    bool repeat = false;
    bool join = false;
    if (faults.target == FaultTarget::Any || (faults.target == FaultTarget::Data) == data) {
        const auto use = [](int& count) { return count > 0 && count-- > 0; };
        ++faultCount;
        if (use(faults.loseNext) || (faults.loseEvery > 0 && faultCount % faults.loseEvery == 0)) {
            Log("lost: " + Hex(bytes));
            return;
        }
        if (use(faults.flipNext) || (faults.flipEvery > 0 && faultCount % faults.flipEvery == 0)) {
            const std::size_t middle = bytes.size() / 2;
            const std::size_t at = faults.flipByte < 0 ? middle : static_cast<std::size_t>(faults.flipByte);
            bytes[std::min(at, bytes.size() - 1)] ^= 0x01;
        }
        if (use(faults.cutNext))
            bytes.resize(bytes.size() / 2);
        repeat = use(faults.repeatNext);
        join = use(faults.joinNext);
    }
    ++card.framesOut;
    if (onFrame)
        onFrame(true, bytes);
    if (repeat) {
        const Bytes once = bytes;
        bytes.insert(bytes.end(), once.begin(), once.end());
    }
    const bool joined = join || !joinHeld.empty();
    if (joined)
        bytes.insert(bytes.begin(), joinHeld.begin(), joinHeld.end());
    if (join) {
        if (joinHeld.empty())
            joinHeldUs = nowUs;
        joinHeld = bytes;
        return;
    }
    joinHeld.clear();
    Put(bytes, joined);
}

// --- frames of our own, one in flight at a time

void Machine::Queue(Bytes item, bool joinable) {
    const std::lock_guard lock(guard);
    if (!card.present || faults.silent || item.empty() || (faults.noTraceHeaders && IsTraceHeader(item[0])))
        return;
    if (card.waiting.size() >= WaitingLimit)
        card.waiting.pop_front();
    card.waiting.push_back({std::move(item), joinable});
}

void Machine::QueueOmna(const OmnaMessage& message) {
    const std::lock_guard lock(guard);
    if (!card.present || faults.silent)
        return;
    const std::vector<Bytes> items = OmnaItems(BuildOmna(message));
    if (items.size() == 1) {
        Queue(items[0], false);
        return;
    }
    const int number = ++card.messageNumber;
    card.longMessages[number] = items;
    const std::size_t first = card.waiting.size();
    for (const Bytes& item : items)
        card.waiting.push_back({item, false, number, &item == &items.back()});
    if (faults.wrongSequence && items.size() > 2)
        std::swap(card.waiting[first + 1], card.waiting[first + 2]);
}

void Machine::DropWaitingOmna() {
    std::erase_if(card.waiting, [](const CardState::Outgoing& entry) {
        return entry.item[0] == TypeOmna || entry.item[0] == TypeSegment;
    });
    card.longMessages.clear();
    card.restarts = 0;
}

std::vector<CardState::Outgoing> Machine::TakeNext() {
    std::vector<CardState::Outgoing> taken{card.waiting.front()};
    card.waiting.pop_front();
    if (!taken[0].joinable || !config.superFrames || !card.configAnswered)
        return taken;
    // length byte, type and checksum of the super frame, and a length byte for each item
    std::size_t size = 3 + 1 + taken[0].item.size();
    while (!card.waiting.empty() && card.waiting.front().joinable &&
           size + 1 + card.waiting.front().item.size() <= SuperFrameLimit) {
        size += 1 + card.waiting.front().item.size();
        taken.push_back(card.waiting.front());
        card.waiting.pop_front();
    }
    return taken;
}

void Machine::StartFlight(std::vector<CardState::Outgoing> items, const Bytes* control) {
    Bytes item = items[0].item;
    if (items.size() > 1) {
        std::vector<Bytes> parts;
        for (const CardState::Outgoing& entry : items)
            parts.push_back(entry.item);
        item = BuildSuper(parts, config.containerType);
    }
    card.flight = std::move(items);
    card.flightFrame = BuildFrame(item);  // repeated alone: what it was attached to has been said
    card.attempts = 1;
    Write(control != nullptr ? BuildFrame(BuildAttached((*control)[1], item)) : card.flightFrame, true);
    card.sentAtUs = std::max(nowUs, lineFreeUs);
}

void Machine::Pump() {
    const std::lock_guard lock(guard);
    if (card.present && !faults.silent && card.flight.empty() && !card.waiting.empty())
        StartFlight(TakeNext());
    if (faults.silent && card.present)
        Clear();
}

// `whole`: with the acknowledgement that it went out with, if any. That one is known to be unheard.
void Machine::Resend(bool whole) {
    if (card.attempts > pacing.resendLimit) {
        ++card.givenUp;
        Log("given up: " + Describe(ItemOf(card.flightFrame)) + ", " + std::to_string(card.waiting.size()) +
            " more dropped");
        Clear();
        return;
    }
    ++card.attempts;
    ++card.resends;
    Log("again after " + Milliseconds(nowUs - std::min(nowUs, card.sentAtUs)) + ": " +
        Describe(ItemOf(card.flightFrame)));
    Write(whole ? Bytes(card.lastWritten) : card.flightFrame, true);
    card.sentAtUs = std::max(nowUs, lineFreeUs);
}

void Machine::Clear() {
    card.present = false;
    card.waiting.clear();
    card.flight.clear();
    card.longMessages.clear();
    card.reassembly.Reset();
}

void Machine::Hush() {
    const std::lock_guard lock(guard);
    Clear();
    card.cutter.Idle();
    line.clear();
    joinHeld.clear();
}

// --- frames of the provider

void Machine::Receive(ByteSpan bytes, std::uint32_t nowMs) {
    const std::lock_guard lock(guard);
    Advance(nowMs);
    if (faults.silent)
        return;
    for (const std::uint8_t byte : bytes) {
        card.lastByteUs = nowUs;
        if (card.cutter.Push(byte)) {
            const Bytes frame = card.cutter.frame;
            TakeFrame(frame);
        }
    }
    Pump();
}

void Machine::TakeFrame(ByteSpan frame) {
    ++card.framesIn;
    if (onFrame)
        onFrame(false, frame);
    if (faults.ignoreNext > 0) {
        --faults.ignoreNext;
        Log("ignored: " + Hex(frame));
        return;
    }
    if (!FrameHolds(frame)) {
        ++card.badFrames;
        Log("damaged: " + Hex(frame));
        Write(BuildFrame(Bytes{TypeControl, ControlBadChecksum}), false);
        return;
    }
    card.present = true;
    const ByteSpan item = ItemOf(frame);
    const bool answer = item[0] == TypeControl && (item.size() < 2 || IsAnswer(item[1]));
    if (faults.nackNext > 0 && !answer) {
        --faults.nackNext;
        Log("refused: " + Describe(item));
        Write(BuildFrame(Bytes{TypeControl, faults.nackWith}), false);
        return;
    }
    TakeItem(item, true);
}

void Machine::TakeItem(ByteSpan item, bool acknowledge) {
    // The acknowledgement comes last, so that what the item sets off may travel with it.
    switch (item[0]) {
    case TypeControl: TakeControl(item); return;
    case TypeSuper: {
        bool damaged = false;
        for (const Bytes& inner : CutSuper(item, damaged))
            TakeItem(inner, false);
        if (damaged)
            Log("damaged super frame: " + Hex(item));
        break;
    }
    case TypeAttached: {
        const auto attached = CutAttached(item);
        if (!attached) {
            Log("damaged attachment: " + Hex(item));
            Write(BuildFrame(Bytes{TypeControl, ControlBadLength}), false);
            return;
        }
        TakeControl(Bytes{TypeControl, attached->control});
        TakeItem(attached->item, true);
        return;
    }
    case TypeOmna:
        if (const auto message = ParseOmna(item.subspan(1)))
            AnswerOmna(*this, *message);
        else
            Log("no TAPI_OMNA message: " + Hex(item));
        break;
    case TypeSegment: TakeSegment(item, acknowledge); return;
    case TypeKeyPress:  // the card answers before the set does anything
        if (acknowledge)
            Acknowledge();
        TakeKeyPress(*this, item);
        return;
    case TypeSetReply: Log("reply " + Hex(item.subspan(1))); break;
    case TypeAreYouThere:
    case TypeRestart:
        if (!card.flight.empty() && card.flight[0].item[0] == item[0])
            Acknowledged();
        return;
    default: Log("unknown frame: " + Hex(item)); return;
    }
    if (acknowledge)
        Acknowledge();
}

void Machine::TakeSegment(ByteSpan item, bool acknowledge) {
    if (std::equal(item.begin(), item.end(), card.lastSegment.begin(), card.lastSegment.end())) {
        if (acknowledge)
            Acknowledge();
        return;
    }
    const Reassembly::Result result = card.reassembly.Add(item);
    if (result == Reassembly::Result::Unexpected) {
        Log("segment out of order: " + Hex(item));
        Write(BuildFrame(Bytes{TypeControl, ControlLostSync}), false);
        return;
    }
    card.lastSegment.assign(item.begin(), item.end());
    if (result == Reassembly::Result::WrongLength)
        Log("message of the wrong length");
    if (result == Reassembly::Result::Complete) {
        card.lastSegment.clear();
        if (const auto message = ParseOmna(card.reassembly.message))
            AnswerOmna(*this, *message);
    }
    if (acknowledge)
        Acknowledge();
}

void Machine::TakeControl(ByteSpan item) {
    const std::uint8_t control = item.size() > 1 ? item[1] : ControlAck;
    switch (control) {
    case ControlAck: Acknowledged(); return;
    case ControlBadLength:
    case ControlBadChecksum: Refused(); return;
    case ControlLostSync: LostSync(); return;
    case ControlAbort: Log("the provider has given a frame up"); return;
    case ControlPoll:
        if (!faults.noPollAnswer)
            Acknowledge({TypeControl, ControlPoll});
        return;
    case ControlSpecial: Acknowledge({TypeControl, ControlSpecial}); return;
    case ControlConfig: {
        const int flags = (config.superFrames ? 1 : 0) | (config.piggyback ? 2 : 0);
        card.configAnswered = true;
        Acknowledge({TypeControl, ControlConfig, static_cast<std::uint8_t>(config.cardMajor),
                     static_cast<std::uint8_t>(config.cardMinor), 0, static_cast<std::uint8_t>(flags)});
        return;
    }
    case ControlTempo: Acknowledge({TypeControl, ControlTempo, item.size() > 2 ? item[2] : std::uint8_t{0}}); return;
    default: Log("unknown link control: " + Hex(item)); return;
    }
}

void Machine::Acknowledge(Bytes control) {
    if (faults.ackDelayMs == 0)
        WriteAcknowledgement(control);
    else
        Later(faults.ackDelayMs, [this, control] { WriteAcknowledgement(control); });
}

void Machine::WriteAcknowledgement(const Bytes& control) {
    const bool free = card.flight.empty() && !card.waiting.empty();
    // Segments travel alone: the receiver of an attached one could not say that it came out of order.
    if (free && config.piggyback && card.configAnswered && control.size() == 2 &&
        card.waiting.front().item[0] != TypeSegment)
        StartFlight(TakeNext(), &control);
    else
        Write(BuildFrame(control), false);
}

void Machine::Acknowledged() {
    if (card.flight.empty()) {
        Log("acknowledgement of nothing");
        return;
    }
    if (card.flight[0].last) {
        card.longMessages.erase(card.flight[0].message);
        card.restarts = 0;
    }
    card.flight.clear();
}

void Machine::Refused() {
    ++card.nacksIn;
    if (!card.lastWasFlight && !card.lastWritten.empty())
        Write(Bytes(card.lastWritten), false);
    else if (!card.flight.empty())
        Resend(true);
}

// The provider says so when it opens the line, and when a segment was not the one it expected.
void Machine::LostSync() {
    card.reassembly.Reset();
    card.lastSegment.clear();
    if (card.flight.empty())
        return;
    const int message = card.flight[0].message;
    if (message == 0) {
        Resend();
        return;
    }
    const std::vector<Bytes> items = card.longMessages[message];
    card.flight.clear();
    std::erase_if(card.waiting, [&](const CardState::Outgoing& entry) { return entry.message == message; });
    if (++card.restarts > RestartLimit) {
        Log("long message given up");
        card.longMessages.erase(message);
        card.restarts = 0;
        return;
    }
    Log("long message from its start again");
    for (auto item = items.rbegin(); item != items.rend(); ++item)
        card.waiting.push_front({*item, false, message, item == items.rbegin()});
}

}  // namespace Equipment
