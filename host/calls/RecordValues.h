#pragma once

#include "CDSCallData.h"
#include "calls/RecordBook.h"

#include <cstddef>

/// Takes every property and log entry of call data over into a record.
///
/// @return how many there are
std::size_t takeValues(CCallData& data, CCallRecord* pRecord);
