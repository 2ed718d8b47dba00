// Requests of applications: the dispatcher that runs a request's handler and decides how the request ends. Under the line
// mutex.
#pragma once

#include "provider/state.h"
#include "tracking/pending.h"  // RequestCode

// Carries out a request whose arguments, identifier included, stand in `provider`. Gives what the entry point answers: the
// identifier of an asynchronous request, whose completion may have been sent already; 0; or a LINEERR_ value.
LONG DispatchRequest(int code, ProviderStateRecord& provider);
