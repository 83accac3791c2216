#pragma once

#include "HVX/Device/Scanner.h"

namespace nrq::detail {

// The bounds code of the positional shapes: per component, the minimum moves
// down and the maximum up to the new position. The maximum starts at the
// smallest positive float, so a scan wholly in negative coordinates reports a
// maximum of about zero; files and drawing code expect exactly that.
inline void AdjustBoundsTo(Position& boundsMin, Position& boundsMax, const Position& position) {
    for (size_t i = 0; i < Position::size(); ++i) {
        if (boundsMin[i] > position[i])
            boundsMin[i] = position[i];
        if (boundsMax[i] < position[i])
            boundsMax[i] = position[i];
    }
}

} // namespace nrq::detail
