// How many of the 20 call records are in which state: what the status queries report, and by which requests decide
// whether there is a call to act on. The conference call is not counted.
#pragma once

struct CallCountsRecord {
    int InUse = 0;  // records that have held a call since start-up, those now IDLE included
    int Connected = 0;
    int OnHold = 0;
    int OnHoldPending = 0;  // ONHOLDPENDTRANSFER
    int Reoffering = 0;
    int Idle = 0;

    int Live() const { return InUse - Idle; }
    int Active() const { return Live() - OnHold - OnHoldPending; }
};

// Counts, and traces every record in use.
CallCountsRecord CallCounts();
