#pragma once

/// The process's current matching record, shared by reference count. A replaced record lives until its last user has released it.

#include "engine/MatchingData.h"

CM_C_BEGIN

/// The current record with one more reference, or null. Any thread; release it with ReleaseMatchingData.
CM_EXPORT MatchingData* GetMatchingData(void);
CM_EXPORT void ReleaseMatchingData(MatchingData* data);
/// Makes `data` (or nothing, for null) current. The caller's reference passes to the session.
CM_EXPORT void SetMatchingData(MatchingData* data);

CM_C_END
