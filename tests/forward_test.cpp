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
    Settings.ServiceCodes[CODE_CALL_PICKUP][0] = Settings.ServiceCodes[CODE_CANCEL_FORWARDING][0] = 0;
    Check(DoPickup, {{"1C", UNAVAILABLE, "", ""}});
    Check(DoCancelForward, {{"", 0, RELEASE, ""}});
    EXPECT_EQ(Tracking.ForwardAckTicks, 0) << "no code was pressed";
}

}  // namespace
