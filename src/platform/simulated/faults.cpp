// The calls of registry, private profiles and memory that a test lets fail.
#include "platform/simulated/state.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <string_view>

namespace Simulated {

FaultRecord Faults;

namespace {

struct RegistryFault {
    LONG error;
    REGSAM rights;
};
std::map<std::string, RegistryFault>& Refused = *new std::map<std::string, RegistryFault>;

bool Same(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char left, unsigned char right) {
        return std::tolower(left) == std::tolower(right);
    });
}

}  // namespace

LONG Refusal(const std::string& path, const std::string& value, REGSAM rights) {
    for (const auto& [refused, fault] : Refused) {
        const bool key =
            path.size() >= refused.size() && Same(std::string_view(path).substr(path.size() - refused.size()), refused);
        const bool asked = (rights & fault.rights) == fault.rights;
        if (fault.error != 0 && asked && (key || (!value.empty() && Same(value, refused))))
            return fault.error;
    }
    return ERROR_SUCCESS;
}

void ResetFaults() {
    Refused.clear();
    Faults = FaultRecord{};
}

}  // namespace Simulated

using namespace Simulated;

void PlatformControl::RefuseRegistry(const std::string& keyOrValue, LONG error, REGSAM rights) {
    const Guard guard(Lock);
    Refused[keyOrValue] = {error, rights};
}

void PlatformControl::RefuseProfile(bool refuse) {
    const Guard guard(Lock);
    Faults.Profile = refuse;
}

void PlatformControl::FailGlobalAlloc(bool fail) {
    const Guard guard(Lock);
    Faults.Alloc = fail;
}

void PlatformControl::FailGlobalLock(bool fail) {
    const Guard guard(Lock);
    Faults.MemoryLock = fail;
}

void PlatformControl::StickGlobalUnlock(int times) {
    const Guard guard(Lock);
    Faults.StuckUnlocks = times;
}
