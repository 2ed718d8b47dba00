// Forwarding and pickup on a set that is not idle, or that has no code for them.
#include "control/forward.h"

#include "support/requests.h"

namespace {

class Forwarding : public Requests {};

TEST_F(Forwarding, NeedsAnIdleSetAndItsCode) {
    for (auto& code : Settings.ServiceCodes)
        CopyText(code, "1");
    const char* traced = "RedirectCallFailed cref:1,state400";
    Check([] { return DoForward(ForwardingModes[0]); }, {{"1I 2H 3O", FAILED, "", traced}});
    for (const char* live : {"1O", "1R", "1D"}) {
        Check(DoCancelForward, {{live, FAILED, "", ""}});
        Check(DoPickup, {{live, FAILED, "", ""}});
    }
    EXPECT_EQ(Tracking.PickUpCref, -1);
    CopyText(ProviderState.ForwardDestination, "4750");
    EXPECT_EQ(Tracking.ForwardAckTicks, 0);
    Fresh();
    EXPECT_EQ(DoForward(ForwardingModes[0]), 0);
    EXPECT_EQ(Tracking.ForwardAckTicks, 15) << "1.5 s in which a line key that lights is this one's";
    Pressed();
    for (const char* none : {"", "AB"}) {  // letters are left out of codes
        for (auto& code : Settings.ServiceCodes)
            CopyText(code, none);
        Check(DoPickup, {{"1C", UNAVAILABLE, "", ""}});
        Check(DoCancelForward, {{"", UNAVAILABLE, "", ""}});
        for (const ForwardingMode& mode : ForwardingModes)
            Check([&] { return DoForward(mode); }, {{"", UNAVAILABLE, "", ""}});
    }
}

}  // namespace
