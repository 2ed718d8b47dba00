#include "walk/cells.h"

#include "tracking/multi_line.h"
#include "tracking/steps.h"

namespace Walk {

// No step stores RESERVED_ICON, so that its row cannot be reached.
std::map<std::string, long> Cells = {
    {"ACTIV_ICON > INCOM_ICON", 0},    {"ACTIV_ICON > HOLD_ICON", 0},    {"ACTIV_ICON > IDLE_ICON", 0},
    {"ACTIV_ICON > RESERVED_ICON", 0}, {"INCOM_ICON > ACTIV_ICON", 0},   {"INCOM_ICON > IDLE_ICON", 0},
    {"INCOM_ICON > RESERVED_ICON", 0}, {"HOLD_ICON > ACTIV_ICON", 0},    {"HOLD_ICON > INCOM_ICON", 0},
    {"HOLD_ICON > IDLE_ICON", 0},      {"HOLD_ICON > RESERVED_ICON", 0}, {"IDLE_ICON > ACTIV_ICON", 0},
    {"IDLE_ICON > INCOM_ICON", 0},     {"IDLE_ICON > RESERVED_ICON", 0},
};

}  // namespace Walk

// The names that --wrap gives to MultiIcon(int, int).
extern "C" {
void __real__Z9MultiIconii(int icon, int key);  // NOLINT(bugprone-reserved-identifier)
void __wrap__Z9MultiIconii(int icon, int key);  // NOLINT(bugprone-reserved-identifier)
}

void __wrap__Z9MultiIconii(int icon, int key) {  // NOLINT(bugprone-reserved-identifier)
    if (IsKey(key) && TouchOf(key).kind != TOUCH_NONE && TouchOf(key).kind != TOUCH_SUPERV)
        if (const auto cell = Walk::Cells.find(std::string(CommandName(TouchOf(key).icon)) + " > " + CommandName(icon));
            cell != Walk::Cells.end())
            ++cell->second;
    __real__Z9MultiIconii(icon, key);
}
