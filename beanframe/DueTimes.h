// Due times on the clock of GetTickCount: milliseconds modulo 2^32.
#pragma once

#include <windows.h>

// An entry that became due longer ago than this, in milliseconds, is never chosen.
constexpr DWORD NEVER_CHOSEN = 0x7FFFFFFF;

// The entry of a multimap by due time that became due last; the map's end when none is due. The first one on the way back from
// now around the circle of 2^32: if that is too long ago, all others are even further back, which means too long ago or in the
// future.
template <class Map>
typename Map::iterator findLatestDue(Map& map, DWORD now)
{
    if (map.empty()) {
        return map.end();
    }
    auto place = map.upper_bound(now);
    if (place == map.begin()) {
        place = map.end();
    }
    --place;
    return now - place->first < NEVER_CHOSEN ? place : map.end();
}
