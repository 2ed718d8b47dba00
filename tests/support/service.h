// The whole provider as the telephony service runs it, the simulated equipment behind COM1, the test's clock: scenarios
// go from an entry point to the wire and back.
#pragma once

#include "equipment/equipment.h"
#include "support/fixture.h"

#include <algorithm>

struct EquipmentPort : PlatformControl::PortDevice {
    Equipment::Machine Machine;
    std::size_t BytesOut = 0, BytesIn = 0;  // as the provider sees it
    std::uint32_t SentAt = 0;               // when the last byte written is on the wire, ms
    void Write(std::span<const std::uint8_t> bytes, std::uint32_t now) override {
        BytesOut += bytes.size();
        const auto time = static_cast<std::uint32_t>(bytes.size() * 11 * 1000 / 9600);
        SentAt = std::max(SentAt, now) + time;
        Machine.Receive(bytes, now);
    }
    std::size_t OutputPending(std::uint32_t now) override { return SentAt > now ? SentAt - now : 0; }  // a byte a ms
    std::size_t Available(std::uint32_t now) override {
        Machine.Tick(now);
        return Machine.Available(now);
    }
    std::size_t Read(std::span<std::uint8_t> into, std::uint32_t now) override {
        const std::size_t count = Machine.Read(into, now);
        BytesIn += count;
        return count;
    }
    void Closed() override { Machine.Hush(); }
};

class Service : public testing::Test {
protected:
    EquipmentPort Port;
    Equipment::Machine& Machine = Port.Machine;
    HDRVLINE Line = nullptr;

    void SetUp() override;
    void TearDown() override;

    // Enumerates, initialises and opens the line as the telephony service does; gives what TSPI_lineOpen gave.
    LONG OpenLine();
    void CloseLine();
    // Opens the line and lets time pass until the configuration is complete; fails when that takes over 20 s.
    void GoInService();
    static void Advance(std::uint32_t milliseconds) { PlatformControl::Advance(milliseconds); }
    // An action on the equipment at the clock's time; fails when the equipment refuses it.
    template <class Action> void Do(Action action) {
        Machine.SetNow(PlatformControl::Now());
        EXPECT_EQ(action(Machine), "");
        Advance(1500);  // ample for the line and the ticks
    }
};
