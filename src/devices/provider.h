// The provider's skeleton: library entry point, TSPI_provider entry points, common initialisation.
#pragma once

#include "platform/platform.h"

// Zeroes and fills ProviderState and loads the configuration; shuts the provider down when no port is configured.
void ProviderInitCommon(DWORD permanentProviderID, HPROVIDER provider, DWORD lineDeviceID, DWORD phoneDeviceID,
                        ASYNC_COMPLETION completion);

// The same with the values that ProviderState holds: what every open after the first does.
void ProviderInitAgain();
