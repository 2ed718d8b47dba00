// How often the walk has reached each cell of the icon machine's table: stored icon and new icon of keys that carry calls.
// MultiIcon is called through here, by the linker's --wrap: the provider knows nothing of it.
#pragma once

#include <map>
#include <string>

namespace Walk {

extern std::map<std::string, long>
    Cells;  // by "stored icon > new icon", those with a step of their own at 0 to begin with

}  // namespace Walk
