// A supervision key that rings while no record is free; what else its icons do is tested with the icon machine.
#include "tracking/supervision.h"

#include "support/tracked.h"

namespace {

class Supervision : public TrackedSet {};

TEST_F(Supervision, KeyThatRingsWithoutARecordForItsCallStillGoesOut) {
    SupervIcon(RESERVED_ICON, 7);
    EXPECT_EQ(At(7).icon, IDLE_ICON) << "no ringing line";
    for (CallRecord& call : CallTable)
        call.touch = 1;
    SupervIcon(INCOM_ICON, 7);
    SupervIcon(INCOM_ICON, 7);  // as where a call of before was picked up
    EXPECT_EQ(Steps(), "");
    EXPECT_EQ(At(7).icon, INCOM_ICON);
    EXPECT_EQ(At(7).calls[0], -1);
    EXPECT_EQ(Tracking.OfferInfoCref, -1);
    SupervIcon(IDLE_ICON, 7);
    EXPECT_EQ(At(7).icon, IDLE_ICON);
}

TEST_F(Supervision, CallerOfEachRingingLineHasASecondToShow) {
    Tracking.OfferTicks = 10;
    SupervIcon(INCOM_ICON, 7);
    EXPECT_EQ(Tracking.OfferTicks, 0);
    EXPECT_EQ(Tracking.OfferInfoCref, 0);
}

}  // namespace
