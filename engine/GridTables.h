#pragma once

#include "engine/MatchingData.h"

/// The two parts of BuildMatchingTables: the match, predict and gamut tables, and the proof table.
void BuildMonitorGrids(MatchingData* data);
void BuildProofGrid(MatchingData* data);
