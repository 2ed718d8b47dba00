#include "control/requests.h"

RunningRequestRecord RunningRequest;
RequestMarks Marks;

// Requests of applications are not carried out yet: nothing sets the marks that lead here.
LONG DoMakeCall(int, int) {
    return static_cast<LONG>(LINEERR_OPERATIONUNAVAIL);
}
