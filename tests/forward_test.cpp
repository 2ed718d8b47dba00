// Forwarding and pickup: the codes that are pressed, in a Super Message and singly, and what refuses them.
#include "control/forward.h"

#include "support/requests.h"

namespace {

class Forwarding : public Requests {
protected:
    void SetUp() override {
        Requests::SetUp();
        const char* codes[] = {"1", "2", "3", "4", "5", "", "6"};
        for (int i = 0; i <= MAX_TA_CODE; ++i)
            CopyText(Settings.ServiceCodes[i], codes[i]);
        CopyText(ProviderState.ForwardDestination, "9");
        CopyText(ProviderState.PickupAddress, "8");
    }
};

TEST_F(Forwarding, PressesTheCodeOfTheModeThenTheNumber) {
    struct Case {
        std::function<LONG()> request;
        std::string together, singly;
        int ticks = 15;
    };
    const auto forward = [](DWORD mode) { return [=] { return DoForward(mode); }; };
    for (const Case& c :
         {Case{forward(LINEFORWARDMODE_UNCOND), "09 6E 03 26 03 01 03 26 03 09 27", "03 26 03 01 D3 | 03 26 03 09 CB"},
          {forward(LINEFORWARDMODE_BUSY), "09 6E 03 26 03 02 03 26 03 09 26", "03 26 03 02 D2 | 03 26 03 09 CB"},
          {forward(LINEFORWARDMODE_NOANSW), "09 6E 03 26 03 03 03 26 03 09 25", "03 26 03 03 D1 | 03 26 03 09 CB"},
          {forward(LINEFORWARDMODE_BUSYNA), "09 6E 03 26 03 04 03 26 03 09 24", "03 26 03 04 D0 | 03 26 03 09 CB"},
          {DoCancelForward, "05 6E 03 26 03 05 5C | 03 26 20 29 8E", "03 26 03 05 CF | 03 26 20 29 8E"},
          {DoPickup, "09 6E 03 26 03 06 03 26 03 08 23", "03 26 03 06 CE | 03 26 03 08 CC", 0}})
        for (const bool together : {true, false}) {
            Link.SuperMsgSupported = together;
            Check(c.request, {{"1I", 0, together ? c.together : c.singly, ""}});
            EXPECT_EQ(Tracking.ForwardAckTicks, c.ticks);
            EXPECT_EQ(Tracking.PickUpCref, c.ticks == 0 ? 0 : -1);
        }
    Settings.ServiceCodes[CODE_CANCEL_FORWARDING][0] = 0;
    Check(DoCancelForward, {{"", 0, RELEASE, ""}});
    EXPECT_EQ(Tracking.ForwardAckTicks, 0) << "no code was pressed";
}

TEST_F(Forwarding, NeedsAnIdleSet) {
    const char* traced = "RedirectCallFailed cref:1,state400";
    Check([] { return DoForward(LINEFORWARDMODE_UNCOND); }, {{"1I 2H 3O", FAILED, "", traced}});
    Check([] { return DoForward(0x11); }, {{"", FAILED, "", ""}});
    for (const char* live : {"1O", "1R", "1D"}) {
        Check(DoCancelForward, {{live, FAILED, "", ""}});
        Check(DoPickup, {{live, FAILED, "", ""}});
    }
    Settings.ServiceCodes[CODE_CALL_PICKUP][0] = 0;
    Check(DoPickup, {{"1C", UNAVAILABLE, "", ""}});
    EXPECT_EQ(Tracking.PickUpCref, -1);
}

// A key lights for what was dialled: no call for a forwarding, the picked-up call, new to TAPI, for a pickup.
TEST_F(Forwarding, KeyThatLightsIsNotTakenByTheUser) {
    EXPECT_EQ(DoForward(LINEFORWARDMODE_UNCOND), 0);
    Icon(2, ACTIV_ICON);
    EXPECT_EQ(Steps(), "");
    Fresh();
    EXPECT_EQ(DoPickup(), 0);
    Icon(2, ACTIV_ICON);
    EXPECT_EQ(Steps(), "NEWCALL 0 | InPickUpFunction Icone:2 - Etat:PROCEEDING - Ref:0 | STATE 0 PROCEEDING");
}

}  // namespace
