#include "provider/state.h"

ProviderStateRecord ProviderState;
