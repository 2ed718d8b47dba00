// Supervision keys: the call of a colleague's ringing line from its first ring to its end.
#include "tracking/supervision.h"

#include "support/tracked.h"

namespace {

class Supervision : public TrackedSet {};

TEST_F(Supervision, KeyThatGoesOutOrIsReserved) {
    struct Row {
        DWORD state;
        int touch;  // where the call of key 7 stands now
        const char* steps;
        int stored, slot;
    };
    const char* const ended = "STATE 0 DISCONNECTED 1 | Icone:7 éteint - Etat:DISCONNECTED - Ref:0 | STATE 0 IDLE | "
                              "Icone:7 éteint - Etat:IDLE - Ref:0 | Annulation PickUpSupervProceeding 0000 ";
    const Row rows[] = {{OFFERING, 7, ended, IDLE_ICON, -1},
                        {STATE_REOFFERING, 7, ended, IDLE_ICON, -1},
                        {OFFERING, 2, "", INCOM_ICON, 0},
                        {CONNECTED, 2, "Icone:7 éteint - Superv Interceptee - Ref:0", IDLE_ICON, -1},
                        {CONNECTED, 7, "Icone:7 éteint - Superv etat impossible 100 - Ref:0", INCOM_ICON, 0}};
    for (const int icon : {IDLE_ICON, RESERVED_ICON})
        for (const Row& row : rows) {
            Fresh();
            At(7).icon = INCOM_ICON;
            PickUpSupervCref = Call(7, 0, row.state);
            Record(0).touch = row.touch;
            SupervIcon(icon, 7);
            EXPECT_EQ(Steps(), row.steps);
            EXPECT_EQ(At(7).icon, row.stored) << row.steps;
            EXPECT_EQ(At(7).calls[0], row.slot) << row.steps;
        }
}

TEST_F(Supervision, KeyThatRingsWithoutARecordForItsCallStillGoesOut) {
    SupervIcon(RESERVED_ICON, 7);
    EXPECT_EQ(At(7).icon, IDLE_ICON) << "no ringing line";
    for (CallRecord& call : CallTable)
        call.touch = 1;
    SupervIcon(INCOM_ICON, 7);
    EXPECT_EQ(Steps(), "");
    EXPECT_EQ(At(7).icon, INCOM_ICON);
    EXPECT_EQ(At(7).calls[0], -1);
    EXPECT_EQ(Tracking.OfferInfoCref, -1);
    SupervIcon(IDLE_ICON, 7);
    EXPECT_EQ(At(7).icon, IDLE_ICON);
}

}  // namespace
