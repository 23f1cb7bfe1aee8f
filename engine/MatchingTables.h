#pragma once

#include "engine/MatchingData.h"

/// Tabulates the working monitor model where that has not been done since it changed. Without memory for it the record stays as it is: its
/// operations are slower then and answer the same. Not while other threads use the record.
void TabulateMonitor(MatchingData* data);

/// The two parts of BuildMatchingTables: the match, predict and gamut tables, and the proof table.
void BuildMonitorGrids(MatchingData* data);
void BuildProofGrid(MatchingData* data);
