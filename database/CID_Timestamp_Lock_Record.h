// CID_Timestamp_Lock_Record: one row of the time-slot table "TimeStampReservoirV2", in memory.
#pragma once

#include <cstdint>

#include "framework/platform/SystemTime.h"

struct CID_Timestamp_Lock_Record {
  std::uint32_t CID = 0;     // the content identifier
  SYSTEMTIME Timestamp{};    // allocated till (UTC): the end of the last slot handed out
  SYSTEMTIME LockedTill{};   // end of the lease (UTC); the zero time (year 1601) when not locked
};
